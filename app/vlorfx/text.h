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

} // namespace vlorfx
