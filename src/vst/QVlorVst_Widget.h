#ifndef QVLORVST_WIDGET_H
#define QVLORVST_WIDGET_H
// The dialog of one VST2 plugin: its own editor, or rows of parameters made
// for it, and the place where the death of its host program reaches the user.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPresets.h"

#include <memory>
#include "QVlorFxWidget.h"
#include "QVlorVst_Plugin.h"

#include <QObject>
#include <QSize>

class QColor;
class QGridLayout;
class QPalette;
class QComboBox;
class QLabel;
class QLineEdit;
class QSlider;
struct BLNotifyEvent;

namespace QVlorVst {

class MixerEffect;

// One row of the generated editor.
class QVLOR_PLUGINS_EXPORT ParameterWidget : public QObject {
    Q_OBJECT
public:
    ParameterWidget(MixerEffect* effect, int index, QObject* parent = nullptr);
    void compose(QGridLayout* layout);
    // Puts the row's controls to the plugin's value, without sending it back.
    void update();
    void onCrash();
    // The row's texts in colours of this palette, on a panel of this ground.
    void applyColours(const QPalette& palette, const QColor& ground);
    QString displayValue(float value, bool* ok) const;
    static QString displayString(const QString& text);

    int index() const { return m_index; }
    int kind() const { return m_kind; }
    QSlider* slider() const { return m_slider; }
    QLineEdit* lineEdit() const { return m_lineEdit; }
    QComboBox* comboBox() const { return m_comboBox; }
    QLabel* minLabel() const { return m_minLabel; }
    QLabel* maxLabel() const { return m_maxLabel; }
    QLabel* unitLabel() const { return m_unitLabel; }

private slots:
    void onSliderMoved(int position);
    void onTextEdited(const QString& text);
    void onEditingFinished();
    void onCurrentIndexChanged(int index);

private:
    void applyText(const QString& text);

    MixerEffect* m_effect;
    int m_index;
    int m_kind = 0;
    bool m_disabled = false;
    bool m_updating = false;
    float m_minValue = 0;
    float m_maxValue = 1;
    QLabel* m_label = nullptr;
    QLabel* m_minLabel = nullptr;
    QLabel* m_maxLabel = nullptr;
    QSlider* m_slider = nullptr;
    QLineEdit* m_lineEdit = nullptr;
    QLabel* m_unitLabel = nullptr;
    QComboBox* m_comboBox = nullptr;
};

class QVLOR_PLUGINS_EXPORT Widget : public QVlorFxWidget {
    Q_OBJECT
public:
    // What presets read and set: the instance the dialog shows; null before a plugin is loaded.
    std::unique_ptr<QVlorAudioPlugins::PresetTarget> createPresetTarget() const;
    // At most this many rows in the generated editor.
    static constexpr int MaxParameterRows = 20;

    Widget(const QVlorAudio& audio, QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~Widget() override;

    bool loadPlugin(const QVlorVst::Plugin& plugin);

    void setVisible(bool visible) override;
    QSize sizeHint() const override;
    QString title() const override;
    QString windowTitle() const override;
    QString uniqId() const override;
    QString fxLabel() const override;
    QString fxName() const override;
    QString fxParam(bool forPreset = false) const override;
    QStringList builtinPresets() const override;
    QString presetConfig(int kind, const QString& name) const override;
    bool setPresetConfig(const QString& name, const QString& config) override;
    void reset() override;
    QVlorMixer::Effect* effect() const override;
    bool isQWidget() const override;
    void setBypass(bool bypass) override;
    void refresh() override;

    qint64 pluginUniqueId() const;
    bool isCrashed() const;
    bool hasPluginEditor() const;
    QList<ParameterWidget*> parameterWidgets() const;

    virtual void updateWidgets();

    // Whether a plugin's own editor can live in a window of this platform: an
    // X11 window is what plugins draw into.
    static bool CanEmbedEditors();

public slots:
    void checkPlugin();
    void sendIdle();

protected:
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;
    virtual void composeEditor(QVlorVst::MixerEffect* effect);
    virtual bool openEditor(QVlorVst::MixerEffect* effect);
    virtual bool closeEditor(QVlorVst::MixerEffect* effect);
    virtual QSize editorSize(QVlorVst::MixerEffect* effect) const;

private:
    friend int __QVlorVstWidgetNotifyCallback(void* user, const BLNotifyEvent* event);
    int notifyCallbackEvent(const BLNotifyEvent* event);
    void applyColours();

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorVst

#endif
