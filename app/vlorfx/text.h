#pragma once
// Text from plugins and file names, as it may be printed on a terminal.

#include <QByteArray>
#include <QString>

#include <string>

namespace vlorfx {

// UTF-8 with every control character escaped (\n, \t, \e, \xNN...): a name
// can neither break a table nor move the terminal's cursor.
QByteArray printable(const QString& text);

// The same file under two names, as far as the system can tell.
bool sameFile(const std::string& a, const std::string& b);
// A value for an effect's settings text: in double quotes, with quotes and backslashes escaped.
std::string quoted(const std::string& s);

// Whether a window can reach a person: a Wayland session, or an X display
// that answers (one that is set but gone would stop Qt's start).
bool displayReachable();

// A command that shows a window when the window would reach nobody (no
// display, or the offscreen platform) waits forever: 0 to go on, else the
// exit status after saying why and what to do instead.
int refuseWithoutDisplay(const char* command, const char* pictureOption);

// The line an apply prints when it has written its output: the file, its
// length, channels and rate, and the peak level that went in and came out
// ("wrote out.wav: 2.50 s, 2 channels, 44100 Hz; peak -6.0 dBFS in, -3.2 dBFS out").
std::string writtenLine(const std::string& output, long long frames, int channels, int sampleRate, double peakIn,
                        double peakOut);

} // namespace vlorfx
