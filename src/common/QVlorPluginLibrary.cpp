#include "QVlorPluginLibrary.h"

#include "QVlorSetting.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QtMath>

#include <algorithm>

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

// Products as settings keep them: each a compact JSON array of identities.
QList<QStringList> ReadProducts(const QStringList& items, int limit)
{
    QList<QStringList> out;
    for (const QString& item : items) {
        QStringList ids;
        for (const QJsonValue& v : QJsonDocument::fromJson(item.toUtf8()).array())
            if (!v.toString().isEmpty() && !ids.contains(v.toString()))
                ids << v.toString();
        if (!ids.isEmpty() && out.size() < limit)
            out << ids;
    }
    return out;
}

QStringList WriteProducts(const QList<QStringList>& products)
{
    QStringList items;
    for (const QStringList& ids : products)
        items << QString::fromUtf8(QJsonDocument(QJsonArray::fromStringList(ids)).toJson(QJsonDocument::Compact));
    return items;
}

// Drops every product that shares an identity with ids; whether one was.
bool DropSharing(QList<QStringList>* products, const QStringList& ids)
{
    const int before = products->size();
    products->erase(std::remove_if(products->begin(), products->end(),
                                   [&](const QStringList& p) { return Shares(p, ids); }),
                    products->end());
    return products->size() != before;
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
    m_favourites = ReadProducts(s.getStringList(QLatin1String(K_SETTING_FAVOURITES)), 1 << 20);
    m_recent = ReadProducts(s.getStringList(QLatin1String(K_SETTING_RECENT)), kRecentLimit);
    m_overrides.clear();
    for (const QString& item : s.getStringList(QLatin1String(K_SETTING_CATEGORY_OVERRIDES))) {
        const int tab = item.indexOf(QLatin1Char('\t'));
        if (tab > 0 && tab + 1 < item.size())
            m_overrides.insert(item.mid(tab + 1), item.left(tab));
    }
}

bool QVlorPluginLibrary::isFavourite(const QStringList& identities) const
{
    return std::any_of(m_favourites.begin(), m_favourites.end(),
                       [&](const QStringList& p) { return Shares(p, identities); });
}

QList<QStringList> QVlorPluginLibrary::favourites() const { return m_favourites; }

// Marked on, the product holds every identity it is known by now; taken
// back by any one of them, it is gone whatever forms it had then.
void QVlorPluginLibrary::setFavourite(const QStringList& identities, bool on)
{
    const QStringList ids = NonEmpty(identities);
    if (ids.isEmpty())
        return;
    QStringList merged = ids;
    for (const QStringList& p : qAsConst(m_favourites))
        if (Shares(p, ids))
            for (const QString& id : p)
                if (!merged.contains(id))
                    merged << id;
    const bool dropped = DropSharing(&m_favourites, ids);
    if (!on && !dropped)
        return;
    if (on)
        m_favourites << merged;
    saveFavourites();
    emit favouritesChanged();
}

QList<QStringList> QVlorPluginLibrary::recent() const { return m_recent; }

void QVlorPluginLibrary::noteUsed(const QStringList& identities)
{
    const QStringList ids = NonEmpty(identities);
    if (ids.isEmpty())
        return;
    DropSharing(&m_recent, ids);
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
    QVlorSetting::global().change(QLatin1String(K_SETTING_FAVOURITES), WriteProducts(m_favourites));
}

void QVlorPluginLibrary::saveRecent()
{
    QVlorSetting::global().change(QLatin1String(K_SETTING_RECENT), WriteProducts(m_recent));
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

// Five points, gold with a darker edge that holds on a light and a dark
// ground; on a selected row, white like the selection's text.
QIcon QVlorPluginLibrary::starIcon()
{
    static const QIcon icon = [] {
        QIcon i;
        for (const bool selected : {false, true}) {
            for (int size : {16, 32, 48}) {
                QPixmap pixmap(size, size);
                pixmap.fill(Qt::transparent);
                QPainter p(&pixmap);
                p.setRenderHint(QPainter::Antialiasing);
                QPainterPath star;
                const QPointF c(size / 2.0, size / 2.0 + size * 0.04);
                for (int k = 0; k < 10; ++k) {
                    const qreal r = (k % 2 ? 0.21 : 0.47) * size;
                    const qreal a = qDegreesToRadians(-90.0 + 36.0 * k);
                    const QPointF pt(c.x() + r * qCos(a), c.y() + r * qSin(a));
                    k ? star.lineTo(pt) : star.moveTo(pt);
                }
                star.closeSubpath();
                p.setBrush(selected ? QColor(Qt::white) : QColor(240, 180, 30));
                p.setPen(QPen(selected ? QColor(Qt::white) : QColor(170, 110, 0), size / 16.0));
                p.drawPath(star);
                p.end();
                i.addPixmap(pixmap, selected ? QIcon::Selected : QIcon::Normal);
            }
        }
        return i;
    }();
    return icon;
}
