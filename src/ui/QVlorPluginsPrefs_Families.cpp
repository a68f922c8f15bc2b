// The row menu's items for families of several formats: one form split off
// ("Split Off"), an LV2 plugin joined to a product ("Join"), and a shell's
// children played in LV2 ("Use LV2 in all children"); and where a product
// runs ("Run in its own process").
#include "QVlorPluginFormat.h"
#include "QVlorPluginLibrary.h"
#include "QVlorPluginsPrefs_p.h"
#include "QVlorRemoteFault_p.h"
#include "QVlorVst3_Manager.h"

#include <QAction>
#include <QMenu>

#include <algorithm>

namespace {

const UnifiedFormatInfo& formOf(const UnifiedRow& row, const QString& format)
{
    return format == QVlorAudioPlugins::Vst3Token() ? row.vst3 : format == QVlorAudioPlugins::Lv2Token() ? row.lv2 : row.vst2;
}

// A row of an LV2 plugin that is in no family of two forms, and a row of the
// older formats without one: the two an LV2 join may take.
bool lv2Alone(const UnifiedRow& r)
{
    return r.lv2.present && !r.vst2.present && !r.vst3.present && r.newSection == UpmNewSectionNone;
}
bool withoutLv2(const UnifiedRow& r)
{
    return !r.lv2.present && (r.vst2.present || r.vst3.present) && r.newSection == UpmNewSectionNone &&
           !r.isShellHeader;
}

} // namespace

FamilyMenuItems QVlorPluginsPrefs::addFamilyItems(QMenu* menu, const QList<UnifiedRow>& rows,
                                                  const QList<QVlorPluginPairs::Entry>& entries) const
{
    FamilyMenuItems items;
    const UnifiedRow* single = rows.size() == 1 ? &rows.first() : nullptr;
    const QVlorPluginPairs::Entry* family = single ? UpmPairEntry(single->pairId, entries) : nullptr;
    // Of three forms, each may leave and the other two stay together.
    if (family && family->formCount() == 3) {
        items.family = *single;
        QMenu* off = menu->addMenu(tr("Split Off"));
        for (const QVlorAudioPlugins::PluginFormat* f : QVlorAudioPlugins::PluginFormats()) {
            QAction* a = off->addAction(QLatin1String(f->badge));
            a->setData(QLatin1String(f->token));
            items.splitOff << a;
        }
    }
    if (rows.size() == 2) {
        const int lone = lv2Alone(rows[0]) ? 0 : lv2Alone(rows[1]) ? 1 : -1;
        if (lone >= 0 && withoutLv2(rows[1 - lone])) {
            items.lv2Row = rows[lone];
            items.other = rows[1 - lone];
            items.join = menu->addAction(tr("Join"));
        }
    }
    return items;
}

// Shown checked while the plugin runs apart; when every plugin does, the
// choice is not the row's to make.
void QVlorPluginsPrefs::addRunsApartItem(QMenu* menu, const UnifiedRow* single, FamilyMenuItems* items)
{
    if (!single || single->newSection != UpmNewSectionNone)
        return;
    if (single->vst3.present)
        items->apartForms << qMakePair(QString(QVlorAudioPlugins::Vst3Token()), single->vst3.identity);
    if (single->lv2.present)
        items->apartForms << qMakePair(QString(QVlorAudioPlugins::Lv2Token()), single->lv2.identity);
    if (items->apartForms.isEmpty())
        return;
    const bool every = QVlorAudioPlugins::EveryPluginRunsApart();
    bool apart = every;
    for (const auto& form : std::as_const(items->apartForms))
        apart = apart || QVlorAudioPlugins::RunsApartByItsMarks(form.first, form.second);
    menu->addSeparator();
    items->runsApart = menu->addAction(tr("Run in its own process"));
    items->runsApart->setCheckable(true);
    items->runsApart->setChecked(apart);
    items->runsApart->setEnabled(!every);
}

void QVlorPluginsPrefs::addLv2ChildrenItem(QMenu* menu, const QList<UnifiedRow>& shellChildren, FamilyMenuItems* items)
{
    if (std::none_of(shellChildren.begin(), shellChildren.end(),
                     [](const UnifiedRow& c) { return !c.pairId.isEmpty() && c.lv2.present; }))
        return;
    items->shellChildren = shellChildren;
    items->lv2Children = menu->addAction(tr("Use LV2 in all children"));
}

bool QVlorPluginsPrefs::actOnFamilyItem(const FamilyMenuItems& items, QAction* chosen)
{
    if (chosen == items.favourite) {
        QVlorPluginLibrary::instance()->setFavourite(items.identities, chosen->isChecked());
        return true;
    }
    if (items.categories.contains(chosen)) {
        QVlorPluginLibrary::instance()->setCategoryOverride(items.identities, chosen->data().toString());
        return true;
    }
    if (chosen && chosen == items.runsApart) {
        // Every form of the product alike, so that a switch of format keeps it.
        for (const auto& form : items.apartForms)
            QVlorAudioPlugins::SetRunsApart(form.first, form.second, chosen->isChecked());
        d->ui.vstPluginsTreeView->viewport()->update();
        return true;
    }
    // The VST3 manager keeps the families; the menu gives no null choice.
    QVlorVst3::Manager* m3 = vst3();
    if (!m3)
        return false;
    if (items.splitOff.contains(chosen)) {
        m3->splitForm(items.family.pairId, chosen->data().toString());
        return true;
    }
    if (chosen == items.join) {
        const UnifiedRow& other = items.other;
        // The form the user uses plays: the LV2 plugin when only it is on.
        const QString active = items.lv2Row.lv2.enabled && !other.inUse() ? QVlorAudioPlugins::Lv2Token()
                               : other.vst3.active                          ? QVlorAudioPlugins::Vst3Token()
                                                                            : QVlorAudioPlugins::Vst2Token();
        m3->joinLv2Form(items.lv2Row.lv2.identity, other.pairId,
                        other.vst2.present ? Data::ParseVst2UniqueId(other.vst2.identity) : 0,
                        other.vst3.present ? other.vst3.identity : QString(), active);
        return true;
    }
    if (chosen == items.lv2Children) {
        for (const UnifiedRow& child : items.shellChildren)
            if (!child.pairId.isEmpty() && child.lv2.present)
                m3->setPairActiveFormat(child.pairId, QVlorAudioPlugins::Lv2Token());
        return true;
    }
    return false;
}

QString QVlorPluginsPrefs::keptFormat(const UnifiedRow& row)
{
    for (const QString f : {QVlorAudioPlugins::Vst3Token(), QVlorAudioPlugins::Lv2Token(), QVlorAudioPlugins::Vst2Token()})
        if (formOf(row, f).active)
            return f;
    return QVlorAudioPlugins::Vst2Token();
}
