// The page for the keyboard and the screen reader: names for what is only
// painted, keys for what only the mouse reached (a badge switches the form
// in use, so do Ctrl+1, Ctrl+2 and Ctrl+3), and the changes nobody asked for
// (a scan's progress and end, a check that failed) told without moving the focus.
#include "QVlorAccessible.h"
#include "QVlorPluginFormat.h"
#include "QVlorPluginsPrefs_p.h"
#include "QVlorVst3_Manager.h"
#include "QVlorVst_Manager.h"

#include <QAction>
#include <QApplication>
#include <QFocusEvent>
#include <QPointer>
#include <QTimer>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>

namespace {

const QVlorAudioPlugins::PluginFormat* const kSwitchable[] = {
    &QVlorAudioPlugins::kVst2Format, &QVlorAudioPlugins::kVst3Format, &QVlorAudioPlugins::kLv2Format};

const UnifiedFormatInfo& formOf(const UnifiedRow& row, int slot)
{
    return slot == 0 ? row.vst2 : slot == 1 ? row.vst3 : row.lv2;
}

bool formUnusable(const UnifiedFormatInfo& form)
{
    return !form.present || form.state == QLatin1String("failed") || form.state == QLatin1String("missing") ||
           form.state == QLatin1String("crashed");
}

// The page lends its focus to the tree, so that focusing the page lands
// where the work is; Qt then makes Tab from outside land there too, past the
// filter. A Tab from outside enters at the page's first control instead.
class TabEntry : public QObject {
public:
    TabEntry(QWidget* page, QWidget* tree, QList<QWidget*> chain) : QObject(page), m_page(page), m_chain(std::move(chain))
    {
        tree->installEventFilter(this);
        connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) { m_last = now; });
    }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() != QEvent::FocusIn || static_cast<QFocusEvent*>(event)->reason() != Qt::TabFocusReason ||
            !m_last || m_page->isAncestorOf(m_last))
            return false;
        for (QWidget* first : std::as_const(m_chain))
            if (first->isVisibleTo(m_page) && first->isEnabled() && (first->focusPolicy() & Qt::TabFocus)) {
                QTimer::singleShot(0, first, [first] { first->setFocus(Qt::TabFocusReason); });
                break;
            }
        return false;
    }

private:
    QWidget* m_page;
    QList<QWidget*> m_chain;
    QPointer<QWidget> m_last;
};

} // namespace

void QVlorPluginsPrefs::setUpAccess()
{
    Ui::QVlorPluginsPrefs& ui = d->ui;
    QTreeView* tree = ui.vstPluginsTreeView;
    tree->setAccessibleName(tr("Plugins"));
    tree->setAccessibleDescription(tr("Space switches a plugin on or off; Ctrl+1, Ctrl+2 and Ctrl+3 use its VST2, "
                                      "VST3 or LV2 form; the Menu key or Shift+F10 opens its menu"));
    ui.filterBox->lineEdit()->setAccessibleName(tr("Filter plugins"));
    // On Linux a reader names a list box by its label, not by its own name:
    // labels the eye does not need (the items say it) are there for it.
    for (const auto& [combo, name] : {std::pair<QComboBox*, QString>{ui.filterBox->comboBox(), tr("Show plugins")},
                                      {ui.groupByCombo, tr("Group plugins")}}) {
        combo->setAccessibleName(name);
        auto* label = new QLabel(name, combo->parentWidget()); // a reader looks among the box's siblings
        label->setBuddy(combo);
        label->hide();
    }
    ui.scanProgressBar->setAccessibleName(tr("Progress"));
    ui.skipCheckButton->setAccessibleName(tr("Skip the slow check"));
    // The Tab chain as the page reads, widget by widget (the form names the
    // filter's box, which lends its focus to its field); where Tab enters it
    // from outside is TabEntry's.
    const QList<QWidget*> chain = {ui.cbEnableAudioUnitSupport, ui.cbEnableVSTSupport, ui.filterBox->lineEdit(),
                                   ui.filterBox->comboBox(), ui.groupByCombo, tree, ui.managePathsBtn,
                                   ui.skipCheckButton, ui.scanCancelButton, ui.updateButton};
    for (int i = 1; i < chain.size(); ++i)
        QWidget::setTabOrder(chain[i - 1], chain[i]);
    new TabEntry(this, tree, chain);
    for (int slot = 0; slot < 3; ++slot) {
        auto* action = new QAction(tr("Use %1").arg(QLatin1String(kSwitchable[slot]->badge)), tree);
        action->setObjectName(QStringLiteral("use_%1").arg(QLatin1String(kSwitchable[slot]->token)));
        action->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(Qt::Key_1 + slot)));
        action->setShortcutContext(Qt::WidgetShortcut);
        action->setCheckable(true);
        tree->addAction(action);
        d->formatActions << action;
        connect(action, &QAction::triggered, this, [this, slot] {
            const QModelIndex current = d->ui.vstPluginsTreeView->currentIndex();
            onActiveFormatClicked(current.siblingAtColumn(0), QLatin1String(kSwitchable[slot]->token));
            updateFormatActions();
        });
    }
    connect(tree->selectionModel(), &QItemSelectionModel::currentChanged, this, &QVlorPluginsPrefs::updateFormatActions);
    // A plugin that failed again is news even where the rows never showed
    // it checking: it is forgotten as told, and the next rows tell it.
    if (QVlorVst3::Manager* m3 = vst3())
        connect(m3, &QVlorVst3::Manager::pluginFailed, this, [this](const QVlorVst3::CatalogClass& c) {
            d->failedSeen.remove(QStringLiteral("vst3|") + c.cid());
        });
    if (QVlorVst::Manager* m2 = vst2())
        connect(m2, &QVlorVst::Manager::pluginFailed, this, [this](const QVlorVst::Plugin& p, const QVlorVst::Path&) {
            d->failedSeen.remove(QStringLiteral("vst2|") +
                                 QVlorAudioPlugins::Vst2RowIdentity(p.uniqueId(), p.hash(), p.pluginId()));
        });
    connect(&d->model, &QAbstractItemModel::modelReset, this, [this] {
        updateFormatActions();
        announceFailedChecks();
    });
}

// The forms the current row may switch to; the one in use is checked.
void QVlorPluginsPrefs::updateFormatActions()
{
    UnifiedRow row;
    const bool isRow =
        ClassifyUnifiedPluginsIndex(d->ui.vstPluginsTreeView->currentIndex().siblingAtColumn(0), &row) == UpmIndexRow;
    const bool family = isRow && !row.pairId.isEmpty() && !UpmRowBusy(row);
    for (int slot = 0; slot < d->formatActions.size(); ++slot) {
        const UnifiedFormatInfo& form = formOf(row, slot);
        QAction* action = d->formatActions[slot];
        action->setChecked(isRow && form.present && form.active);
        action->setEnabled(family && !form.active && !formUnusable(form));
        action->setVisible(isRow && form.present);
    }
}

void QVlorPluginsPrefs::addFormatItems(QMenu* menu, const UnifiedRow* single)
{
    if (!single || single->pairId.isEmpty())
        return;
    updateFormatActions();
    QList<QAction*> shown;
    for (QAction* action : std::as_const(d->formatActions))
        if (action->isVisible())
            shown << action;
    // A product of one form has nothing to switch to.
    if (shown.size() < 2)
        return;
    menu->addSeparator();
    menu->addActions(shown);
}

// A check that failed since the last look, told once; failures already there
// when the page opened are in the rows' words, not news.
void QVlorPluginsPrefs::announceFailedChecks()
{
    QStringList news;
    QSet<QString> failed;
    for (const UnifiedRow& row : std::as_const(d->rows))
        for (int slot = 0; slot < 3; ++slot) {
            const UnifiedFormatInfo& form = formOf(row, slot);
            if (!form.present || form.state != QLatin1String("failed"))
                continue;
            const QString key = QLatin1String(kSwitchable[slot]->token) + QLatin1Char('|') + form.identity;
            failed.insert(key);
            if (d->failuresKnown && !d->failedSeen.contains(key))
                news << (form.error.isEmpty() ? tr("%1 (%2) failed its check")
                                                    .arg(row.name, QLatin1String(kSwitchable[slot]->badge))
                                              : tr("%1 (%2) failed its check: %3")
                                                    .arg(row.name, QLatin1String(kSwitchable[slot]->badge), form.error));
        }
    d->failedSeen = failed;
    d->failuresKnown = d->failuresKnown || !d->rows.isEmpty();
    if (!news.isEmpty())
        QVlorAccessible::announce(this, news.join(QStringLiteral("; ")), QVlorAccessible::Alert);
}

// At each tenth, so that a reader keeps up: a scan of a thousand plugins
// would otherwise say a thousand numbers.
void QVlorPluginsPrefs::announceScan(int value, int total, bool ended)
{
    if (ended) {
        QVlorAccessible::announce(this, tr("Plugin scan finished"));
        return;
    }
    const int tenth = total > 0 ? std::clamp(value * 10 / total, 0, 10) : 0;
    QVlorAccessible::announce(this, tr("Scanning plugins: %1 %").arg(tenth * 10));
}

// Where the keyboard is, by what it stands on: a product by the identities of
// its forms (which a switch of form keeps), anything else by its group's key.
QString QVlorPluginsPrefs::Data::currentKey(const QModelIndex& index) const
{
    UnifiedRow row;
    if (!index.isValid())
        return QString();
    if (ClassifyUnifiedPluginsIndex(index, &row) == UpmIndexRow) {
        const QStringList ids = UpmRowIdentities(row);
        return QStringLiteral("r|") + (ids.isEmpty() ? row.newPath + QLatin1Char('|') + row.name : ids.join(QLatin1Char('|')));
    }
    return expansionKey(index);
}

// A rebuild resets the tree; the keyboard's place comes back with it, or the
// reader would start again from the top after each switch.
void QVlorPluginsPrefs::Data::restoreCurrent(QTreeView* tree, const QString& key, const QModelIndex& parent)
{
    if (key.isEmpty())
        return;
    const QAbstractItemModel* m = tree->model();
    for (int i = 0; i < m->rowCount(parent); ++i) {
        const QModelIndex child = m->index(i, 0, parent);
        if (currentKey(child) == key) {
            tree->selectionModel()->setCurrentIndex(child, QItemSelectionModel::ClearAndSelect |
                                                               QItemSelectionModel::Rows);
            tree->scrollTo(child);
            return;
        }
        restoreCurrent(tree, key, child);
        if (tree->currentIndex().isValid())
            return;
    }
}
