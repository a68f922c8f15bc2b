#ifndef QVLORPRESETBAR_H
#define QVLORPRESETBAR_H
// The effect dialog's row of the user's own things: the product's star, and
// its presets (the user's, then the factory's) with Save, Delete, Import and
// Export. The editor places it above the effect; it reads and sets the
// instance the dialog shows.

#include "QVlorAudioPluginsExport.h"
#include <QWidget>

#include <memory>

class QVlorFxWidget;

namespace QVlorAudioPlugins {
class PresetTarget;
}

class QVLOR_PLUGINS_EXPORT QVlorPresetBar : public QWidget {
    Q_OBJECT
public:
    // A bar for one of the library's effect dialogs; null for another
    // widget, or one with no plugin loaded.
    static QVlorPresetBar* forEffect(QVlorFxWidget* effect, QWidget* parent = nullptr);
    ~QVlorPresetBar() override;

    // The presets in the order of the list, "user:NAME" and "factory:NAME".
    QStringList presetEntries() const;
    // Loads an entry of the list as a choice in it does; false when it cannot.
    bool loadEntry(const QString& entry);
    // What the last load said: the parameters that found no match, or why it failed.
    QString lastReport() const;

signals:
    // A preset was loaded: the dialog's panel shows the new values.
    void presetLoaded(const QString& name);

private:
    QVlorPresetBar(QVlorFxWidget* effect, std::unique_ptr<QVlorAudioPlugins::PresetTarget> target,
                   const QString& identity, QWidget* parent);
    void refill(const QString& current = QString());
    void saveAs();
    void removeCurrent();
    void importFile();
    void exportCurrent();
    void report(const QString& text);
    class QVLOR_PLUGINS_HIDDEN Data;
    std::unique_ptr<Data> d;
};

#endif
