#ifndef QVLORAUDIOPLUGINSEXPORT_H
#define QVLORAUDIOPLUGINSEXPORT_H
// The library is built with hidden symbols: only what carries this mark is
// reachable from an editor, so its own helpers can change without breaking
// a program linked against an earlier build.
#define QVLOR_PLUGINS_EXPORT __attribute__((visibility("default")))
// A marked class's nested classes would be reachable with it: its private
// data is kept in.
#define QVLOR_PLUGINS_HIDDEN __attribute__((visibility("hidden")))

#endif
