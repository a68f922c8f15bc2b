// The application's side of the library's wiring, for tests: no menu, no
// audio; it keeps what it is told.
#pragma once

#include "QVlorAudio.h"
#include "QVlorAudioPlugins.h"

#include <QList>
#include <QString>

namespace vlortest {

class TestHost : public QVlorAudioPlugins::Host {
public:
    void announceNewPlugins(const QList<QString>& names) override { announced << names; }
    QMenu* mainMenu() override { return nullptr; }
    void registerAction(QAction*, const QString&, const QString&, const QString&) override {}
    void registerQuickOpen(int, QAction*, const QString&, const QString&, const QString&, const QString&,
                           const QString&) override
    {
    }
    void unregisterAction(QAction*) override {}
    void unregisterQuickOpen(QAction*) override {}
    QVlorAudio currentAudio() override { return QVlorAudio(); }
    void presentEffectWidget(QVlorFxWidget*, QAction*, const QString&, const QString&) override {}

    QList<QString> announced;
};

} // namespace vlortest
