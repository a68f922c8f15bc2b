#ifndef QVLORSETTING_H
#define QVLORSETTING_H

#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>

// The application's settings on the Qt side: typed values over the same
// process-wide store as BLSETTINGS_*. A read answers the stored value, else
// the default set for the key, else the fallback given to the call.
class QVlorSetting {
public:
    static QVlorSetting& global();

    void setDefault(const QString& key, const QVariant& value);
    bool getBool(const QString& key, bool fallback = false) const;
    int getInt(const QString& key, int fallback = 0) const;
    QString getString(const QString& key, const QString& fallback = QString()) const;
    QStringList getStringList(const QString& key, const QStringList& fallback = QStringList()) const;
    bool change(const QString& key, const QVariant& value);
    bool exists(const QString& key) const;
    bool remove(const QString& key);
    // A value this process reads instead of the stored one, never written:
    // an option of one run (a command line's) leaves the user's settings as
    // they were, however the run ends. An invalid value takes it back.
    void setForThisRun(const QString& key, const QVariant& value);

private:
    QVlorSetting() = default;
    bool stored(const QString& key, QString* text) const;
    QVariant defaultOf(const QString& key) const;

    mutable QMutex m_lock;
    QHash<QString, QVariant> m_defaults;
    QHash<QString, QString> m_thisRun;
};

#endif
