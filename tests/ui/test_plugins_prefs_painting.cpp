// The plugin manager page's painting, by pixels of the tree's own picture in
// both themes: capsules, badges, outlines and disabled rows.
#include "prefs_fixture.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSemaphore>
#include <QSignalSpy>
#include <QToolTip>

#include <functional>

using namespace vlortest;

namespace {

QColor pixelAt(const QImage& image, QPointF at, double ratio)
{
    return image.pixelColor(int(at.x() * ratio), int(at.y() * ratio));
}

int distance(const QColor& a, const QColor& b)
{
    return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue());
}

// The most a horizontal run of pixels differs from a colour: the edge of a
// badge, wherever antialiasing put it.
int strongestEdge(const QImage& image, QPointF from, double width, double ratio, const QColor& against)
{
    int most = 0;
    for (int x = int(from.x() * ratio); x <= int((from.x() + width) * ratio); ++x)
        most = std::max(most, distance(image.pixelColor(x, int(from.y() * ratio)), against));
    return most;
}

int reddest(const QImage& image, QPointF from, double width, double ratio)
{
    int most = -255;
    for (int x = int(from.x() * ratio); x <= int((from.x() + width) * ratio); ++x) {
        const QColor c = image.pixelColor(x, int(from.y() * ratio));
        most = std::max(most, c.red() - (c.green() + c.blue()) / 2);
    }
    return most;
}

} // namespace

class PrefsPainting : public Prefs, public ::testing::WithParamInterface<int> {};

TEST_P(PrefsPainting, CapsulesBadgesOutlinesAndDisabledRowsByPixels)
{
    const int theme = GetParam();
    QVlorApplication::applyTheme(theme);
    page->onPaletteChanged();
    vst3->addManualPair(kStereoId, kGain, QStringLiteral("vst3"));
    vst3->disablePlugin(kAlone);
    settle();
    const QPalette palette = tree->palette();
    const QColor base = palette.color(QPalette::Base);
    const QColor highlight = palette.color(QPalette::Highlight);
    const double ratio = tree->devicePixelRatioF();
    auto picture = [&] {
        tree->viewport()->repaint();
        return tree->viewport()->grab().toImage();
    };

    // The pair row: the active VST3 badge is blue, the inactive VST2 badge is not.
    const QString pairName = rowOf(row(QStringLiteral("Fixture Gain"))).pairId.isEmpty()
                                 ? QStringLiteral("Vlor Fixture Stereo")
                                 : QStringLiteral("Fixture Gain");
    const QModelIndex pair = row(pairName);
    ASSERT_TRUE(rowOf(pair).vst3.active);
    QImage image = picture();
    const QRectF active = badge(pair, 1);
    const QColor body = pixelAt(image, QPointF(active.left() + 3, active.center().y()), ratio);
    EXPECT_LT(distance(body, QColor(22, 119, 217)), 40) << body.name().toStdString();
    const QRectF inactive = badge(pair, 0);
    EXPECT_GT(distance(pixelAt(image, QPointF(inactive.left() + 3, inactive.center().y()), ratio), QColor(22, 119, 217)),
              150);

    // A failed class gets the red outline; one that works does not.
    const QRectF failed = badge(row(QStringLiteral("Fixture Fails")), 1);
    const QRectF fine = badge(row(QStringLiteral("Fixture Endless")), 1);
    EXPECT_GT(reddest(image, QPointF(failed.left() - 1, failed.center().y()), 3, ratio), 60);
    EXPECT_LT(reddest(image, QPointF(fine.left() - 1, fine.center().y()), 3, ratio), 12);

    // A disabled row's badge is drawn at half the strength of an inactive one.
    const QRectF off = badge(row(QStringLiteral("Fixture Alone")), 1);
    const QColor offBackground = pixelAt(image, QPointF(off.left() - 6, off.center().y()), ratio);
    const QColor onBackground = pixelAt(image, QPointF(inactive.left() - 6, inactive.center().y()), ratio);
    const int offEdge = strongestEdge(image, QPointF(off.left() - 1, off.center().y()), 4, ratio, offBackground);
    const int onEdge = strongestEdge(image, QPointF(inactive.left() - 1, inactive.center().y()), 4, ratio, onBackground);
    EXPECT_GT(onEdge, 30);
    EXPECT_NEAR(double(offEdge) / onEdge, 0.5, 0.2) << offEdge << " vs " << onEdge;

    // Three selected rows: one capsule from the check box on, hairlines between them.
    tree->clearSelection();
    const QModelIndex first = row(QStringLiteral("Fixture Alone"));
    const QModelIndex third = row(QStringLiteral("Fixture Fails"));
    click(tree->visualRect(first).center());
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, Qt::ShiftModifier, tree->visualRect(third).center());
    ASSERT_EQ(tree->selectionModel()->selectedRows().size(), 3);
    image = picture();
    const QRect firstRect = tree->visualRect(first);
    const QRect thirdRect = tree->visualRect(third);
    const double inside = tree->header()->sectionSize(0) - 20; // past the names, before the badges
    for (const QModelIndex& index : {first, row(QStringLiteral("Fixture Endless")), third})
        EXPECT_LT(distance(pixelAt(image, QPointF(inside, tree->visualRect(index).center().y()), ratio), highlight), 30);
    // Square where rows join, with a hairline there; rounded at the run's outer corners.
    const double right = tree->viewport()->width() - 6;
    EXPECT_LT(distance(pixelAt(image, QPointF(right - 1.5, firstRect.bottom() + 0.5), ratio), highlight), 30);
    const QColor hair = pixelAt(image, QPointF(firstRect.left() + 40, firstRect.bottom() + 1.0 - 0.5 / ratio), ratio);
    EXPECT_GT(hair.lightness(), highlight.lightness() + 8) << hair.name().toStdString();
    EXPECT_GT(distance(pixelAt(image, QPointF(right - 1.5, firstRect.top() + 1.5), ratio), highlight), 60);
    EXPECT_GT(distance(pixelAt(image, QPointF(right - 1.5, thirdRect.bottom() + 0.5), ratio), highlight), 60);
    // The branch strip left of the check box is not highlighted.
    const QPoint box = checkBox(first);
    EXPECT_GT(distance(pixelAt(image, QPointF(box.x() - 12, firstRect.center().y()), ratio), highlight), 60);
    // Nor is a row outside the run.
    const QModelIndex outside = row(QStringLiteral("Fixture Gain"));
    EXPECT_GT(distance(pixelAt(image, QPointF(inside, tree->visualRect(outside).center().y()), ratio), highlight), 60);
    EXPECT_LT(distance(pixelAt(image, QPointF(2, 2), ratio), base), 30);
    vst3->purgePairState({kStereoId}, {kGain});
    settle();
}

INSTANTIATE_TEST_SUITE_P(Themes, PrefsPainting, ::testing::Values(int(QVlorApplication::Light), int(QVlorApplication::Dark)),
                         [](const ::testing::TestParamInfo<int>& info) {
                             return info.param == QVlorApplication::Light ? std::string("Light") : std::string("Dark");
                         });
