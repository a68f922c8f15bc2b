#pragma once
// What the apply and probe commands share of LV2.

#include <QJsonObject>
#include <QString>

#include <string>
#include <utility>
#include <vector>

namespace vlorfx {
// The URI of the LV2 plugin an argument names: a URI as it stands, or the
// name (any case) or the bundle folder of one plugin of the LV2 catalog.
std::string Lv2UriOf(const std::string& arg);
// The host program's check of one plugin (see QVlorLv2::CheckPlugin).
bool CheckLv2(const char* uri, QJsonObject* report, QString* error);
// vlorfx probe --lv2 with the arguments behind it.
int probeLv2(int argc, char** argv);
// Every parameter's value of the effect, with the given ones set (plain
// values, clamped to their ranges), as "[v0,v1,...]"; false with why.
bool Lv2Params(const char* uri, const std::vector<std::pair<int, float>>& given, std::string* values,
               std::string* error);
} // namespace vlorfx
