#ifndef QVLORJSONFILE_P_H
#define QVLORJSONFILE_P_H
// The library's JSON files are replaced whole or not at all.

#include "../engine/savetarget_p.h"

#include <cerrno>
#include <cstring>

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>
#include <QSet>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

// Files that were there but could not be read: before a save replaces one,
// it is kept aside, as it may hold what the user chose.
inline QSet<QString>& UnreadableJsonFiles(QMutex** lock)
{
    static QMutex mutex;
    static QSet<QString> files;
    *lock = &mutex;
    return files;
}

inline void MarkJsonFileUnreadable(const QString& fileName)
{
    QMutex* lock = nullptr;
    QSet<QString>& files = UnreadableJsonFiles(&lock);
    QMutexLocker l(lock);
    files.insert(fileName);
}

inline void KeepUnreadableAside(const QString& fileName)
{
    QMutex* lock = nullptr;
    QSet<QString>& files = UnreadableJsonFiles(&lock);
    QMutexLocker l(lock);
    if (!files.remove(fileName) || !QFileInfo(fileName).isFile())
        return;
    const QString stem = fileName + QStringLiteral(".unreadable-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = stem;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = stem + QStringLiteral("-%1").arg(n);
    if (QFile::rename(fileName, aside))
        qWarning().noquote() << "Could not read" << fileName << "- the old file is kept as" << aside;
    else
        qWarning().noquote() << "Could not read" << fileName << "and could not keep it aside as" << aside;
}

// A short write (a full disk, a file size limit) must not be committed. Qt
// reports it only through the count, and a buffered device hides even that,
// so the file is written unbuffered and the count checked. Only a regular
// file or nothing is replaced; a link to one is written through and stays.
// False, with the reason in *error, when nothing was kept; also logged.
inline bool WriteJsonFileAtomically(const QString& fileName, const QJsonObject& root, QString* error = nullptr)
{
    // Each failure is logged once, not at every save a busy scan asks for.
    static QMutex lastLock;
    static QHash<QString, QString> lastFailure;
    auto fail = [&](const QString& why) {
        {
            QMutexLocker l(&lastLock);
            if (lastFailure.value(fileName) != why)
                qWarning().noquote() << "Could not save" << fileName + QStringLiteral(":") << why;
            lastFailure.insert(fileName, why);
        }
        if (error)
            *error = fileName + QStringLiteral(": ") + why;
        return false;
    };
    std::string target;
    std::string why;
    if (!SaveTarget(QFile::encodeName(fileName).toStdString(), &target, &why))
        return fail(QString::fromStdString(why));
    KeepUnreadableAside(fileName);
    QSaveFile file(QFile::decodeName(QByteArray::fromStdString(target)));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return fail(file.errorString());
    const QByteArray bytes = QJsonDocument(root).toJson(QJsonDocument::Indented);
    errno = 0;
    if (file.write(bytes) != bytes.size()) {
        // Qt tells a short write by its count alone; the system said why.
        const int err = errno;
        file.cancelWriting();
        return fail(err ? QString::fromLocal8Bit(std::strerror(err)) : QStringLiteral("the disk is full"));
    }
    if (!file.commit())
        return fail(file.errorString());
    {
        QMutexLocker l(&lastLock);
        lastFailure.remove(fileName);
    }
    if (error)
        error->clear();
    return true;
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
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        MarkJsonFileUnreadable(fileName);
        return false;
    }
    *root = doc.object();
    return true;
}

#endif
