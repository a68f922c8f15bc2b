#ifndef QVLORLV2_WIDGET_H
#define QVLORLV2_WIDGET_H
// The dialog of one LV2 effect: the plugin's own X11 editor in a native
// child window, or a generic panel of its control ports.

#include "QVlorAudioPluginsExport.h"
#include "QVlorPresets.h"

#include <memory>
#include "QVlorFxWidget.h"

#include <QObject>

class QCheckBox;
class QColor;
class QComboBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QPalette;
class QSlider;
struct _Lv2Instance;
struct Lv2ParamInfo;

namespace QVlorLv2 {

class MixerEffect;

// One row of the generic panel: a slider and the value for a number, a check
// box for a toggle, a list of the labelled values for an enumeration.
class QVLOR_PLUGINS_EXPORT ParameterRow : public QObject {
    Q_OBJECT
public:
    ParameterRow(_Lv2Instance* instance, int index, const Lv2ParamInfo& info, QGridLayout* layout, int row,
                 QObject* parent = nullptr);
    // Puts the row to the plugin's value without sending it back.
    void update();
    int index() const { return m_index; }
    QLabel* label() const { return m_label; }
    QSlider* slider() const { return m_slider; }
    QCheckBox* checkBox() const { return m_checkBox; }
    QComboBox* comboBox() const { return m_comboBox; }
    // The value, which also takes a value typed in; null beside a check box or a list.
    QLineEdit* valueField() const { return m_valueField; }
    void applyColours(const QPalette& palette, const QColor& ground);

signals:
    void edited();

private:
    void makeSlider(QGridLayout* layout, int row, const QString& units);
    void makeList(QGridLayout* layout, int row);
    void set(float value);
    double logFloor() const;
    int position(float value) const;
    float valueAt(int position) const;
    QString valueText(float value) const;
    void onSliderMoved(int position);
    void onValueTyped();

    _Lv2Instance* m_instance;
    int m_index;
    float m_minimum, m_maximum;
    int m_flags;
    int m_steps = 1000;
    int m_decimals = 2;
    bool m_updating = false;
    QList<float> m_points; // an enumeration's values, in the list's order
    QLabel* m_label = nullptr;
    QSlider* m_slider = nullptr;
    QCheckBox* m_checkBox = nullptr;
    QComboBox* m_comboBox = nullptr;
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

    // The plugin of this URI, started for the audio's channels; false, with
    // why in error(), when it does not start.
    bool loadPlugin(const QString& uri);
    QString error() const;

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

    QString uri() const;
    // The group of the settings and presets of the effect of that URI.
    static QString SettingsRoot(const QString& uri);
    bool hasEditor() const;
    bool editorOpen() const;
    QList<ParameterRow*> parameterRows() const;

    bool openEditor();
    bool closeEditor();
    // Safe from any thread: the event reaches onUiEvent on the widget's.
    void postUiEvent(int event, int a, int b);

public slots:
    void onUiEvent(int event, int a, int b);

protected:
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void onIdle();
    void applyColours();
    void buildGenericUi();

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorLv2

#endif
