#ifndef QVLORFXWIDGET_H
#define QVLORFXWIDGET_H
// The editor's effect dialogs: the base of an effect's widget, and the user
// presets an effect keeps under a settings root.

#include "QVlorAudio.h"
#include "QVlorMixer.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QWidget>

class QVlorFxWidget : public QWidget {
    Q_OBJECT
public:
    // Who is resizing the widget: the host or the user, or the plugin itself.
    enum ResizingKind { NotResizing = 0, HostResizing = 1, PluginResizing = 2 };

    QVlorFxWidget(const QVlorAudio& audio, QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~QVlorFxWidget() override;

    virtual QString title() const;
    virtual QString windowTitle() const;
    virtual QString uniqId() const;
    virtual QString fxLabel() const;
    virtual QString fxName() const;
    // The configuration string of the effect as it is now; with forPreset,
    // as a preset stores it.
    virtual QString fxParam(bool forPreset = false) const;
    virtual QStringList builtinPresets() const;
    virtual QString presetConfig(int kind, const QString& name) const;
    virtual bool setPresetConfig(const QString& name, const QString& config);
    virtual void reset();
    virtual QVlorMixer::Effect* effect() const;
    virtual bool isQWidget() const;
    virtual void setBypass(bool bypass);
    virtual void refresh();

    const QVlorAudio& audio() const;

    void startResizing(ResizingKind kind);
    void finishResizing();
    bool isResizing(ResizingKind kind) const;

signals:
    void fxResized(int width, int height);
    void fxCrashed();
    void fxConfigChanged();

private:
    QVlorAudio m_audio;
    ResizingKind m_resizing = NotResizing;
};

// The user's presets of one effect: "<root>.presets.<name>" in the settings store.
class QVlorFxPresets : public QObject {
    Q_OBJECT
public:
    explicit QVlorFxPresets(const QString& root, QObject* parent = nullptr);
    int userPresetCount() const;
    QStringList userPresetNames() const;
    QString userPreset(const QString& name) const;
    void storeUserPreset(const QString& name, const QString& config);
    void removeUserPreset(const QString& name);

private:
    QString key() const;
    QString m_root;
};

#endif
