// A row of the VST2 generated editor: a slider between the plugin's texts at
// both ends of the range, a field to type a value into, or a list of the
// words a parameter shows.
#include "QVlorVst_Widget.h"

#include "QVlorAccessible.h"
#include "QVlorPanelText_p.h"
#include "QVlorVst_MixerEffect.h"

#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace QVlorVst {

namespace {

constexpr int kSliderSteps = 10000;

} // namespace

ParameterWidget::ParameterWidget(MixerEffect* effect, int index, QObject* parent)
    : QObject(parent), m_effect(effect), m_index(index)
{
}

QString ParameterWidget::displayString(const QString& text)
{
    if (text == QLatin1String("-inf"))
        return QStringLiteral("-%1").arg(QChar(0x221E));
    if (text == QLatin1String("+inf"))
        return QStringLiteral("+%1").arg(QChar(0x221E));
    return text;
}

QString ParameterWidget::displayValue(float value, bool* ok) const
{
    if (m_disabled)
        return QString();
    bool scratch = true;
    const QString text = m_effect->parameterValueString(m_index, m_maxValue, m_minValue, value, ok ? ok : &scratch);
    // The words of a list must stay as the plugin spells them: they are looked up.
    return m_kind == 1 ? text : TidyNumberText(text);
}

void ParameterWidget::compose(QGridLayout* layout)
{
    m_kind = m_effect->parameterKind(m_index);
    m_minValue = m_effect->parameterMinValue(m_index);
    m_maxValue = m_effect->parameterMaxValue(m_index);
    QWidget* parent = layout->parentWidget();
    const int row = layout->rowCount();

    m_label = new QLabel(m_effect->parameterName(m_index) + QLatin1Char(':'), parent);
    QFont font = m_label->font();
    font.setPointSize(11);
    m_label->setFont(font);
    m_label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    layout->addWidget(m_label, row, 0);

    if (m_kind == 2 || m_kind == 3) {
        bool ok = true;
        m_minLabel = new QLabel(displayString(TidyNumberText(m_effect->parameterMinValueString(m_index, &ok))), parent);
        m_minLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_minLabel->setMinimumWidth(40);
        m_slider = new QSlider(Qt::Horizontal, parent);
        QVlorAccessible::setValueText(m_slider, QString());
        m_slider->setAccessibleName(m_effect->parameterName(m_index));
        m_slider->setRange(0, kSliderSteps);
        m_slider->setMinimumWidth(160);
        m_maxLabel = new QLabel(displayString(TidyNumberText(m_effect->parameterMaxValueString(m_index, &ok))), parent);
        m_maxLabel->setMinimumWidth(40);
        m_lineEdit = new QLineEdit(parent);
        m_lineEdit->setAccessibleName(m_effect->parameterName(m_index));
        // Wide enough for the longest text the plugin shows at the ends of the range.
        const QFontMetrics metrics(m_lineEdit->font());
        bool shown = true;
        const int widest = std::max({metrics.horizontalAdvance(m_minLabel->text()), metrics.horizontalAdvance(m_maxLabel->text()),
                                     metrics.horizontalAdvance(displayValue(m_effect->parameterValue(m_index), &shown))});
        m_lineEdit->setFixedWidth(std::max(48, std::min(widest + 10, 96)));
        m_lineEdit->setMinimumHeight(20);
        m_lineEdit->setMaximumHeight(22);
        m_lineEdit->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_lineEdit->setEnabled(m_kind == 2);
        m_unitLabel = new QLabel(m_effect->parameterLabel(m_index), parent);
        m_unitLabel->setMinimumWidth(40);
        layout->addWidget(m_minLabel, row, 1);
        layout->addWidget(m_slider, row, 2);
        layout->addWidget(m_maxLabel, row, 3);
        layout->addWidget(m_lineEdit, row, 4);
        layout->addWidget(m_unitLabel, row, 5);
        QVlorAccessible::followValueText(m_slider, m_lineEdit, m_unitLabel->text());
        m_label->setBuddy(m_slider);
        update();
        connect(m_slider, &QSlider::valueChanged, this, &ParameterWidget::onSliderMoved);
        connect(m_lineEdit, &QLineEdit::textEdited, this, &ParameterWidget::onTextEdited);
        connect(m_lineEdit, &QLineEdit::editingFinished, this, &ParameterWidget::onEditingFinished);
    } else if (m_kind == 1) {
        m_comboBox = new QComboBox(parent);
        m_comboBox->setAccessibleName(m_effect->parameterName(m_index));
        for (int i = 0; i < m_effect->parameterNumOptions(m_index); ++i)
            m_comboBox->addItem(m_effect->parameterOptionLabel(m_index, i));
        layout->addWidget(m_comboBox, row, 1, 1, 5);
        m_label->setBuddy(m_comboBox);
        update();
        connect(m_comboBox, qOverload<int>(&QComboBox::currentIndexChanged), this,
                &ParameterWidget::onCurrentIndexChanged);
    }
}

void ParameterWidget::applyColours(const QPalette& palette, const QColor& ground)
{
    // The ends of the range are quieter than the value, never unreadable.
    const QString quiet = QStringLiteral("color: %1;").arg(QuietTextColor(palette.color(QPalette::WindowText), ground).name());
    if (m_minLabel)
        m_minLabel->setStyleSheet(quiet);
    if (m_maxLabel)
        m_maxLabel->setStyleSheet(quiet);
    if (m_lineEdit) {
        const QColor base = palette.color(QPalette::Base);
        // A field that takes no typing keeps a readable text too.
        const QColor text = m_lineEdit->isEnabled() ? palette.color(QPalette::Text)
                                                    : QuietTextColor(palette.color(QPalette::Text), base);
        m_lineEdit->setStyleSheet(QStringLiteral("border: 0px none; background-color: %1; color: %2;")
                                      .arg(base.name(), text.name()));
    }
}

void ParameterWidget::update()
{
    if (m_disabled)
        return;
    // Controls follow the plugin here; their change signals must not echo it back.
    m_updating = true;
    const float value = m_effect->parameterValue(m_index);
    if (m_slider) {
        m_slider->setValue(int(std::lround(double(value) * kSliderSteps)));
        if (!m_lineEdit->hasFocus())
            m_lineEdit->setText(displayValue(value, nullptr));
    } else if (m_comboBox) {
        bool ok = true;
        const int option = m_comboBox->findText(displayValue(value, &ok));
        if (option >= 0)
            m_comboBox->setCurrentIndex(option);
    }
    m_updating = false;
}

void ParameterWidget::onCrash() { m_disabled = true; }

void ParameterWidget::onSliderMoved(int position)
{
    if (m_updating || m_disabled || (m_kind != 2 && m_kind != 3))
        return;
    const float value = float(position) / float(kSliderSteps);
    m_effect->setParameterValue(m_index, value);
    m_lineEdit->setText(displayValue(value, nullptr));
}

void ParameterWidget::applyText(const QString& text)
{
    if (m_disabled || m_kind != 2 || text.isEmpty())
        return;
    // The plugin reads its own texts best; a plain number is the fallback.
    if (!m_effect->setParameterValueString(m_index, text)) {
        float number = 0;
        if (std::sscanf(text.toUtf8().constData(), "%f", &number) != 1)
            return;
        const float low = std::min(m_minValue, m_maxValue), high = std::max(m_minValue, m_maxValue);
        number = std::min(std::max(number, low), high);
        const float range = m_maxValue - m_minValue;
        m_effect->setParameterValue(m_index, range != 0 ? (number - m_minValue) / range : 0.0f);
    }
    m_updating = true;
    m_slider->setValue(int(std::lround(double(m_effect->parameterValue(m_index)) * kSliderSteps)));
    m_updating = false;
}

void ParameterWidget::onTextEdited(const QString& text) { applyText(text); }

void ParameterWidget::onEditingFinished()
{
    applyText(m_lineEdit->text());
    update();
}

void ParameterWidget::onCurrentIndexChanged(int)
{
    if (m_updating || m_disabled || m_kind != 1)
        return;
    m_effect->setParameterOption(m_index, m_comboBox->currentText());
}

} // namespace QVlorVst
