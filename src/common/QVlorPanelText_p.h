#ifndef QVLORNUMBERTEXT_P_H
#define QVLORNUMBERTEXT_P_H
// Plugins print their values with whatever their framework does ("10.000000
// ms"); a panel shows the plugin's own text, only without the zeros no value
// of that parameter needs. And the colours of a panel's texts, taken from the
// palette so that each reads on its ground in any theme.

#include <QColor>
#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QString>

// The number of decimals a step of this size needs to be written exactly
// (0.25 needs 2, 0.5 needs 1, 2 needs none), at most 6.
int DecimalsForStep(double step);

// text with the zeros of its fraction dropped down to keepDecimals, when the
// whole text is one plain number with an optional unit behind it ("10.000000
// ms" gives "10 ms", "-12.30 dB" "-12.3 dB", "0.500000" "0.5"). Any other
// text, and every digit that is not a trailing zero, stays as it is.
QString TidyNumberText(const QString& text, int keepDecimals = 0);

// The number at the start of such a text; false when there is none.
bool LeadingNumber(const QString& text, double* number);

// The contrast ratio of two colours as the accessibility guidelines count it
// (1 to 21).
double ContrastRatio(const QColor& a, const QColor& b);

// A colour between text and ground, as far towards the ground as it may go
// while it still has a contrast of at least 4.5 on it: a quieter text for
// ranges and values that stays readable.
QColor QuietTextColor(const QColor& text, const QColor& ground);

// The ground of a panel of rows: the window's colour moved a little towards
// the text, so that it stands apart from the dialog in light and dark.
QColor PanelGroundColor(const QPalette& palette, double towardsText = 0.06);

// Gives a panel named "centralWidget" that ground in the palette's colours,
// with a border a little darker; the ground, for the texts laid on it.
QColor StylePanelGround(QWidget* panel, const QPalette& palette);

// One line of a panel's header: a caption in bold on the left ("Manufacturer:"),
// its value on the right.
inline QHBoxLayout* PanelHeaderRow(QWidget* owner, const QString& caption, const QString& value)
{
    auto* row = new QHBoxLayout;
    auto* left = new QLabel(caption, owner);
    left->setStyleSheet(QStringLiteral("font-weight: bold;"));
    auto* right = new QLabel(value, owner);
    right->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(left);
    row->addStretch(1);
    row->addWidget(right);
    return row;
}

#endif
