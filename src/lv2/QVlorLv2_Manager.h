#ifndef QVLORLV2_MANAGER_H
#define QVLORLV2_MANAGER_H
// Owns the live LV2 catalog. It lives on a thread of its own: folder walks
// and the children that check bundles never block the user interface. Its
// calls, made from another thread, post themselves there and return at
// once, and report through signals; readers take the published copy.

#include "QVlorAudioPluginsExport.h"
#include "QVlorLv2_Catalog.h"
#include "QVlorRunningCheck.h"

#include <QList>
#include <QObject>
#include <QStringList>

namespace QVlorLv2 {

extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_LV2_CUSTOM_PATHS;   // "vloraudio.plugins.lv2_custom_paths"
extern QVLOR_PLUGINS_EXPORT const char* const K_SETTING_LV2_DISABLED_PATHS; // "vloraudio.plugins.lv2_disabled_paths"
struct BundleCheck;

class QVLOR_PLUGINS_EXPORT Manager : public QObject {
    Q_OBJECT
public:
    Manager(QObject* parent, const QString& catalogPath);
    ~Manager() override;

    // Any thread.
    Catalog catalogCopy() const;
    bool isScanning() const;
    QList<QVlorRunningCheck> runningChecks() const;
    // Ends the child checking the bundle of that name now; its plugins are
    // checked again at the next scan. Any thread.
    bool skipCheck(const QString& name);
    // LV2_PATH when set, else the standard folders that exist or may.
    static QStringList SystemPaths();
    // The folders a scan walks: the system's and the user's, less those switched off.
    QStringList searchPaths() const;
    // The same, from the settings alone (no test's override).
    static QStringList ConfiguredPaths();
    // Whether a scan walks the folders ("vloraudio.plugins.lv2_scan", on by default).
    static bool isScanEnabled();
    static void setScanEnabled(bool on);
    // The format's switch ("vloraudio.plugins.lv2_enabled", on by default).
    static bool isFormatEnabled();
    static void setFormatEnabled(bool on);
    void setSearchPathsForTesting(const QStringList& paths);
    QString saveError() const;

signals:
    void beginScan();
    void endScan(bool hasNewPlugins);
    void progressScan(int n, int total);
    // Names the bundle a child is about to check, so that one that hangs is known.
    void progressPlugin(const QString& name);
    void catalogChanged();
    void saveFailed(const QString& error);
    void pluginEnabled(const QString& uri);
    void pluginDisabled(const QString& uri);
    void newPluginsFound(const QList<QString>& names);

public slots:
    // A scan: new and changed bundles are checked in children, unchanged ones passed by.
    void searchPlugins(bool notifyNew = true);
    // The same, after every bundle's stamp is forgotten: everything is checked again.
    void recheckAll();
    // That plugin checked again at once, alone while its bundle is unchanged;
    // given a bundle's path, or a plugin of a changed bundle, the whole bundle.
    void recheckPlugin(const QString& uriOrBundle);
    void setPluginEnabled(const QString& uri, bool on);
    // Every plugin of that maker switched off or on again, as in the other formats.
    void setVendorEnabled(const QString& maker, bool on);
    // What the catalog knew of the plugin forgotten: switched on again, and its bundle checked again.
    void resetPlugin(const QString& uri);
    // A plugin that took the editor down while it opened: checked again at the next scan.
    void markCrashed(const QString& uri);
    void cancel();
    void aboutToQuit();
    bool saveCatalog();

private:
    struct QVLOR_PLUGINS_HIDDEN Work;
    void checkBundles(const QList<Work>& work, QList<QString>* newNames);
    void takeInCheck(const Work& work, bool ran, const BundleCheck& check, QList<QString>* newNames);

    class QVLOR_PLUGINS_HIDDEN Data;
    Data* d;
};

} // namespace QVlorLv2

#endif
