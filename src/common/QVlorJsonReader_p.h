#ifndef QVLORJSONREADER_P_H
#define QVLORJSONREADER_P_H
// A pull reader of JSON text for the library's large files: values are read
// straight into the caller's records, with no document tree between. It is
// strict on purpose: whatever it is unsure of (a lone surrogate, a control
// character in a string, a malformed number) it refuses, and the caller
// reads the file again with QJsonDocument, which decides and words the
// error. What it accepts, it reads as QJsonDocument would.

#include <QString>
#include <QtGlobal>

#include <string>
#include <string_view>
#include <vector>

namespace QVlorJson {

// One value as far as a record's field needs it; containers are skipped
// and only their kind is told.
struct Scalar {
    enum Kind { Null, Bool, Integer, Double, String, Array, Object } kind = Null;
    bool boolean = false;
    qint64 integer = 0;
    double number = 0;
    QString text;

    // As QJsonValue's conversions of the same name give them.
    QString toString() const { return kind == String ? text : QString(); }
    bool toBool(bool fallback) const { return kind == Bool ? boolean : fallback; }
    qint64 toInteger(qint64 fallback) const;
    int toInt(int fallback) const;
};

class Reader {
public:
    Reader(const char* begin, const char* end);

    bool failed() const { return m_failed; }
    // Only white space is left (after the document's one value).
    bool atEnd();

    // Containers: begin, then next until it gives false (the container's end,
    // or a fault: see failed()).
    bool beginObject();
    bool nextMember(std::string* key);
    bool beginArray();
    bool nextElement();
    // The next value's kind, without reading it.
    Scalar::Kind peek();

    bool readScalar(Scalar* value);
    bool readString(QString* text);
    bool skipValue();

private:
    bool fail();
    void skipSpace();
    bool literal(std::string_view word);
    bool readStringBytes(std::string* utf8, bool* ascii);
    bool readNumber(Scalar* value);
    bool leaveContainer(char close);

    const char* m_at;
    const char* m_end;
    bool m_failed = false;
    // Per open container: whether a member or element has been read yet.
    std::vector<bool> m_started;
    std::string m_scratch;
};

} // namespace QVlorJson

#endif
