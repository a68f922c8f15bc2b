#ifndef FXBLAME_P_H
#define FXBLAME_P_H
// Which plugin took the editor's process down: while a call into a plugin
// runs in this process, its thread names the plugin, and a fatal signal on
// that thread writes the name where the next start reads it (see
// VLORFX_SetCrashRecordPath), before the signal goes on as it would have.

namespace vlorfx {

class InPlugin {
public:
    // record: "format|id|name", alive for the whole call; null names none.
    explicit InPlugin(const char* record);
    ~InPlugin();
    InPlugin(const InPlugin&) = delete;
    InPlugin& operator=(const InPlugin&) = delete;

private:
    const char* m_outer;
};

} // namespace vlorfx

#endif
