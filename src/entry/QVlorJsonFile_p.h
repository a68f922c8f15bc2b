#ifndef QVLORJSONFILE_P_H
#define QVLORJSONFILE_P_H
// The library's JSON files are replaced whole or not at all.

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

// A short write (a full disk, a file size limit) must not be committed. Qt
// reports it only through the count, and a buffered device hides even that,
// so the file is written unbuffered and the count checked.
inline bool WriteJsonFileAtomically(const QString& fileName, const QJsonObject& root)
{
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return false;
    const QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

// The one JSON object a file holds; false when it cannot be read, does not
// parse or holds something else.
inline bool ReadJsonFileObject(const QString& fileName, QJsonObject* root)
{
    // A pipe or a device in the file's place would block the open or never end.
    if (!QFileInfo(fileName).isFile())
        return false;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return false;
    *root = doc.object();
    return true;
}

#endif
