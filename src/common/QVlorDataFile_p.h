#ifndef QVLORDATAFILE_P_H
#define QVLORDATAFILE_P_H
// The library's own files are replaced whole or not at all, and read
// tolerantly: whatever is in their place, nothing blocks or throws.

#include "QVlorJsonMerge_p.h"
#include "blsavetarget.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDateTime>
#include <QDebug>
#include <QDir>
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
inline bool WriteFileAtomically(const QString& fileName, const QByteArray& bytes, QString* error = nullptr)
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
    // A fresh machine has no data folder yet: the first save makes it.
    const QFileInfo info(fileName);
    if (!info.absoluteDir().exists() && !QDir().mkpath(info.absolutePath()))
        return fail(QStringLiteral("its folder could not be made"));
    if (!SaveTarget(QFile::encodeName(fileName).toStdString(), &target, &why))
        return fail(QString::fromStdString(why));
    KeepUnreadableAside(fileName);
    QSaveFile file(QFile::decodeName(QByteArray::fromStdString(target)));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return fail(file.errorString());
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

// At most limit bytes of a plain file; empty when there is none. A pipe or a
// device in the file's place would block the open or never end.
inline bool ReadPlainFile(const QString& fileName, QByteArray* bytes, qint64 limit = -1)
{
    if (!QFileInfo(fileName).isFile())
        return false;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    *bytes = limit < 0 ? file.readAll() : file.read(limit);
    return true;
}

// Each read-modify-write of a file is one at a time across the processes
// that share the data folder: an advisory lock on a file beside it.
class DataFileLock {
public:
    explicit DataFileLock(const QString& fileName)
        : m_fd(::open(QFile::encodeName(fileName + QStringLiteral(".lock")).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
    {
        if (m_fd >= 0)
            while (flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
            }
    }
    ~DataFileLock()
    {
        if (m_fd >= 0)
            ::close(m_fd); // the lock goes with it
    }
    DataFileLock(const DataFileLock&) = delete;
    DataFileLock& operator=(const DataFileLock&) = delete;

private:
    int m_fd;
};

// The version of each file this process last read, or last wanted written:
// what another process changed since is told from it.
inline QHash<QString, QByteArray>& DataFileBases(QMutex** lock)
{
    static QMutex mutex;
    static QHash<QString, QByteArray> bases;
    *lock = &mutex;
    return bases;
}

inline void RememberDataFileBase(const QString& fileName, const QByteArray& bytes)
{
    QMutex* lock = nullptr;
    QHash<QString, QByteArray>& bases = DataFileBases(&lock);
    QMutexLocker l(lock);
    bases.insert(fileName, bytes);
}

inline bool DataFileBase(const QString& fileName, QByteArray* bytes)
{
    QMutex* lock = nullptr;
    QHash<QString, QByteArray>& bases = DataFileBases(&lock);
    QMutexLocker l(lock);
    const auto it = bases.constFind(fileName);
    if (it == bases.constEnd())
        return false;
    *bytes = *it;
    return true;
}

// mine, with what another process wrote into the file since our base merged
// in record by record (with the file's lock held). Mine alone when the file
// is as we left it, or when either side cannot be read as one object.
inline QByteArray MergeWithDisk(const QString& fileName, const QByteArray& mine)
{
    QByteArray disk, base;
    if (!ReadPlainFile(fileName, &disk) || !DataFileBase(fileName, &base))
        return mine;
    if (disk == base || disk == mine)
        return mine;
    const QJsonDocument b = QJsonDocument::fromJson(base), m = QJsonDocument::fromJson(mine),
                        t = QJsonDocument::fromJson(disk);
    if (!b.isObject() || !m.isObject() || !t.isObject())
        return mine;
    const QJsonValue merged = MergeJson3(b.object(), m.object(), t.object());
    return QJsonDocument(merged.toObject()).toJson(QJsonDocument::Indented);
}

// Another process's saves of one file, seen by a look at its time and size.
class DataFileWatch {
public:
    // True, with the file's contents merged into mine (the working state as
    // the file would hold it) in *merged, when another process saved the file
    // since this one last read or wrote it and that changes something here.
    // mine() is asked only then: the working state need not be composed
    // at every look.
    template <typename Mine> bool takeIn(const QString& fileName, Mine mine, QJsonObject* merged)
    {
        const QFileInfo info(fileName);
        const qint64 time = info.exists() ? info.lastModified().toMSecsSinceEpoch() : -1;
        if (time == m_time && info.size() == m_size)
            return false;
        m_time = time;
        m_size = info.size();
        QByteArray disk, base;
        // Never read here, or as we left it: nothing of anybody else's.
        if (!DataFileBase(fileName, &base) || !ReadPlainFile(fileName, &disk) || disk == base)
            return false;
        const QJsonDocument b = QJsonDocument::fromJson(base), t = QJsonDocument::fromJson(disk);
        if (!b.isObject() || !t.isObject())
            return false;
        RememberDataFileBase(fileName, disk);
        const QJsonObject here = mine();
        *merged = MergeJson3(b.object(), here, t.object()).toObject();
        return *merged != here;
    }

private:
    qint64 m_time = -1, m_size = -1;
};

// Beside each of the library's files, the copy of its last good save: a file
// that cannot be read later (a crash of the disk's, a hand edit) gives back
// what the user chose from there. A copy, not a link: a write in place into
// the file would reach a link too.
inline QString LastGoodCopyOf(const QString& fileName) { return fileName + QStringLiteral(".last-good"); }

inline bool WriteJsonFileAtomically(const QString& fileName, const QJsonObject& root, QString* error = nullptr)
{
    const QByteArray mine = QJsonDocument(root).toJson(QJsonDocument::Indented);
    DataFileLock lock(fileName);
    const QByteArray bytes = MergeWithDisk(fileName, mine);
    if (!WriteFileAtomically(fileName, bytes, error))
        return false;
    // Mine, not the merge: what they changed stays theirs at our next save too.
    RememberDataFileBase(fileName, mine);
    // The save itself succeeded: a copy that cannot be written only leaves the older one.
    WriteFileAtomically(LastGoodCopyOf(fileName), bytes);
    return true;
}


// The last good copy of a file that could not be read, into *root, and into
// the file's place at once, the broken file kept aside: said once, with what
// was wrong and from when the copy is.
inline bool RestoreLastGoodCopy(const QString& fileName, const QString& parseError, QJsonObject* root)
{
    const QString copy = LastGoodCopyOf(fileName);
    QByteArray bytes;
    if (!ReadPlainFile(copy, &bytes))
        return false;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes);
    if (!doc.isObject())
        return false;
    *root = doc.object();
    const QString when = QFileInfo(copy).lastModified().toString(Qt::ISODate);
    KeepUnreadableAside(fileName);
    WriteFileAtomically(fileName, bytes);
    RememberDataFileBase(fileName, bytes);
    qWarning().noquote() << QStringLiteral("Could not read %1 (%2): what it held, the choices made in it included, "
                                           "was restored from its last good copy of %3")
                                .arg(fileName, parseError.isEmpty() ? QStringLiteral("not one JSON object") : parseError,
                                     when);
    return true;
}

// Whose file it is: one of the library's is kept aside before a save
// replaces it unread; a plugin's is only read.
enum class JsonFileOwner { Library, Plugin };

// Why a file that was there did not read: the parser's error, or none for
// a document that is not one object.
struct JsonFileFault {
    bool happened = false;
    QString parseError;
};

// The one JSON object a file holds; false when it cannot be read, does not
// parse or holds something else. A fault of one of the library's files is
// logged here unless the caller asks for it in *fault, to word it itself.
inline bool ReadJsonFileObject(const QString& fileName, QJsonObject* root, JsonFileOwner owner = JsonFileOwner::Library,
                               JsonFileFault* fault = nullptr)
{
    QByteArray bytes;
    if (!ReadPlainFile(fileName, &bytes))
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && doc.isObject()) {
        *root = doc.object();
        if (owner == JsonFileOwner::Library)
            RememberDataFileBase(fileName, bytes);
        return true;
    }
    if (owner == JsonFileOwner::Plugin)
        return false;
    MarkJsonFileUnreadable(fileName);
    const QString parseError = error.error != QJsonParseError::NoError ? error.errorString() : QString();
    if (RestoreLastGoodCopy(fileName, parseError, root))
        return true;
    if (fault) {
        fault->happened = true;
        fault->parseError = parseError;
    } else {
        qWarning().noquote() << "Could not read" << fileName + QStringLiteral(":")
                             << (parseError.isEmpty() ? QStringLiteral("not one JSON object") : parseError);
    }
    return false;
}

#endif
