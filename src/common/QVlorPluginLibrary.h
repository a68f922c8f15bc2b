#ifndef QVLORPLUGINLIBRARY_H
#define QVLORPLUGINLIBRARY_H
// What a person keeps of the plugins beyond the catalogs: favourites, the
// effects used last and their own choice of category. Each is kept by
// product: a product is named by the identities of all its forms, so that a
// mark made on one form holds for the others, through a switch of the form
// in use and a rescan. Kept in settings; the menus and the page hear changes.

#include "QVlorAudioPluginsExport.h"
#include <QHash>
#include <QIcon>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

class QVLOR_PLUGINS_EXPORT QVlorPluginLibrary : public QObject {
    Q_OBJECT
public:
    static constexpr int kRecentLimit = 10;

    static QVlorPluginLibrary* instance();
    // The star of a favourite, drawn for both themes and for a selected row.
    static QIcon starIcon();

    bool isFavourite(const QStringList& identities) const;
    void setFavourite(const QStringList& identities, bool on);
    // Each favourite product by its identities.
    QList<QStringList> favourites() const;

    // Most recent first, at most kRecentLimit products, each by its identities.
    QList<QStringList> recent() const;
    void noteUsed(const QStringList& identities);
    void clearRecent();

    // The category key the user chose for the product, or empty.
    QString categoryOverride(const QStringList& identities) const;
    // key empty: the product's own category again.
    void setCategoryOverride(const QStringList& identities, const QString& key);
    // Identity to category key, for a composition of many rows at once.
    QHash<QString, QString> categoryOverrides() const;

    // How the Plugins menu groups its entries: "maker" (the default), "category" or "flat".
    QString menuLayout() const;
    void setMenuLayout(const QString& layout);

    // Reads the settings again (another process, or a test, changed them).
    void reload();

signals:
    void favouritesChanged();
    void recentChanged();
    void categoriesChanged();
    void menuLayoutChanged();

private:
    QVlorPluginLibrary();
    void saveFavourites();
    void saveRecent();
    void saveOverrides();
    QList<QStringList> m_favourites;
    QList<QStringList> m_recent;
    QHash<QString, QString> m_overrides;
};

#endif
