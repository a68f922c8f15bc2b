#include "QVlorPluginLibrary.h"

#include "QVlorSetting.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

const char* const K_SETTING_FAVOURITES = "vloraudio.plugins.favourites";
const char* const K_SETTING_RECENT = "vloraudio.plugins.recent";
const char* const K_SETTING_MENU_LAYOUT = "vloraudio.plugins.menu_layout";
// Each item "KEY<tab>IDENTITY".
const char* const K_SETTING_CATEGORY_OVERRIDES = "vloraudio.plugins.category_overrides";

bool Shares(const QStringList& a, const QStringList& b)
{
    for (const QString& id : a)
        if (!id.isEmpty() && b.contains(id))
            return true;
    return false;
}

QStringList NonEmpty(const QStringList& ids)
{
    QStringList out;
    for (const QString& id : ids)
        if (!id.isEmpty() && !out.contains(id))
            out << id;
    return out;
}

} // namespace

QVlorPluginLibrary* QVlorPluginLibrary::instance()
{
    static QVlorPluginLibrary* library = nullptr;
    if (!library) {
        library = new QVlorPluginLibrary;
        if (QCoreApplication* app = QCoreApplication::instance())
            QObject::connect(app, &QObject::destroyed, [] {
                delete library;
                library = nullptr;
            });
    }
    return library;
}

QVlorPluginLibrary::QVlorPluginLibrary() { reload(); }

void QVlorPluginLibrary::reload()
{
    const QVlorSetting& s = QVlorSetting::global();
    m_favourites = s.getStringList(QLatin1String(K_SETTING_FAVOURITES));
    m_recent.clear();
    for (const QString& item : s.getStringList(QLatin1String(K_SETTING_RECENT))) {
        QStringList ids;
        for (const QJsonValue& v : QJsonDocument::fromJson(item.toUtf8()).array())
            ids << v.toString();
        ids = NonEmpty(ids);
        if (!ids.isEmpty() && m_recent.size() < kRecentLimit)
            m_recent << ids;
    }
    m_overrides.clear();
    for (const QString& item : s.getStringList(QLatin1String(K_SETTING_CATEGORY_OVERRIDES))) {
        const int tab = item.indexOf(QLatin1Char('\t'));
        if (tab > 0 && tab + 1 < item.size())
            m_overrides.insert(item.mid(tab + 1), item.left(tab));
    }
}

bool QVlorPluginLibrary::isFavourite(const QStringList& identities) const { return Shares(identities, m_favourites); }

QStringList QVlorPluginLibrary::favourites() const { return m_favourites; }

void QVlorPluginLibrary::setFavourite(const QStringList& identities, bool on)
{
    const QStringList ids = NonEmpty(identities);
    if (ids.isEmpty() || (on && ids.size() == 1 && m_favourites.contains(ids.first())))
        return;
    const int before = m_favourites.size();
    for (const QString& id : ids)
        m_favourites.removeAll(id);
    if (on)
        m_favourites << ids;
    if (!on && before == m_favourites.size())
        return;
    saveFavourites();
    emit favouritesChanged();
}

QList<QStringList> QVlorPluginLibrary::recent() const { return m_recent; }

void QVlorPluginLibrary::noteUsed(const QStringList& identities)
{
    const QStringList ids = NonEmpty(identities);
    if (ids.isEmpty())
        return;
    for (int i = m_recent.size() - 1; i >= 0; --i)
        if (Shares(m_recent.at(i), ids))
            m_recent.removeAt(i);
    m_recent.prepend(ids);
    while (m_recent.size() > kRecentLimit)
        m_recent.removeLast();
    saveRecent();
    emit recentChanged();
}

void QVlorPluginLibrary::clearRecent()
{
    if (m_recent.isEmpty())
        return;
    m_recent.clear();
    saveRecent();
    emit recentChanged();
}

QString QVlorPluginLibrary::categoryOverride(const QStringList& identities) const
{
    for (const QString& id : identities)
        if (m_overrides.contains(id))
            return m_overrides.value(id);
    return {};
}

QHash<QString, QString> QVlorPluginLibrary::categoryOverrides() const { return m_overrides; }

void QVlorPluginLibrary::setCategoryOverride(const QStringList& identities, const QString& key)
{
    const QStringList ids = NonEmpty(identities);
    if (ids.isEmpty())
        return;
    for (const QString& id : ids) {
        if (key.isEmpty())
            m_overrides.remove(id);
        else
            m_overrides.insert(id, key);
    }
    saveOverrides();
    emit categoriesChanged();
}

void QVlorPluginLibrary::saveFavourites()
{
    QVlorSetting::global().change(QLatin1String(K_SETTING_FAVOURITES), m_favourites);
}

void QVlorPluginLibrary::saveRecent()
{
    QStringList items;
    for (const QStringList& ids : qAsConst(m_recent))
        items << QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(ids)).toJson(QJsonDocument::Compact));
    QVlorSetting::global().change(QLatin1String(K_SETTING_RECENT), items);
}

void QVlorPluginLibrary::saveOverrides()
{
    QStringList items;
    for (auto it = m_overrides.constBegin(); it != m_overrides.constEnd(); ++it)
        items << it.value() + QLatin1Char('\t') + it.key();
    items.sort();
    QVlorSetting::global().change(QLatin1String(K_SETTING_CATEGORY_OVERRIDES), items);
}

QString QVlorPluginLibrary::menuLayout() const
{
    const QString layout = QVlorSetting::global().getString(QLatin1String(K_SETTING_MENU_LAYOUT));
    return layout == QLatin1String("category") || layout == QLatin1String("flat") ? layout : QStringLiteral("maker");
}

void QVlorPluginLibrary::setMenuLayout(const QString& layout)
{
    if (layout == menuLayout())
        return;
    QVlorSetting::global().change(QLatin1String(K_SETTING_MENU_LAYOUT), layout);
    emit menuLayoutChanged();
}
