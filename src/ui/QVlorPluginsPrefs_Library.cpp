// The page's part of the user's own marks: the tree grouped by maker or by
// category, the star of a favourite, and the row menu's "Favourite" and
// "Category", which hold for every form of a product.
#include "QVlorPluginCategory.h"
#include "QVlorPluginLibrary.h"
#include "QVlorPluginsPrefs_p.h"
#include "QVlorSetting.h"

#include <QAction>
#include <QActionGroup>
#include <QMenu>

namespace {

const char* const K_SETTING_PAGE_GROUPING = "vloraudio.plugins.page_grouping"; // "maker" or "category"

} // namespace

void QVlorPluginsPrefs::setUpLibrary()
{
    QComboBox* combo = d->ui.groupByCombo;
    combo->addItem(tr("By maker"), QStringLiteral("maker"));
    combo->addItem(tr("By category"), QStringLiteral("category"));
    const bool byCategory =
        QVlorSetting::global().getString(QLatin1String(K_SETTING_PAGE_GROUPING)) == QLatin1String("category");
    combo->setCurrentIndex(byCategory ? 1 : 0);
    d->model.setGroupedByCategory(byCategory);
    connect(combo, qOverload<int>(&QComboBox::currentIndexChanged), this, [this](int index) {
        const QString grouping = d->ui.groupByCombo->itemData(index).toString();
        QVlorSetting::global().change(QLatin1String(K_SETTING_PAGE_GROUPING), grouping);
        d->model.setGroupedByCategory(grouping == QLatin1String("category"));
        rebuildRowsNow();
    });
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    // A category is part of the rows; a star is only drawn, unless the
    // status filter shows favourites alone.
    connect(library, &QVlorPluginLibrary::categoriesChanged, this, &QVlorPluginsPrefs::rebuildRows);
    connect(library, &QVlorPluginLibrary::favouritesChanged, this, [this] {
        if (d->proxy.statusFilter() == ProxyFilter::StatusFavourite)
            d->proxy.refilter();
        d->ui.vstPluginsTreeView->viewport()->update();
    });
}

void QVlorPluginsPrefs::addLibraryItems(QMenu* menu, const UnifiedRow* single, FamilyMenuItems* items)
{
    if (!single || single->newSection != UpmNewSectionNone || single->isShellHeader)
        return;
    items->identities = UpmRowIdentities(*single);
    if (items->identities.isEmpty())
        return;
    menu->addSeparator();
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    items->favourite = menu->addAction(tr("Favourite"));
    items->favourite->setObjectName(QStringLiteral("favouriteAction"));
    items->favourite->setCheckable(true);
    items->favourite->setChecked(library->isFavourite(items->identities));
    items->favourite->setIcon(QVlorPluginLibrary::starIcon());
    QMenu* categories = menu->addMenu(tr("Category"));
    categories->setObjectName(QStringLiteral("categoryMenu"));
    auto* group = new QActionGroup(categories);
    const QString chosen = library->categoryOverride(items->identities);
    QAction* own = categories->addAction(tr("As the plugin says"));
    own->setData(QString());
    own->setCheckable(true);
    own->setChecked(chosen.isEmpty());
    group->addAction(own);
    items->categories << own;
    categories->addSeparator();
    for (QVlorAudioPlugins::PluginCategory c : QVlorAudioPlugins::PluginCategories()) {
        QAction* a = categories->addAction(QVlorAudioPlugins::CategoryLabel(c));
        a->setData(QVlorAudioPlugins::CategoryKey(c));
        a->setCheckable(true);
        // The product's category shows as checked; the user's own choice also as the one kept.
        a->setChecked(!chosen.isEmpty() && chosen == QVlorAudioPlugins::CategoryKey(c));
        if (chosen.isEmpty() && single->category == QVlorAudioPlugins::CategoryKey(c))
            a->setText(tr("%1 (as the plugin says)").arg(a->text()));
        group->addAction(a);
        items->categories << a;
    }
}
