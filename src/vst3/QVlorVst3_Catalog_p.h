#ifndef QVLORVST3_CATALOG_P_H
#define QVLORVST3_CATALOG_P_H

#include "QVlorVst3_Catalog.h"

namespace QVlorVst3 {

// The text of a catalog file read straight into its records: false for any
// text it does not take, which QJsonDocument then reads (or refuses). What
// it takes reads exactly as through QJsonDocument.
// The same records from a document QJsonDocument has read.
void CatalogFromJson(const QJsonObject& root, QList<CatalogBundle>* bundles, QStringList* disabledVendors);

bool ReadCatalogText(const char* begin, const char* end, QList<CatalogBundle>* bundles, QStringList* disabledVendors);

} // namespace QVlorVst3

#endif
