// The parts of the Plugins menu made at each build: the groups of the layout
// the user chose (by maker, by category, or one flat list), and above them
// the favourites and the effects used last, kept by product.
#include "QVlorPluginsMenu_p.h"

#include "QVlorPairKeybindings.h"
#include "QVlorPluginCategory.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginLibrary.h"

#include "QVlorDisplayText_p.h"

#include <QAction>
#include <QActionGroup>
#include <QCoreApplication>
#include <QMenu>

#include <algorithm>

namespace QVlorAudioPlugins {

namespace {

QString trMain(const char* text) { return QCoreApplication::translate("QVlorAudioMainWindow", text); }

QString FormatWord(const QString& format)
{
    return format == Vst2Token() ? QStringLiteral("VST") : format == Lv2Token() ? QStringLiteral("LV2") : QStringLiteral("VST3");
}

bool ByName(const UnifiedRow* a, const UnifiedRow* b) { return QString::localeAwareCompare(a->name, b->name) < 0; }

} // namespace

void MenuController::Data::forgetMenu()
{
    pluginsMenu = nullptr;
    topAnchor = menuAnchor = scanProgressAction = skipCheckAction = cancelScanAction = managePluginsAction =
        searchPluginsAction = nullptr;
    layoutMenu = nullptr;
    vendorMenus.clear();
    flatActions.clear();
    topActions.clear();
    entries.clear();
    pairActions.clear();
}

void MenuController::Data::dropEntries()
{
    for (auto it = entries.constBegin(); it != entries.constEnd(); ++it) {
        host->unregisterAction(it.key());
        host->unregisterQuickOpen(it.key());
    }
    // A submenu takes its actions along: removing them one by one first
    // would cost a walk of the menu for each.
    for (QMenu* group : qAsConst(vendorMenus)) {
        pluginsMenu->removeAction(group->menuAction());
        delete group;
    }
    for (QAction* action : qAsConst(flatActions) + topActions) {
        pluginsMenu->removeAction(action);
        delete action;
    }
    vendorMenus.clear();
    flatActions.clear();
    topActions.clear();
    entries.clear();
    pairActions.clear();
}

bool MenuController::Data::makeEntry(const UnifiedRow& row, const UpmVst2Index& vst2Index, PluginMenuEntry* entry) const
{
    entry->pairId = row.pairId;
    entry->name = row.name;
    entry->identities = UpmRowIdentities(row);
    if (row.vst2.active) {
        entry->format = QLatin1String(Vst2Format().token);
        if (!vst2Index.find(row.vst2.identity, &entry->plugin))
            return false;
        entry->formatLabel = BadgeText(Vst2Format(), row.vst2.is32Bit);
        entry->formatId = row.vst2.identity;
    } else if (row.vst3.active) {
        entry->format = QLatin1String(Vst3Format().token);
        entry->cid = row.vst3.identity;
        entry->formatLabel = BadgeText(Vst3Format(), false);
        entry->formatId = Vst3ActionId(entry->cid);
    } else {
        entry->format = Lv2Token();
        entry->cid = row.lv2.identity;
        entry->formatLabel = BadgeText(kLv2Format, false);
        entry->formatId = QLatin1String(kLv2Format.actionIdPrefix) + entry->cid;
    }
    entry->groupLabel = row.vendor;
    if (entry->groupLabel.isEmpty() && !row.vendorKey.isEmpty())
        entry->groupLabel = row.vendorKey.at(0).toUpper() + row.vendorKey.mid(1);
    return true;
}

// A product's entry: its name as a person reads it, the whole in the tooltip
// when cut, and its format.
QAction* MenuController::Data::entryAction(const PluginMenuEntry& entry, QMenu* menu) const
{
    bool cut = false;
    auto* action = new QAction(QStringLiteral("%1 \u00B7 %2").arg(CutForDisplay(entry.name, &cut), entry.formatLabel), menu);
    if (cut)
        action->setToolTip(entry.name);
    return action;
}

void MenuController::Data::buildGroups(MenuController* controller, const QList<const UnifiedRow*>& usable,
                                       const UpmVst2Index& vst2Index, bool canApply)
{
    const QString layout = QVlorPluginLibrary::instance()->menuLayout();
    // Groups in their order: makers by name (none last), categories in the
    // vocabulary's order, or one group that is the menu itself.
    QMap<QString, QList<const UnifiedRow*>> grouped;
    QStringList order;
    for (const UnifiedRow* row : usable) {
        const QString key = layout == QLatin1String("category") ? row->category
                            : layout == QLatin1String("flat")   ? QString()
                                                                : row->vendorKey;
        if (!grouped.contains(key))
            order << key;
        grouped[key] << row;
    }
    if (layout == QLatin1String("category")) {
        QStringList ordered;
        for (PluginCategory c : PluginCategories())
            if (grouped.contains(CategoryKey(c)))
                ordered << CategoryKey(c);
        order = ordered;
    } else {
        std::sort(order.begin(), order.end());
        if (!order.isEmpty() && order.first().isEmpty())
            order.append(order.takeFirst());
    }
    for (const QString& key : qAsConst(order)) {
        QList<const UnifiedRow*> rows = grouped.value(key);
        std::stable_sort(rows.begin(), rows.end(), ByName);
        QMenu* groupMenu = nullptr;
        QString groupLabel;
        if (layout != QLatin1String("flat")) {
            PluginCategory category;
            groupLabel = layout == QLatin1String("category") && CategoryFromKey(key, &category) ? CategoryLabel(category)
                         : !rows.first()->vendor.isEmpty()                                    ? rows.first()->vendor
                         : key.isEmpty()                                                      ? QString()
                                                                                              : key.at(0).toUpper() + key.mid(1);
            groupMenu = new QMenu(CutForDisplay(groupLabel), pluginsMenu);
            pluginsMenu->insertMenu(menuAnchor, groupMenu);
            // One connection a submenu, which hears each of its actions, rather than one an action.
            QObject::connect(groupMenu, &QMenu::triggered, controller, [controller](QAction* a) { controller->openEntryOf(a); });
            vendorMenus.insert(key, groupMenu);
        }
        for (const UnifiedRow* row : qAsConst(rows)) {
            PluginMenuEntry entry;
            if (!makeEntry(*row, vst2Index, &entry))
                continue;
            QAction* action = entryAction(entry, groupMenu ? groupMenu : pluginsMenu.data());
            action->setEnabled(canApply);
            if (groupMenu) {
                groupMenu->addAction(action);
            } else {
                pluginsMenu->insertAction(menuAnchor, action);
                flatActions << action;
                QObject::connect(action, &QAction::triggered, controller, [controller, action] { controller->openEntryOf(action); });
            }
            entries.insert(action, entry);
            if (!entry.pairId.isEmpty())
                pairActions.insert(entry.pairId, action);
            const QString id = entry.pairId.isEmpty() ? entry.formatId : PairActionId(entry.pairId);
            const QString maker = entry.groupLabel;
            host->registerAction(action, id, trMain("Plugins by %1").arg(maker), row->name);
            const QString title = QStringLiteral("%2 %1").arg(row->name, maker);
            QString url = title.trimmed().toLower();
            url.removeIf([](QChar c) { return c.isSpace(); });
            // The category is in the description, so that "reverb" finds every reverb.
            PluginCategory category = PluginCategory::Other;
            CategoryFromKey(row->category, &category);
            const QString description = QStringLiteral("%1: %2 by %3 \u00B7 %4")
                                            .arg(FormatWord(entry.format), row->name, maker, CategoryLabel(category));
            host->registerQuickOpen(2, action, QStringLiteral("fx://%1").arg(url), title, description,
                                    QStringLiteral("QtVlor"), QStringLiteral("quickopen/vst"));
        }
    }
}

void MenuController::Data::refreshTopSections(MenuController* controller, bool canApply)
{
    for (QAction* action : qAsConst(topActions)) {
        entries.remove(action);
        pluginsMenu->removeAction(action);
        delete action;
    }
    topActions.clear();
    QHash<QString, PluginMenuEntry> byIdentity;
    for (const PluginMenuEntry& e : qAsConst(entries))
        for (const QString& id : e.identities)
            byIdentity.insert(id, e);
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    auto add = [&](const PluginMenuEntry& entry) {
        QAction* action = entryAction(entry, pluginsMenu);
        action->setProperty("vlorTopSection", true);
        action->setEnabled(canApply);
        pluginsMenu->insertAction(topAnchor, action);
        topActions << action;
        entries.insert(action, entry);
        QObject::connect(action, &QAction::triggered, controller, [controller, action] { controller->openEntryOf(action); });
    };
    auto section = [&](const QString& title) {
        QAction* header = pluginsMenu->insertSection(topAnchor, title);
        topActions << header;
    };
    // A favourite product appears once, whichever of its forms is in use.
    QList<PluginMenuEntry> favourites;
    QSet<QString> seen;
    for (const QStringList& ids : library->favourites())
        for (const QString& id : ids) {
            const auto it = byIdentity.constFind(id);
            if (it == byIdentity.constEnd())
                continue;
            if (!seen.contains(it->identities.first()))
                favourites << *it;
            seen.insert(it->identities.first());
            break;
        }
    std::stable_sort(favourites.begin(), favourites.end(), [](const PluginMenuEntry& a, const PluginMenuEntry& b) {
        return QString::localeAwareCompare(a.name, b.name) < 0;
    });
    if (!favourites.isEmpty()) {
        section(trMain("Favourites"));
        for (const PluginMenuEntry& e : qAsConst(favourites))
            add(e);
    }
    QList<PluginMenuEntry> recent;
    for (const QStringList& ids : library->recent())
        for (const QString& id : ids)
            if (byIdentity.contains(id)) {
                recent << byIdentity.value(id);
                break;
            }
    if (!recent.isEmpty()) {
        section(trMain("Recently used"));
        for (const PluginMenuEntry& e : qAsConst(recent))
            add(e);
        QAction* clear = new QAction(trMain("Clear recently used"), pluginsMenu);
        clear->setObjectName(QStringLiteral("clearRecentAction"));
        pluginsMenu->insertAction(topAnchor, clear);
        topActions << clear;
        QObject::connect(clear, &QAction::triggered, library, &QVlorPluginLibrary::clearRecent);
    }
    topAnchor->setVisible(!topActions.isEmpty());
}

void MenuController::Data::buildLayoutMenu()
{
    layoutMenu = new QMenu(trMain("Arrange Plugins"), pluginsMenu);
    layoutMenu->setObjectName(QStringLiteral("pluginsLayoutMenu"));
    pluginsMenu->addMenu(layoutMenu);
    auto* group = new QActionGroup(layoutMenu);
    const QString current = QVlorPluginLibrary::instance()->menuLayout();
    const std::pair<const char*, const char*> choices[] = {
        {"maker", QT_TRANSLATE_NOOP("QVlorAudioMainWindow", "By maker")},
        {"category", QT_TRANSLATE_NOOP("QVlorAudioMainWindow", "By category")},
        {"flat", QT_TRANSLATE_NOOP("QVlorAudioMainWindow", "Flat list")},
    };
    for (const auto& [key, text] : choices) {
        QAction* a = layoutMenu->addAction(trMain(text));
        a->setCheckable(true);
        a->setChecked(current == QLatin1String(key));
        a->setData(QString::fromLatin1(key));
        group->addAction(a);
    }
    QObject::connect(group, &QActionGroup::triggered, layoutMenu,
                     [](QAction* a) { QVlorPluginLibrary::instance()->setMenuLayout(a->data().toString()); });
}

} // namespace QVlorAudioPlugins
