#include "QVlorSetting.h"

#include "blsettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QMutexLocker>

#include <vector>

namespace {

// Lists are kept as a JSON array of strings: any text survives, commas too.
QString encodeList(const QStringList& list) { return QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(list)).toJson(QJsonDocument::Compact)); }

QStringList decodeList(const QString& text)
{
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
    QStringList out;
    if (doc.isArray())
        for (const QJsonValue& v : doc.array())
            out << v.toString();
    return out;
}

QString encode(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::QStringList:
        return encodeList(value.toStringList());
    default:
        return value.toString();
    }
}

} // namespace

QVlorSetting& QVlorSetting::global()
{
    static QVlorSetting* instance = new QVlorSetting;
    return *instance;
}

void QVlorSetting::setDefault(const QString& key, const QVariant& value)
{
    QMutexLocker l(&m_lock);
    m_defaults.insert(key, value);
}

QVariant QVlorSetting::defaultOf(const QString& key) const
{
    QMutexLocker l(&m_lock);
    return m_defaults.value(key);
}

void QVlorSetting::setForThisRun(const QString& key, const QVariant& value)
{
    QMutexLocker l(&m_lock);
    if (value.isValid())
        m_thisRun.insert(key, encode(value));
    else
        m_thisRun.remove(key);
}

bool QVlorSetting::stored(const QString& key, QString* text) const
{
    {
        QMutexLocker l(&m_lock);
        const auto run = m_thisRun.constFind(key);
        if (run != m_thisRun.constEnd()) {
            *text = *run;
            return true;
        }
    }
    const QByteArray k = key.toUtf8();
    if (!BLSETTINGS_ExistsEx(nullptr, "%s", k.constData()))
        return false;
    std::vector<char> buf(1 << 16);
    BLSETTINGS_GetStringEx(nullptr, buf.data(), int(buf.size()), "%s=[]", k.constData());
    *text = QString::fromUtf8(buf.data());
    return true;
}

bool QVlorSetting::getBool(const QString& key, bool fallback) const
{
    QString text;
    if (stored(key, &text))
        return text == QLatin1String("true") || text.toLongLong() != 0;
    const QVariant d = defaultOf(key);
    return d.isValid() ? d.toBool() : fallback;
}

int QVlorSetting::getInt(const QString& key, int fallback) const
{
    QString text;
    if (stored(key, &text)) {
        bool ok = false;
        const int v = text.toInt(&ok);
        return ok ? v : fallback;
    }
    const QVariant d = defaultOf(key);
    return d.isValid() ? d.toInt() : fallback;
}

QString QVlorSetting::getString(const QString& key, const QString& fallback) const
{
    QString text;
    if (stored(key, &text))
        return text;
    const QVariant d = defaultOf(key);
    return d.isValid() ? d.toString() : fallback;
}

QStringList QVlorSetting::getStringList(const QString& key, const QStringList& fallback) const
{
    QString text;
    if (stored(key, &text))
        return decodeList(text);
    const QVariant d = defaultOf(key);
    return d.isValid() ? d.toStringList() : fallback;
}

bool QVlorSetting::change(const QString& key, const QVariant& value)
{
    if (key.isEmpty() || key.contains(QLatin1Char('=')))
        return false;
    return BLSETTINGS_ChangeEx(nullptr, "%s=%s", key.toUtf8().constData(), encode(value).toUtf8().constData()) == 1;
}

bool QVlorSetting::exists(const QString& key) const
{
    return BLSETTINGS_ExistsEx(nullptr, "%s", key.toUtf8().constData()) == 1;
}

bool QVlorSetting::remove(const QString& key) { return BLSETTINGS_DeleteEx(nullptr, "%s", key.toUtf8().constData()) == 1; }
