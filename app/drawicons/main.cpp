// Paints the library's state icons and the toolkit's progress wheel, so that
// every picture the plugin pages show is made here and can be made again:
//   vlordrawicons LIBRARY_ICON_DIR TOOLKIT_ICON_DIR
// The outputs are committed; scripts/draw-icons runs this after a change.

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QMovie>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>

#include <cstdio>

namespace {

constexpr int kIcon = 64;

QImage canvas(int side)
{
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    return image;
}

// A glyph drawn as strokes, so the picture does not depend on the fonts here.
void exclamation(QPainter& p, const QPointF& top, double length, double width, const QColor& colour)
{
    p.setPen(QPen(colour, width, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(top, top + QPointF(0, length));
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    p.drawEllipse(top + QPointF(0, length + width * 1.45), width * 0.62, width * 0.62);
}

QImage failedIcon()
{
    QImage image = canvas(kIcon);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath triangle;
    triangle.moveTo(32, 5);
    triangle.lineTo(60, 56);
    triangle.lineTo(4, 56);
    triangle.closeSubpath();
    p.setPen(QPen(QColor(0xE0, 0x9B, 0x12), 6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(QColor(0xF2, 0xB1, 0x24));
    p.drawPath(triangle);
    exclamation(p, QPointF(32, 22), 16, 6.5, QColor(0x3A, 0x27, 0x00));
    return image;
}

QImage crashedIcon()
{
    QImage image = canvas(kIcon);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QPolygonF octagon;
    for (int i = 0; i < 8; ++i) {
        const double a = qDegreesToRadians(22.5 + 45.0 * i);
        octagon << QPointF(32 + 29 * std::cos(a), 32 + 29 * std::sin(a));
    }
    p.setPen(QPen(QColor(0xB3, 0x26, 0x26), 2.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(QColor(0xDA, 0x3B, 0x3B));
    p.drawPolygon(octagon);
    // A lightning bolt: the plugin took its process down.
    QPolygonF bolt;
    bolt << QPointF(36, 9) << QPointF(19, 36) << QPointF(30, 36) << QPointF(26, 55) << QPointF(45, 27)
         << QPointF(34, 27) << QPointF(38, 9);
    p.setPen(QPen(Qt::white, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::white);
    p.drawPolygon(bolt);
    return image;
}

QImage missingIcon()
{
    QImage image = canvas(kIcon);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(0x6E, 0x6E, 0x73), 2.5));
    p.setBrush(QColor(0x8E, 0x8E, 0x93));
    p.drawEllipse(QPointF(32, 32), 28, 28);
    // A question mark: a hook and a dot.
    QPainterPath hook;
    hook.moveTo(22, 25);
    hook.arcTo(QRectF(22, 13, 20, 20), 180, -225);
    hook.quadTo(QPointF(32, 33), QPointF(32, 39));
    p.setPen(QPen(Qt::white, 6.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(Qt::NoBrush);
    p.drawPath(hook);
    p.setPen(Qt::NoPen);
    p.setBrush(Qt::white);
    p.drawEllipse(QPointF(32, 48.5), 4.0, 4.0);
    return image;
}

// The tree's check box marks, white on the selection colour the style sheet
// paints under them.
QImage checkMark(bool partial)
{
    QImage image = canvas(32);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(Qt::white, 4.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    if (partial) {
        p.drawLine(QPointF(8, 16), QPointF(24, 16));
    } else {
        QPolygonF tick;
        tick << QPointF(7.5, 16.5) << QPointF(13.5, 22.5) << QPointF(24.5, 9.5);
        p.drawPolyline(tick);
    }
    return image;
}

// A GIF writer for a few frames of few colours: LZW with variable-width codes.
class BitWriter {
public:
    void put(int code, int width)
    {
        m_acc |= quint32(code) << m_bits;
        m_bits += width;
        while (m_bits >= 8) {
            m_bytes.append(char(m_acc & 0xFF));
            m_acc >>= 8;
            m_bits -= 8;
        }
    }
    QByteArray finish()
    {
        if (m_bits > 0)
            m_bytes.append(char(m_acc & 0xFF));
        return m_bytes;
    }

private:
    QByteArray m_bytes;
    quint32 m_acc = 0;
    int m_bits = 0;
};

QByteArray lzw(const QByteArray& pixels, int minCodeSize)
{
    const int clear = 1 << minCodeSize;
    const int end = clear + 1;
    BitWriter out;
    QHash<quint32, int> table;
    int next = end + 1;
    int width = minCodeSize + 1;
    out.put(clear, width);
    int prefix = quint8(pixels.at(0));
    for (int i = 1; i < pixels.size(); ++i) {
        const int k = quint8(pixels.at(i));
        const quint32 key = (quint32(prefix) << 8) | quint32(k);
        const auto found = table.constFind(key);
        if (found != table.constEnd()) {
            prefix = *found;
            continue;
        }
        out.put(prefix, width);
        if (next < 4096) {
            table.insert(key, next++);
            if (next > (1 << width) && width < 12)
                ++width;
        } else {
            out.put(clear, width);
            table.clear();
            next = end + 1;
            width = minCodeSize + 1;
        }
        prefix = k;
    }
    out.put(prefix, width);
    out.put(end, width);
    return out.finish();
}

void put16(QByteArray& out, int value)
{
    out.append(char(value & 0xFF));
    out.append(char((value >> 8) & 0xFF));
}

// Twelve spokes; the leading one in the selection blue, the trailing ones
// fading to a grey that reads on light and dark rows alike.
QByteArray wheelGif()
{
    constexpr int side = 48;
    constexpr int spokes = 12;
    constexpr int colours = 16;
    const QColor lead(0x16, 0x77, 0xD9);
    const QColor tail(0xA6, 0xAD, 0xB6);
    QList<QColor> palette{QColor(0, 0, 0)};
    for (int age = 0; age < spokes; ++age) {
        const double t = std::pow(age / double(spokes - 1), 0.6);
        palette << QColor::fromRgbF(float(lead.redF() + (tail.redF() - lead.redF()) * t),
                                    float(lead.greenF() + (tail.greenF() - lead.greenF()) * t),
                                    float(lead.blueF() + (tail.blueF() - lead.blueF()) * t));
    }
    while (palette.size() < colours)
        palette << QColor(0, 0, 0);

    QByteArray gif("GIF89a");
    put16(gif, side);
    put16(gif, side);
    gif.append(char(0x80 | 0x70 | 0x03)); // global table of 16 colours
    gif.append(char(0));
    gif.append(char(0));
    for (const QColor& c : palette) {
        gif.append(char(c.red()));
        gif.append(char(c.green()));
        gif.append(char(c.blue()));
    }
    gif.append("\x21\xFF\x0BNETSCAPE2.0\x03\x01\x00\x00\x00", 19);

    for (int frame = 0; frame < spokes; ++frame) {
        QImage image(side, side, QImage::Format_ARGB32);
        image.fill(Qt::transparent);
        {
            QPainter p(&image);
            p.setRenderHint(QPainter::Antialiasing);
            for (int k = 0; k < spokes; ++k) {
                const int age = (frame - k + spokes) % spokes;
                const double a = qDegreesToRadians(360.0 * k / spokes - 90.0);
                const QPointF dir(std::cos(a), std::sin(a));
                p.setPen(QPen(palette.at(1 + age), 4.6 - age * 0.12, Qt::SolidLine, Qt::RoundCap));
                p.drawLine(QPointF(24, 24) + dir * 10.5, QPointF(24, 24) + dir * 20.5);
            }
        }
        QByteArray indexes(side * side, char(0));
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                const QRgb px = image.pixel(x, y);
                if (qAlpha(px) < 110)
                    continue;
                int best = 1;
                int bestDistance = INT_MAX;
                for (int i = 1; i <= spokes; ++i) {
                    const QColor& c = palette.at(i);
                    const int dr = c.red() - qRed(px), dg = c.green() - qGreen(px), db = c.blue() - qBlue(px);
                    const int distance = dr * dr + dg * dg + db * db;
                    if (distance < bestDistance) {
                        bestDistance = distance;
                        best = i;
                    }
                }
                indexes[y * side + x] = char(best);
            }
        // Graphic control: restore to background, 8/100 s, colour 0 transparent.
        gif.append("\x21\xF9\x04", 3);
        gif.append(char((2 << 2) | 1));
        put16(gif, 8);
        gif.append(char(0));
        gif.append(char(0));
        gif.append(char(0x2C));
        put16(gif, 0);
        put16(gif, 0);
        put16(gif, side);
        put16(gif, side);
        gif.append(char(0));
        gif.append(char(4));
        const QByteArray data = lzw(indexes, 4);
        for (int at = 0; at < data.size(); at += 255) {
            const QByteArray block = data.mid(at, 255);
            gif.append(char(block.size()));
            gif.append(block);
        }
        gif.append(char(0));
    }
    gif.append(char(0x3B));
    return gif;
}

bool save(const QByteArray& bytes, const QString& file)
{
    QFile out(file);
    if (!out.open(QIODevice::WriteOnly) || out.write(bytes) != bytes.size()) {
        std::fprintf(stderr, "vlordrawicons: cannot write %s\n", qPrintable(file));
        return false;
    }
    return true;
}

bool savePng(const QImage& image, const QString& file)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return save(bytes, file);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 3) {
        std::fprintf(stderr, "usage: vlordrawicons LIBRARY_ICON_DIR TOOLKIT_ICON_DIR\n");
        return 2;
    }
    const QDir library(args.at(1));
    const QDir toolkit(args.at(2));
    bool ok = savePng(failedIcon(), library.filePath(QStringLiteral("plugin_state_failed.png")));
    ok = savePng(crashedIcon(), library.filePath(QStringLiteral("plugin_state_crashed.png"))) && ok;
    ok = savePng(missingIcon(), library.filePath(QStringLiteral("plugin_state_missing.png"))) && ok;
    ok = savePng(checkMark(false), library.filePath(QStringLiteral("indicator_checked.png"))) && ok;
    ok = savePng(checkMark(true), library.filePath(QStringLiteral("indicator_partial.png"))) && ok;
    const QString wheel = toolkit.filePath(QStringLiteral("animated_progress.gif"));
    ok = save(wheelGif(), wheel) && ok;

    // Read the wheel back through the reader the page uses.
    QMovie movie(wheel);
    if (!movie.isValid() || movie.frameCount() != 12) {
        std::fprintf(stderr, "vlordrawicons: the wheel does not read back (%d frames)\n", movie.frameCount());
        return 1;
    }
    return ok ? 0 : 1;
}
