#ifndef QVLORVST3_WIDGET_H
#define QVLORVST3_WIDGET_H
// The dialog of one VST3 effect class: the plugin's own view in a native
// child window, or a generic panel of its parameters.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPresets.h"

#include <memory>
#include "QVlorFxWidget.h"
#include "QVlorVst3_Catalog.h"

#include <QObject>

class QColor;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPalette;
class QSlider;
struct _Vst3Instance;

namespace QVlorVst3 {

class MixerEffect;

// One row of the generic panel.
class QVLOR_PLUGINS_EXPORT ParameterWidget : public QObject {
    Q_OBJECT
public:
    ParameterWidget(_Vst3Instance* instance, QGridLayout* layout, int row, quint32 id, const QString& title,
                    const QString& units, int stepCount, QObject* parent = nullptr);
    // Puts the row to the plugin's value without sending it back.
    void update();
    quint32 id() const { return m_id; }
    QSlider* slider() const { return m_slider; }
    QLabel* label() const { return m_label; }
    // The plugin's text of the value, which also takes a value typed in.
    QLineEdit* valueField() const { return m_valueField; }
    QLabel* unitsLabel() const { return m_unitsLabel; }
    // The row's texts in colours of this palette, on a panel of this ground.
    void applyColours(const QPalette& palette, const QColor& ground);

signals:
    void edited();

private slots:
    void onSliderValueChanged(int value);
    void onValueTyped();

private:
    void updateDisplay();
    void followPlugin();
    QString displayText(double normalized) const;

    _Vst3Instance* m_instance;
    quint32 m_id;
    QString m_units;
    int m_keepDecimals = 0;
    bool m_updating = false;
    QLabel* m_label = nullptr;
    QSlider* m_slider = nullptr;
    QLineEdit* m_valueField = nullptr;
    QLabel* m_unitsLabel = nullptr;
};

class QVLOR_PLUGINS_EXPORT Widget : public QVlorFxWidget {
    Q_OBJECT
public:
    // What presets read and set: the instance the dialog shows; null before a plugin is loaded.
    std::unique_ptr<QVlorAudioPlugins::PresetTarget> createPresetTarget() const;
    Widget(const QVlorAudio& audio, QWidget* parent = nullptr, Qt::WindowFlags flags = Qt::WindowFlags());
    ~Widget() override;

    bool loadPlugin(const QVlorVst3::Plugin& plugin);

    void setVisible(bool visible) override;
    QSize sizeHint() const override;
    QString title() const override;
    QString windowTitle() const override;
    QString uniqId() const override;
    QString fxLabel() const override;
    QString fxName() const override;
    QString fxParam(bool forPreset = false) const override;
    QString presetConfig(int kind, const QString& name) const override;
    bool setPresetConfig(const QString& name, const QString& config) override;
    void reset() override;
    QVlorMixer::Effect* effect() const override;
    void setBypass(bool bypass) override;
    void refresh() override;

    QString pluginUid() const;
    bool hasEditor() const;
    QList<ParameterWidget*> parameterWidgets() const;

    bool openEditor();
    bool closeEditor();
    // Safe from any thread: the event reaches onHostEvent on the widget's.
    void postHostEvent(int event, int a, int b);

public slots:
    void onHostEvent(int event, int a, int b);
    void onParamEdited();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void applyColours();
    void buildGenericUi();

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorVst3

#endif
