#include "QVlorPresetBar.h"

#include "QVlorPluginLibrary.h"
#include "QVlorPresets.h"

#include "QVlorDialogs.h"
#include "QVlorAudioPlugins.h"
#include "QVlorPluginsMenu.h"
#include "QVlorFxWidget.h"
#include "QVlorLv2_Widget.h"
#include "QVlorVst3_Widget.h"
#include "QVlorVst_Widget.h"

#include <QComboBox>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QSignalBlocker>
#include <QToolButton>

using QVlorAudioPlugins::PresetTarget;

class QVlorPresetBar::Data {
public:
    QVlorFxWidget* effect = nullptr;
    std::unique_ptr<PresetTarget> target;
    QString identity;
    // Every form of the product, so that the star is the menu's and the page's.
    QStringList productIdentities() const
    {
        QVlorAudioPlugins::MenuController* menu = QVlorAudioPlugins::UI::menuController();
        return menu ? menu->productIdentities(identity) : QStringList{identity};
    }
    QToolButton* star = nullptr;
    QComboBox* presets = nullptr;
    QToolButton* save = nullptr;
    QToolButton* remove = nullptr;
    QToolButton* more = nullptr;
    QLabel* note = nullptr;
    QString lastReport;

    QString current() const { return presets->currentData().toString(); }
    bool userChosen() const { return current().startsWith(QLatin1String("user:")); }
};

QVlorPresetBar* QVlorPresetBar::forEffect(QVlorFxWidget* effect, QWidget* parent)
{
    std::unique_ptr<PresetTarget> target;
    if (auto* w = qobject_cast<QVlorVst3::Widget*>(effect))
        target = w->createPresetTarget();
    else if (auto* w = qobject_cast<QVlorLv2::Widget*>(effect))
        target = w->createPresetTarget();
    else if (auto* w = qobject_cast<QVlorVst::Widget*>(effect))
        target = w->createPresetTarget();
    if (!target)
        return nullptr;
    const QString identity = target->identity();
    return new QVlorPresetBar(effect, std::move(target), identity, parent);
}

QVlorPresetBar::QVlorPresetBar(QVlorFxWidget* effect, std::unique_ptr<PresetTarget> target, const QString& identity,
                               QWidget* parent)
    : QWidget(parent), d(std::make_unique<Data>())
{
    setObjectName(QStringLiteral("presetBar"));
    d->effect = effect;
    d->target = std::move(target);
    d->identity = identity;
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(12, 8, 12, 4);
    d->star = new QToolButton(this);
    d->star->setObjectName(QStringLiteral("favouriteButton"));
    d->star->setCheckable(true);
    d->star->setAutoRaise(true);
    d->star->setIcon(QVlorPluginLibrary::starIcon());
    // Drawn as a star only: its name is the mark it sets.
    d->star->setAccessibleName(tr("Favourite"));
    QVlorPluginLibrary* library = QVlorPluginLibrary::instance();
    auto showStar = [this, library] {
        const bool on = library->isFavourite(d->productIdentities());
        const QSignalBlocker block(d->star);
        d->star->setChecked(on);
        d->star->setToolTip(on ? tr("A favourite: in the Plugins menu's Favourites") : tr("Make it a favourite"));
        d->star->setIcon(on ? QVlorPluginLibrary::starIcon() : QIcon(QVlorPluginLibrary::starIcon().pixmap(16, QIcon::Disabled)));
    };
    showStar();
    connect(d->star, &QToolButton::toggled, this,
            [this, library](bool on) { library->setFavourite(d->productIdentities(), on); });
    connect(library, &QVlorPluginLibrary::favouritesChanged, this, showStar);
    row->addWidget(d->star);
    auto* label = new QLabel(tr("Preset:"), this);
    row->addWidget(label);
    d->presets = new QComboBox(this);
    d->presets->setObjectName(QStringLiteral("presetCombo"));
    d->presets->setMinimumContentsLength(18);
    d->presets->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    label->setBuddy(d->presets);
    d->presets->setAccessibleName(tr("Preset"));
    row->addWidget(d->presets, 1);
    d->save = new QToolButton(this);
    d->save->setObjectName(QStringLiteral("presetSaveButton"));
    d->save->setText(tr("Save..."));
    d->remove = new QToolButton(this);
    d->remove->setObjectName(QStringLiteral("presetDeleteButton"));
    d->remove->setText(tr("Delete"));
    d->more = new QToolButton(this);
    d->more->setObjectName(QStringLiteral("presetMoreButton"));
    d->more->setText(tr("More"));
    d->more->setPopupMode(QToolButton::InstantPopup);
    auto* menu = new QMenu(d->more);
    menu->addAction(tr("Import..."), this, &QVlorPresetBar::importFile)->setObjectName(QStringLiteral("presetImport"));
    menu->addAction(tr("Export..."), this, &QVlorPresetBar::exportCurrent)->setObjectName(QStringLiteral("presetExport"));
    d->more->setMenu(menu);
    for (QToolButton* b : {d->save, d->remove, d->more})
        row->addWidget(b);
    d->note = new QLabel(this);
    d->note->setObjectName(QStringLiteral("presetNote"));
    d->note->setVisible(false);
    row->addWidget(d->note);
    connect(d->save, &QToolButton::clicked, this, &QVlorPresetBar::saveAs);
    connect(d->remove, &QToolButton::clicked, this, &QVlorPresetBar::removeCurrent);
    connect(d->presets, qOverload<int>(&QComboBox::activated), this, [this](int) { loadEntry(d->current()); });
    refill();
}

QVlorPresetBar::~QVlorPresetBar() = default;

void QVlorPresetBar::refill(const QString& current)
{
    const QSignalBlocker block(d->presets);
    d->presets->clear();
    d->presets->addItem(tr("Choose a preset"), QString());
    const QStringList user = QVlorAudioPlugins::UserPresetNames(d->target->productName());
    for (const QString& name : user)
        d->presets->addItem(name, QStringLiteral("user:") + name);
    const QList<QVlorAudioPlugins::FactoryPreset> factory = d->target->factoryPresets();
    if (!user.isEmpty() && !factory.isEmpty())
        d->presets->insertSeparator(d->presets->count());
    for (const QVlorAudioPlugins::FactoryPreset& f : factory)
        d->presets->addItem(tr("%1 (factory)").arg(f.name), QStringLiteral("factory:") + f.name);
    const int at = d->presets->findData(current);
    d->presets->setCurrentIndex(at >= 0 ? at : 0);
    d->remove->setEnabled(d->userChosen());
}

QStringList QVlorPresetBar::presetEntries() const
{
    QStringList entries;
    for (int i = 1; i < d->presets->count(); ++i)
        if (!d->presets->itemData(i).toString().isEmpty())
            entries << d->presets->itemData(i).toString();
    return entries;
}

QString QVlorPresetBar::lastReport() const { return d->lastReport; }

void QVlorPresetBar::report(const QString& text)
{
    d->lastReport = text;
    d->note->setText(text.size() > 60 ? text.left(57) + QStringLiteral("...") : text);
    d->note->setToolTip(text);
    d->note->setVisible(!text.isEmpty());
}

bool QVlorPresetBar::loadEntry(const QString& entry)
{
    const bool user = entry.startsWith(QLatin1String("user:"));
    const QString name = entry.mid(entry.indexOf(QLatin1Char(':')) + 1);
    QStringList unmatched;
    QString why;
    bool ok = false;
    if (user) {
        QVlorAudioPlugins::Preset preset;
        ok = QVlorAudioPlugins::LoadUserPreset(d->target->productName(), name, &preset, &why) &&
             QVlorAudioPlugins::ApplyPreset(preset, *d->target, &unmatched, &why);
    } else if (entry.startsWith(QLatin1String("factory:"))) {
        for (const QVlorAudioPlugins::FactoryPreset& f : d->target->factoryPresets())
            if (f.name == name)
                ok = d->target->loadFactoryPreset(f.id);
        if (!ok)
            why = tr("the plugin did not take the preset");
    }
    const int at = d->presets->findData(entry);
    if (at >= 0)
        d->presets->setCurrentIndex(at);
    d->remove->setEnabled(ok && user);
    if (!ok) {
        report(tr("Not loaded: %1").arg(why));
        return false;
    }
    report(unmatched.isEmpty() ? QString() : tr("Not in this form: %1").arg(unmatched.join(QStringLiteral(", "))));
    d->effect->refresh();
    emit presetLoaded(name);
    return true;
}

void QVlorPresetBar::saveAs()
{
    const QString suggested = d->userChosen() ? d->presets->currentText() : QString();
    const QString name = QVlorInputDialog::getText(this, tr("Save Preset"), tr("Name of the preset:"), suggested).trimmed();
    if (name.isEmpty())
        return;
    if (QVlorAudioPlugins::UserPresetNames(d->target->productName()).contains(name) &&
        QVlorMessageBox::question(this, tr("Save Preset"), tr("A preset named %1 exists. Replace it?").arg(name)) !=
            QMessageBox::Yes)
        return;
    QString why;
    if (!QVlorAudioPlugins::SaveUserPreset(QVlorAudioPlugins::CapturePreset(*d->target, name), &why)) {
        QVlorMessageBox::warning(this, tr("Save Preset"), tr("The preset could not be saved: %1").arg(why));
        return;
    }
    refill(QStringLiteral("user:") + name);
    report(QString());
}

void QVlorPresetBar::removeCurrent()
{
    if (!d->userChosen())
        return;
    const QString name = d->current().mid(5);
    if (QVlorMessageBox::question(this, tr("Delete Preset"), tr("Delete the preset %1?").arg(name)) != QMessageBox::Yes)
        return;
    QVlorAudioPlugins::RemoveUserPreset(d->target->productName(), name);
    refill();
}

void QVlorPresetBar::importFile()
{
    const QString file = QVlorFileDialog::getOpenFileName(this, tr("Import Preset"), QDir::homePath(),
                                                          tr("Presets (*.vlorpreset)"));
    if (file.isEmpty())
        return;
    QVlorAudioPlugins::Preset preset;
    QString why;
    if (!QVlorAudioPlugins::ReadPresetFile(file, &preset, &why)) {
        QVlorMessageBox::warning(this, tr("Import Preset"), tr("The file could not be imported: %1").arg(why));
        return;
    }
    // Kept for this product, whichever form it was saved from.
    preset.product = d->target->productName();
    if (!QVlorAudioPlugins::SaveUserPreset(preset, &why)) {
        QVlorMessageBox::warning(this, tr("Import Preset"), tr("The preset could not be kept: %1").arg(why));
        return;
    }
    refill(QStringLiteral("user:") + preset.name);
    loadEntry(QStringLiteral("user:") + preset.name);
}

void QVlorPresetBar::exportCurrent()
{
    // What the dialog holds now, under the chosen user preset's name or a new one.
    const QString name = d->userChosen() ? d->current().mid(5) : d->target->productName();
    const QString file = QVlorFileDialog::getSaveFileName(this, tr("Export Preset"),
                                                          QDir::home().filePath(name + QStringLiteral(".vlorpreset")),
                                                          tr("Presets (*.vlorpreset)"));
    if (file.isEmpty())
        return;
    QString why;
    if (!QVlorAudioPlugins::WritePresetFile(QVlorAudioPlugins::CapturePreset(*d->target, name), file, &why))
        QVlorMessageBox::warning(this, tr("Export Preset"), tr("The preset could not be exported: %1").arg(why));
}
