#include "text.h"

#include <QGuiApplication>

#include <X11/Xlib.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>

namespace vlorfx {

QByteArray printable(const QString& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= 0x20 && u != 0x7f && (u < 0x80 || u > 0x9f)) {
            out += c;
            continue;
        }
        switch (u) {
        case '\n': out += QLatin1String("\\n"); break;
        case '\r': out += QLatin1String("\\r"); break;
        case '\t': out += QLatin1String("\\t"); break;
        case 0x1b: out += QLatin1String("\\e"); break;
        default: out += QStringLiteral("\\x%1").arg(unsigned(u), 2, 16, QLatin1Char('0'));
        }
    }
    return out.toUtf8();
}

bool sameFile(const std::string& a, const std::string& b)
{
    struct stat sa, sb;
    return a == b || (::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
                      sa.st_ino == sb.st_ino);
}

} // namespace vlorfx

namespace vlorfx {

bool displayReachable()
{
    static const bool reachable = [] {
        const char* wayland = std::getenv("WAYLAND_DISPLAY");
        if (wayland && *wayland)
            return true;
        const char* name = std::getenv("DISPLAY");
        if (!name || !*name)
            return false;
        Display* display = XOpenDisplay(name);
        if (display)
            XCloseDisplay(display);
        return display != nullptr;
    }();
    return reachable;
}

int refuseWithoutDisplay(const char* command, const char* pictureOption)
{
    const QString platform = QGuiApplication::platformName();
    if (platform != QLatin1String("offscreen") && platform != QLatin1String("minimal"))
        return 0;
    const char* display = std::getenv("DISPLAY");
    const std::string why = display && *display ? std::string("the display ") + display + " does not answer"
                                                : std::string("there is no display to show the window on");
    std::fprintf(stderr,
                 "vlorfx %s: %s; run it under xvfb-run (xvfb-run -a vlorfx %s ...), or give %s for a picture "
                 "of it\n",
                 command, why.c_str(), command, pictureOption);
    return 1;
}

namespace {

std::string decibels(double peak)
{
    if (!(peak > 0))
        return "silence";
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f dBFS", 20.0 * std::log10(peak));
    return text;
}

} // namespace

std::string writtenLine(const std::string& output, long long frames, int channels, int sampleRate, double peakIn,
                        double peakOut)
{
    char length[64];
    std::snprintf(length, sizeof(length), "%.2f s", sampleRate > 0 ? double(frames) / sampleRate : 0.0);
    return "wrote " + output + ": " + length + ", " + std::to_string(channels) +
           (channels == 1 ? " channel, " : " channels, ") + std::to_string(sampleRate) + " Hz; peak " +
           decibels(peakIn) + " in, " + decibels(peakOut) + " out";
}

std::string quoted(const std::string& s)
{
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + "\"";
}

} // namespace vlorfx
