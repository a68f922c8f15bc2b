#include "QVlorFxWidget.h"

#include "QVlorSetting.h"

QVlorFxWidget::QVlorFxWidget(const QVlorAudio& audio, QWidget* parent, Qt::WindowFlags flags)
    : QWidget(parent, flags), m_audio(audio)
{
}

QVlorFxWidget::~QVlorFxWidget() = default;
QString QVlorFxWidget::title() const { return fxName(); }
QString QVlorFxWidget::windowTitle() const { return title(); }
QString QVlorFxWidget::uniqId() const { return QString(); }
QString QVlorFxWidget::fxLabel() const { return fxName(); }
QString QVlorFxWidget::fxName() const { return QString(); }
QString QVlorFxWidget::fxParam(bool) const { return QString(); }
QStringList QVlorFxWidget::builtinPresets() const { return {}; }
QString QVlorFxWidget::presetConfig(int, const QString&) const { return QString(); }
bool QVlorFxWidget::setPresetConfig(const QString&, const QString&) { return false; }
void QVlorFxWidget::reset() {}
QVlorMixer::Effect* QVlorFxWidget::effect() const { return nullptr; }
bool QVlorFxWidget::isQWidget() const { return true; }
void QVlorFxWidget::setBypass(bool) {}
void QVlorFxWidget::refresh() {}
const QVlorAudio& QVlorFxWidget::audio() const { return m_audio; }
void QVlorFxWidget::startResizing(ResizingKind kind) { m_resizing = kind; }
void QVlorFxWidget::finishResizing() { m_resizing = NotResizing; }
bool QVlorFxWidget::isResizing(ResizingKind kind) const { return m_resizing == kind; }

// Names and configurations as two lists of the same length: a name may hold
// any character, which a settings key may not.
QVlorFxPresets::QVlorFxPresets(const QString& root, QObject* parent) : QObject(parent), m_root(root) {}

QString QVlorFxPresets::key() const { return m_root + QStringLiteral(".user_presets"); }

QStringList QVlorFxPresets::userPresetNames() const
{
    const QStringList pairs = QVlorSetting::global().getStringList(key());
    QStringList names;
    for (int i = 0; i + 1 < pairs.size(); i += 2)
        names << pairs[i];
    return names;
}

int QVlorFxPresets::userPresetCount() const { return int(userPresetNames().size()); }

QString QVlorFxPresets::userPreset(const QString& name) const
{
    const QStringList pairs = QVlorSetting::global().getStringList(key());
    for (int i = 0; i + 1 < pairs.size(); i += 2)
        if (pairs[i] == name)
            return pairs[i + 1];
    return QString();
}

void QVlorFxPresets::storeUserPreset(const QString& name, const QString& config)
{
    removeUserPreset(name);
    QStringList pairs = QVlorSetting::global().getStringList(key());
    pairs << name << config;
    QVlorSetting::global().change(key(), pairs);
}

void QVlorFxPresets::removeUserPreset(const QString& name)
{
    QStringList pairs = QVlorSetting::global().getStringList(key());
    for (int i = 0; i + 1 < pairs.size();) {
        if (pairs[i] == name)
            pairs.erase(pairs.begin() + i, pairs.begin() + i + 2);
        else
            i += 2;
    }
    QVlorSetting::global().change(key(), pairs);
}
