#include "QVlorPanelText_p.h"

#include <QRegularExpression>
#include <QWidget>

#include <algorithm>

#include <cmath>

int DecimalsForStep(double step)
{
    step = std::fabs(step);
    if (!std::isfinite(step) || step <= 0)
        return 0;
    for (int decimals = 0; decimals < 6; ++decimals) {
        const double scaled = step * std::pow(10.0, decimals);
        if (std::fabs(scaled - std::round(scaled)) < 1e-6 * std::max(1.0, scaled))
            return decimals;
    }
    return 6;
}

namespace {

// One number, a fraction perhaps, then perhaps a unit that holds no digit:
// "1.5e-05" and "1.0 - 2.0" are not taken.
const QRegularExpression& numberWithUnit()
{
    static const QRegularExpression re(QStringLiteral("^([+-]?\\d+)(?:\\.(\\d*))?(\\s*[^\\d\\s.][^\\d]*)?$"));
    return re;
}

QColor mix(const QColor& from, const QColor& to, double t)
{
    return QColor::fromRgbF(float(from.redF() + (to.redF() - from.redF()) * t),
                            float(from.greenF() + (to.greenF() - from.greenF()) * t),
                            float(from.blueF() + (to.blueF() - from.blueF()) * t));
}

double luminance(const QColor& c)
{
    auto channel = [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); };
    const QColor rgb = c.toRgb();
    return 0.2126 * channel(rgb.redF()) + 0.7152 * channel(rgb.greenF()) + 0.0722 * channel(rgb.blueF());
}

} // namespace

QString TidyNumberText(const QString& text, int keepDecimals)
{
    const QString trimmed = text.trimmed();
    const QRegularExpressionMatch m = numberWithUnit().match(trimmed);
    if (!m.hasMatch())
        return text;
    QString whole = m.captured(1);
    QString fraction = m.captured(2);
    while (fraction.size() > keepDecimals && fraction.endsWith(QLatin1Char('0')))
        fraction.chop(1);
    if (fraction.isEmpty() && whole.size() > 1 && whole.at(0) == QLatin1Char('-') &&
        whole.mid(1).count(QLatin1Char('0')) == whole.size() - 1)
        whole = QStringLiteral("0"); // "-0.000" is a zero
    return whole + (fraction.isEmpty() ? QString() : QLatin1Char('.') + fraction) + m.captured(3);
}

bool LeadingNumber(const QString& text, double* number)
{
    static const QRegularExpression re(QStringLiteral("^\\s*([+-]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][+-]?\\d+)?)"));
    const QRegularExpressionMatch m = re.match(text);
    if (!m.hasMatch())
        return false;
    bool ok = false;
    const double value = m.captured(1).toDouble(&ok);
    if (ok && number)
        *number = value;
    return ok && std::isfinite(value);
}

double ContrastRatio(const QColor& a, const QColor& b)
{
    const double la = luminance(a), lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

QColor QuietTextColor(const QColor& text, const QColor& ground)
{
    // A little above the line, so that rounding to 8 bits never falls under it.
    constexpr double kWanted = 4.7;
    if (ContrastRatio(text, ground) < kWanted)
        return ContrastRatio(Qt::black, ground) > ContrastRatio(Qt::white, ground) ? QColor(Qt::black) : QColor(Qt::white);
    double near = 0, far = 1; // near keeps the contrast, far loses it
    for (int i = 0; i < 16; ++i) {
        const double t = (near + far) / 2;
        (ContrastRatio(mix(text, ground, t), ground) >= kWanted ? near : far) = t;
    }
    return mix(text, ground, near);
}

QColor StylePanelGround(QWidget* panel, const QPalette& palette)
{
    const QColor ground = PanelGroundColor(palette);
    panel->setStyleSheet(
        QStringLiteral("QWidget#centralWidget { background-color: %1; border: 1px solid %2; border-radius: 5px; }")
            .arg(ground.name(), PanelGroundColor(palette, 0.14).name()));
    return ground;
}

QColor PanelGroundColor(const QPalette& palette, double towardsText)
{
    return mix(palette.color(QPalette::Window), palette.color(QPalette::WindowText), towardsText);
}
