// What a screen reader says of a row: the badges, the check box and the
// state icon are only painted, so each is put in words here.
#include "QVlorUnifiedRows.h"

#include "QVlorPluginFormat.h"

#include <QCoreApplication>

namespace {

QString tr(const char* text) { return QCoreApplication::translate("QVlorUnifiedPluginsModel", text); }

QString spokenForm(const UnifiedFormatInfo& f, const QString& badge)
{
    QString text = badge + (f.is32Bit ? tr(" 32-bit") : QString());
    if (f.active)
        text += tr(" in use");
    if (f.state == QLatin1String("failed"))
        text += f.error.isEmpty() ? tr(" failed") : tr(" failed: %1").arg(f.error);
    else if (f.state == QLatin1String("crashed"))
        text += tr(" crashed");
    else if (f.state == QLatin1String("missing"))
        text += tr(" missing");
    else if (f.state == QLatin1String("verifying"))
        text += tr(" being checked");
    return text;
}

} // namespace

QString UpmSpokenFormats(const UnifiedRow& row)
{
    QStringList forms;
    // The one in use first: it is what the row is.
    const QList<QPair<const UnifiedFormatInfo*, const QVlorAudioPlugins::PluginFormat*>> all = {
        {&row.vst3, &QVlorAudioPlugins::kVst3Format},
        {&row.vst2, &QVlorAudioPlugins::kVst2Format},
        {&row.lv2, &QVlorAudioPlugins::kLv2Format}};
    for (bool active : {true, false})
        for (const auto& form : all)
            if (form.first->present && form.first->active == active)
                forms << spokenForm(*form.first, QLatin1String(form.second->badge));
    if (forms.isEmpty())
        return QString();
    return (forms.size() == 1 ? tr("Format: %1") : tr("Formats: %1")).arg(forms.join(QStringLiteral(", ")));
}

QString UpmSpokenRow(const UnifiedRow& row, bool favourite)
{
    QStringList parts;
    if (!row.vendor.isEmpty())
        parts << tr("by %1").arg(row.vendor);
    if (row.isShellHeader)
        parts << tr("a plugin file holding several plugins");
    const QString formats = UpmSpokenFormats(row);
    if (!formats.isEmpty())
        parts << formats;
    if (row.newSection != UpmNewSectionNone)
        parts << (row.isNewPathHeader ? tr("new plugins in this folder") : tr("new, not added yet"));
    else if (!row.isShellHeader)
        parts << (row.inUse() ? tr("on") : tr("off"));
    if (row.isNew && row.newSection == UpmNewSectionNone)
        parts << tr("new");
    if (favourite)
        parts << tr("favourite");
    return parts.join(QStringLiteral("; "));
}
