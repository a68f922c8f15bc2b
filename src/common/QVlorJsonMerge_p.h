#ifndef QVLORJSONMERGE_P_H
#define QVLORJSONMERGE_P_H
// Every process of the editor, and vlorfx beside it, keeps the same files in
// the data folder. A save merges what another process wrote since this one
// last read or wrote the file: record by record, against that last version
// (the base), so that a choice made elsewhere is never undone by a save here,
// and where both changed one record, this later save wins.

#include <QJsonValue>

// The three-way merge of one value. Objects merge key by key; arrays of
// records merge record by record, a record known by its identity (a pair's
// id, a class ID, a path, a file with its plugin id); arrays of strings merge
// as sets; anything else changed on both sides is mine. An undefined value
// stands for "not there".
QJsonValue MergeJson3(const QJsonValue& base, const QJsonValue& mine, const QJsonValue& theirs);

#endif
