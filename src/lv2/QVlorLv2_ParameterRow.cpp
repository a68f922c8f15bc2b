// A row of the LV2 generic panel. LV2 values are plain numbers in the port's
// range: the slider walks that range (in steps of one for an integer, evenly
// in the ratio for a logarithmic port) and the field shows the number itself.
#include "QVlorLv2_Widget.h"

#include "QVlorAccessible.h"
#include "QVlorPanelText_p.h"

#include "lv2engine.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>

#include <algorithm>
#include <cmath>

namespace QVlorLv2 {

namespace {

constexpr int kSliderSteps = 1000;

// Enough decimals to tell apart the values a range of this span holds.
int decimalsForSpan(float span)
{
    return span <= 1.0f ? 3 : span <= 100.0f ? 2 : span <= 10000.0f ? 1 : 0;
}

} // namespace

ParameterRow::ParameterRow(_Lv2Instance* instance, int index, const Lv2ParamInfo& info, QGridLayout* layout, int row,
                           QObject* parent)
    : QObject(parent), m_instance(instance), m_index(index), m_minimum(info.minimum), m_maximum(info.maximum),
      m_flags(info.flags)
{
    QWidget* owner = layout->parentWidget();
    const QString title = QString::fromUtf8(info.name);
    m_label = new QLabel(title.endsWith(QLatin1Char(':')) ? title : title + QLatin1Char(':'), owner);
    layout->addWidget(m_label, row, 0);
    if (m_flags & kLv2ParamToggled) {
        m_checkBox = new QCheckBox(owner);
        m_checkBox->setAccessibleName(title);
        layout->addWidget(m_checkBox, row, 1, 1, 3, Qt::AlignLeft);
        connect(m_checkBox, &QCheckBox::toggled, this, [this](bool on) { set(on ? m_maximum : m_minimum); });
    } else if ((m_flags & kLv2ParamEnumeration) && info.scalePoints > 0) {
        makeList(layout, row);
        m_comboBox->setAccessibleName(title);
    } else {
        makeSlider(layout, row, QString::fromUtf8(info.units));
        m_slider->setAccessibleName(title);
        m_valueField->setAccessibleName(title);
    }
    m_label->setBuddy(m_checkBox ? static_cast<QWidget*>(m_checkBox)
                      : m_comboBox ? static_cast<QWidget*>(m_comboBox)
                                   : static_cast<QWidget*>(m_slider));
    update();
}

void ParameterRow::makeSlider(QGridLayout* layout, int row, const QString& units)
{
    QWidget* owner = layout->parentWidget();
    const float span = m_maximum - m_minimum;
    if ((m_flags & kLv2ParamInteger) && span >= 1.0f && span <= 10000.0f) {
        m_steps = int(std::lround(span));
        m_decimals = 0;
    } else {
        m_steps = kSliderSteps;
        m_decimals = decimalsForSpan(span);
    }
    m_slider = new QSlider(Qt::Horizontal, owner);
    QVlorAccessible::setValueText(m_slider, QString());
    m_slider->setRange(0, m_steps);
    m_slider->setMinimumWidth(160);
    m_valueField = new QLineEdit(owner);
    const QFontMetrics metrics(m_valueField->font());
    const int widest = std::max(metrics.horizontalAdvance(valueText(m_minimum)),
                                metrics.horizontalAdvance(valueText(m_maximum)));
    m_valueField->setFixedWidth(std::clamp(widest + 16, 56, 120));
    m_valueField->setFrame(false);
    m_valueField->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_valueField->setToolTip(tr("Type a value and press Enter"));
    m_unitsLabel = new QLabel(units, owner);
    QVlorAccessible::followValueText(m_slider, m_valueField, units);
    layout->addWidget(m_slider, row, 1);
    layout->addWidget(m_valueField, row, 2);
    layout->addWidget(m_unitsLabel, row, 3);
    connect(m_slider, &QSlider::valueChanged, this, &ParameterRow::onSliderMoved);
    connect(m_valueField, &QLineEdit::editingFinished, this, &ParameterRow::onValueTyped);
}

void ParameterRow::makeList(QGridLayout* layout, int row)
{
    m_comboBox = new QComboBox(layout->parentWidget());
    char label[128];
    float value = 0;
    for (int point = 0; VLORLV2_GetScalePoint(m_instance, m_index, point, &value, label, int(sizeof(label))) == 1;
         ++point) {
        m_comboBox->addItem(QString::fromUtf8(label));
        m_points << value;
    }
    layout->addWidget(m_comboBox, row, 1, 1, 3, Qt::AlignLeft);
    connect(m_comboBox, qOverload<int>(&QComboBox::currentIndexChanged), this, [this](int at) {
        if (at >= 0 && at < m_points.size())
            set(m_points[at]);
    });
}

// The low end of a logarithmic slider: its minimum, or for a range from zero
// (a gain of 0 to 1000) a hundred-thousandth of its maximum, below which the
// slider's first step is the zero itself. 0 for a slider that is not one.
double ParameterRow::logFloor() const
{
    if (!(m_flags & kLv2ParamLogarithmic) || m_minimum < 0 || m_maximum <= 0 || m_minimum >= m_maximum)
        return 0;
    return m_minimum > 0 ? m_minimum : m_maximum * 1e-5;
}

int ParameterRow::position(float value) const
{
    if (m_maximum <= m_minimum)
        return 0;
    double t = double(value - m_minimum) / double(m_maximum - m_minimum);
    if (const double floor = logFloor(); floor > 0)
        t = value <= floor ? 0.0 : std::log(value / floor) / std::log(m_maximum / floor);
    return int(std::lround(std::clamp(t, 0.0, 1.0) * m_steps));
}

float ParameterRow::valueAt(int at) const
{
    const double t = double(at) / m_steps;
    if (const double floor = logFloor(); floor > 0)
        return at == 0 ? m_minimum : float(floor * std::pow(m_maximum / floor, t));
    return float(m_minimum + t * (m_maximum - m_minimum));
}

QString ParameterRow::valueText(float value) const
{
    return TidyNumberText(QString::number(double(value), 'f', m_decimals));
}

void ParameterRow::set(float value)
{
    if (m_updating)
        return;
    VLORLV2_SetParam(m_instance, m_index, value);
    update();
    emit edited();
}

void ParameterRow::update()
{
    const float value = VLORLV2_GetParam(m_instance, m_index);
    m_updating = true;
    if (m_checkBox) {
        m_checkBox->setChecked(value > 0.5f * (m_minimum + m_maximum));
    } else if (m_comboBox) {
        // The labelled value nearest to the plugin's.
        int nearest = -1;
        for (int i = 0; i < m_points.size(); ++i)
            if (nearest < 0 || std::fabs(m_points[i] - value) < std::fabs(m_points[nearest] - value))
                nearest = i;
        m_comboBox->setCurrentIndex(nearest);
    } else {
        m_slider->setValue(position(value));
        if (!m_valueField->hasFocus()) {
            m_valueField->setText(valueText(value));
            m_valueField->setCursorPosition(0);
        }
    }
    m_updating = false;
}

void ParameterRow::onSliderMoved(int at) { set(valueAt(at)); }

void ParameterRow::onValueTyped()
{
    double typed = 0;
    const bool isNumber = m_valueField->isModified() && LeadingNumber(m_valueField->text().trimmed(), &typed);
    m_valueField->setModified(false);
    // What is no number leaves the value, and the field shows it again.
    if (!isNumber || !std::isfinite(typed)) {
        m_valueField->setText(valueText(VLORLV2_GetParam(m_instance, m_index)));
        return;
    }
    set(float(typed));
    m_valueField->setText(valueText(VLORLV2_GetParam(m_instance, m_index)));
}

void ParameterRow::applyColours(const QPalette& palette, const QColor& ground)
{
    if (m_unitsLabel)
        m_unitsLabel->setStyleSheet(
            QStringLiteral("color: %1;").arg(QuietTextColor(palette.color(QPalette::WindowText), ground).name()));
    if (m_valueField)
        m_valueField->setStyleSheet(QStringLiteral("background-color: %1; color: %2;")
                                        .arg(palette.color(QPalette::Base).name(), palette.color(QPalette::Text).name()));
}

} // namespace QVlorLv2
