// Resolution: from a file and an id to a record that can be trusted. Nothing of
// the plugin runs in this process here: it is checked and described by the
// host program, so that a crash costs a child.
#include "vsteffect_p.h"
#include "../hostprogram_p.h"
#include "vlorvst_protocol.h"

#include "blsavetarget.h"

#include "blcore.h"
#include "bldebug.h"
#include "bldom.h"
#include "blio.h"
#include "blnotify.h"
#include "blsettings.h"
#include "blutils.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <csignal>
#include <cstring>
#include <map>
#include <mutex>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

constexpr int kDirSize = 1024;

// Why the last resolution on this thread failed: set where it first fails
// (what follows a failure only repeats it), read by the catalog to show the user.
thread_local char t_failure[160] = "";

__attribute__((format(printf, 1, 2))) void setFailure(const char* format, ...)
{
    if (t_failure[0])
        return;
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(t_failure, sizeof(t_failure), format, ap);
    va_end(ap);
}

int spawnTimeoutSeconds()
{
    const int ms = BLCORE_SetSpawnTimeout(0);
    BLCORE_SetSpawnTimeout(ms);
    return ms / 1000;
}

bool isShell(const _VSTEFFECT* e) { return e->category == VSTEFFECT_CATEGORY_SHELL; }

// The three walks through a record and, for a shell, the effects of its
// entries. unsupportedToo is the one difference between them.
template <typename Test> _VSTEFFECT* walk(_VSTEFFECT* e, bool unsupportedToo, Test test)
{
    if (!e || (!unsupportedToo && !e->supported))
        return nullptr;
    if (isShell(e)) {
        for (int i = 0; i < e->u.shell.numShellEntries; ++i)
            if (_VSTEFFECT* m = walk(e->u.shell.shellEntries[i].effect, unsupportedToo, test))
                return m;
        return nullptr;
    }
    return test(e) ? e : nullptr;
}

_VSTEFFECT* _MatchPlugin(_VSTEFFECT* e, const char* filename, int32_t id)
{
    return walk(e, false, [&](_VSTEFFECT* x) {
        return x->filename && std::strcmp(x->filename, filename) == 0 && (x->pluginid == 0 || x->uniqueId == id);
    });
}

_VSTEFFECT* _MatchEffectByHash(_VSTEFFECT* e, const char* hash)
{
    return walk(e, false, [&](_VSTEFFECT* x) { return std::strcmp(x->hash, hash) == 0; });
}

template <typename Visit> _VSTEFFECT* eachRecord(Visit visit)
{
    _LockEffectList();
    _VSTEFFECT* found = nullptr;
    for (_VSTEFFECT* e = _FirstEffectRecord(); e && !found; e = e->next)
        found = visit(e);
    _UnlockEffectList();
    return found;
}

// The children of a shell are records of their own with the same file, so
// a file alone does not name a record: the id asked for must be the record's
// too. Id 0 asks for the file's only plugin, which after its first refresh
// carries its unique id: failing a record of id 0, any effect of the file
// is that plugin.
_VSTEFFECT* _SearchPlugin(const char* filename, int32_t id)
{
    auto sameFile = [&](const _VSTEFFECT* e) { return e->supported && e->filename && std::strcmp(e->filename, filename) == 0; };
    _VSTEFFECT* found = eachRecord([&](_VSTEFFECT* e) -> _VSTEFFECT* {
        if (!e->supported)
            return nullptr;
        if (!isShell(e))
            return sameFile(e) && (e->pluginid == id || (id != 0 && e->uniqueId == id)) ? e : nullptr;
        if (sameFile(e) && id == 0)
            return e;
        return _MatchPlugin(e, filename, id);
    });
    if (found || id != 0)
        return found;
    return eachRecord([&](_VSTEFFECT* e) -> _VSTEFFECT* { return !isShell(e) && sameFile(e) ? e : nullptr; });
}

bool findHost()
{
    if (_HostPathsOk())
        return true;
    char dir[kDirSize];
    if (BLUTILS_GetHelpersDir(dir, kDirSize) && AUDIOVST_SetVlorVstPath(dir))
        return true;
    const std::string installed = HostProgramsBesideLibrary();
    if (!installed.empty() && AUDIOVST_SetVlorVstPath(installed.c_str()))
        return true;
    if (BLUTILS_GetResourceDir(dir, kDirSize) && AUDIOVST_SetVlorVstPath(dir))
        return true;
    if (BLUTILS_GetExecutableDir(dir, kDirSize) && AUDIOVST_SetVlorVstPath(dir))
        return true;
    const char* path = std::getenv("PATH");
    if (path) {
        // Every element but the one behind the last ':'.
        std::string rest = path;
        size_t colon;
        while ((colon = rest.find(':')) != std::string::npos) {
            const std::string element = rest.substr(0, colon);
            rest.erase(0, colon + 1);
            if (!element.empty() && AUDIOVST_SetVlorVstPath(element.c_str()))
                return true;
        }
    }
    return false;
}

bool settingsBelongTo(const _VSTEFFECT* e)
{
    char g[VST_SETTINGS_GROUP_SIZE];
    _SettingsGroup(e->hash, g);
    char stored[4096];
    return BLSETTINGS_GetStringEx(0, stored, sizeof(stored), "%s.%s=[]", g, "filename") &&
           std::strcmp(stored, e->filename) == 0;
}

void writeDescriptor(const _VSTEFFECT* e)
{
    char path[kDirSize];
    if (!_GetVSTXMLPath(e->hash, path, sizeof(path)))
        return;
    std::string target;
    std::string why;
    if (!SaveTarget(path, &target, &why)) {
        BLDEBUG_Error(-1, "VSTLOAD: cannot write the descriptor %s: %s", path, why.c_str());
        return;
    }
    // Written beside and moved over, so a reader never sees half a file.
    const std::string tmp = target + ".tmp";
    FILE* f = BLIO_Open(tmp.c_str(), "w");
    if (!f)
        return;
    const bool ok = _WriteVSTXML(e, f) && std::fflush(f) == 0;
    BLIO_Close(f);
    if (!ok || std::rename(tmp.c_str(), target.c_str()) != 0)
        std::remove(tmp.c_str());
}

// The host asked to check a plugin, by architecture (0: 64-bit, 1: 32-bit), or
// null. The second is asked when the first could not load the plugin; when
// both are one program its answer could only repeat the first.
const char* checkHost(int index)
{
    const char* host = AUDIOVST_GetVlorVstPath(index);
    if (host && index == 1 && AUDIOVST_GetVlorVstPath(0) && std::strcmp(host, AUDIOVST_GetVlorVstPath(0)) == 0)
        return nullptr;
    return host;
}

// What a check child said, and how it ended.
struct CheckOutcome {
    int status = -1;
    bool timedOut = false;
    bool aborted = false; // the application quits, or the user cancelled
    bool skipped = false; // the user skipped the plugin
    int timeoutS = 0;     // what it was given
    int64_t stamp = 0;    // of the file when its check began
};

std::mutex g_aheadLock;
std::map<std::string, CheckOutcome> g_ahead; // by host, file and id
std::atomic<int> g_checkTimeoutMs{30000};

std::string aheadKey(const char* host, const char* filename, int32_t id)
{
    return std::string(host) + '\n' + filename + '\n' + std::to_string(id);
}

// One check child: its own process group (what the plugin forks ends with
// it), the timeout, and stop polled while it runs.
CheckOutcome runCheckChild(const char* host, const char* filename, int32_t id, int (*stop)(void*), void* user)
{
    CheckOutcome out;
    out.stamp = BLIO_GetFileTimeStamp(filename, 2);
    out.timeoutS = g_checkTimeoutMs.load() / 1000;
    const std::string idText = std::to_string(id);
    char* argv[] = {const_cast<char*>(host), const_cast<char*>("--check"), const_cast<char*>(filename),
                    const_cast<char*>("--id"), const_cast<char*>(idText.c_str()), nullptr};
    posix_spawnattr_t attr;
    posix_spawnattr_init(&attr);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attr, 0);
    // As every child of the host: nothing to read on its input.
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, host, &actions, &attr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (error != 0) {
        out.status = BLCORE_SPAWN_FAILED;
        return out;
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(g_checkTimeoutMs.load());
    int wstatus = 0;
    for (;;) {
        const pid_t done = waitpid(pid, &wstatus, WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR))
            break;
        const int why = stop ? stop(user) : 0;
        const bool late = std::chrono::steady_clock::now() >= deadline;
        if (why != 0 || late) {
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
            while (waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
            }
            out.timedOut = why == 0;
            out.skipped = why == 1;
            out.aborted = why == 2;
            out.status = BLCORE_SPAWN_SIGNALED(SIGKILL);
            return out;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // What the plugin left running in its group goes with it.
    kill(-pid, SIGKILL);
    out.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : WIFSIGNALED(wstatus) ? BLCORE_SPAWN_SIGNALED(WTERMSIG(wstatus)) : -1;
    return out;
}

// The check of a file by one host: the outcome made ahead if there is one
// for the file as it is now, else a child started here.
CheckOutcome spawnCheck(const char* host, const char* filename, const char* quotedFile, int32_t id)
{
    {
        std::lock_guard<std::mutex> l(g_aheadLock);
        const auto it = g_ahead.find(aheadKey(host, filename, id));
        if (it != g_ahead.end()) {
            const CheckOutcome made = it->second;
            g_ahead.erase(it);
            if (made.stamp == BLIO_GetFileTimeStamp(filename, 2))
                return made;
        }
    }
    CheckOutcome out;
    char* quotedHost = _QuoteArg(host);
    out.status = BLCORE_Spawn("\"%s\" --check \"%s\" --id %d", quotedHost, quotedFile, id);
    std::free(quotedHost);
    out.timedOut = BLCORE_LastSpawnTimedOut() != 0;
    out.aborted = BLCORE_LastSpawnAborted() != 0;
    out.timeoutS = spawnTimeoutSeconds();
    return out;
}

// Signals a plugin does not raise by crashing: someone ended its check. A
// plugin's own abort() is SIGABRT, its faults SIGSEGV, SIGBUS, SIGILL, SIGFPE.
bool endedFromOutside(int status)
{
    for (int sig : {SIGKILL, SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        if (status == BLCORE_SPAWN_SIGNALED(sig))
            return true;
    return false;
}

// A check that found no host able to load the plugin: why, in the user's
// words. -1 when the check said nothing of the plugin (someone else ended
// it: it is checked again), else 0.
int failedCheck(_VSTEFFECT* e, int status, int timedOutAfterS)
{
    if (timedOutAfterS == 0 && endedFromOutside(status)) {
        BLDEBUG_Error(-1, "VSTCHECK: the check of %s was ended from outside (signal %d)", e->filename, status - 128);
        setFailure("the check was ended from outside (signal %d; checked again at the next scan)", status - 128);
        return -1;
    }
    BLDEBUG_Error(-1, "VSTCHECK: Failed to check VST plugin %s (error code = %d)!", e->filename, status);
    if (status == VLORVST_CHECK_UNSUPPORTED) {
        e->supported = 0;
        setFailure("not an effect this host can use (an instrument, or no audio in place)");
    } else {
        e->crashed = 1;
        if (timedOutAfterS > 0) {
            BLDEBUG_Error(-1, "VSTCHECK: %s did not answer within %d s", e->filename, timedOutAfterS);
            setFailure("did not answer within %d s", timedOutAfterS);
        } else if (status > 128 && status < 128 + 65) {
            setFailure("crashed while being checked (signal %d)", status - 128);
        } else {
            setFailure("failed its check (exit code %d)", status);
        }
    }
    e->timestamp = BLIO_GetFileTimeStamp(e->filename, 2);
    return 0;
}

} // namespace

/* ---- checking ------------------------------------------------------------ */

extern "C" int _RefreshPluginData(_VSTEFFECT* e)
{
    e->duplicated = 0;
    e->rawmode = 0;
    e->architecture = 0;
    e->crashed = 0;
    e->enabled = 1;

    char* file = _QuoteArg(e->filename);
    int status = -1;
    int timedOutAfterS = 0;
    for (int index = 0; index < 2 && e->architecture == 0; ++index) {
        const char* host = checkHost(index);
        if (!host)
            continue;
        const CheckOutcome outcome = spawnCheck(host, e->filename, file, e->pluginid);
        status = outcome.status;
        timedOutAfterS = outcome.timedOut ? outcome.timeoutS : 0;
        if (status == VLORVST_CHECK_OK)
            e->architecture = index == 0 ? 64 : 32;
        if (outcome.aborted || outcome.skipped) {
            // Cut short (the application quits, the user cancelled or skipped
            // the plugin): it has said nothing about itself.
            setFailure(outcome.skipped ? "skipped by the user (checked again at the next rescan)" : "cancelled");
            std::free(file);
            return -1;
        }
    }
    if (e->architecture == 0) {
        std::free(file);
        return failedCheck(e, status, timedOutAfterS);
    }
    if (e->architecture == 32)
        e->rawmode = 1;
    const char* host = AUDIOVST_GetVlorVstPath(e->architecture == 32 ? 1 : 0);
    if (!host) {
        BLDEBUG_Error(-1, "VSTLOAD: Invalid vlorvst path!");
        std::free(file);
        return 0;
    }
    // The check has usually left its description of the file as it is now:
    // reading it spares loading the plugin a second time for --info.
    char cached[2048];
    const bool haveCached =
        _CheckedDescriptionPath(e->filename, e->pluginid, BLIO_GetFileTimeStamp(e->filename, 2), cached, sizeof(cached)) &&
        BLIO_Exists(cached);
    char* quotedHost = _QuoteArg(host);
    const size_t size = size_t(_HostPathLength()) + 64 + std::strlen(file) + std::strlen(quotedHost);
    std::string command(size, '\0');
    std::snprintf(&command[0], size, "popen://\"%s\" --info \"%s\" --id %d", quotedHost, file, e->pluginid);
    std::free(quotedHost);
    std::free(file);
    bool described = haveCached && _LoadFromVSTXML(e, cached);
    if (haveCached)
        std::remove(cached);
    if (!described)
        described = _LoadFromVSTXML(e, command.c_str());
    if (!described) {
        BLDEBUG_Error(-1, "VSTLOAD: Failed to load VST plugin %s!", e->filename);
        setFailure("could not be described");
        e->duplicated = 0;
        e->crashed = 1;
        e->enabled = 0;
        return 0;
    }
    if (e->category == VSTEFFECT_CATEGORY_EFFECT) {
        // A plugin first asked for with id 0 moves to the hash of its unique id.
        e->pluginid = e->uniqueId;
        _ComputeHash(e->filename, e->pluginid, e->hash);
        // A plugin whose file has not changed keeps the switch the user left
        // in its settings (not a verdict: crashed or unsupported do not count),
        // also when its catalog entry was lost and it is asked about anew.
        if (settingsBelongTo(e)) {
            _VSTEFFECT stored{};
            _LoadFromSettings(&stored, e->hash, 1);
            const bool unchanged = e->timestamp != 0 && stored.timestamp == e->timestamp;
            const bool verdict = stored.crashed || !stored.supported;
            if (unchanged && !verdict)
                e->enabled = stored.enabled;
        }
    }
    return 1;
}

extern "C" int _CheckPlugin(_VSTEFFECT* e)
{
    e->supported = 0;
    if (e->category == VSTEFFECT_CATEGORY_SHELL) {
        e->supported = 1;
        return 1;
    }
    if (e->category != VSTEFFECT_CATEGORY_EFFECT)
        return 1;
    if (const char* why = _WhyNotUsableEffect(e)) {
        setFailure("%s", why);
        return 0;
    }

    _VSTEFFECT* other = _FindListBySupportedId(e->uniqueId);
    while (other && other != e && !BLIO_Exists(other->filename)) {
        AUDIOVST_DeletePlugin(other);
        other = _FindListBySupportedId(e->uniqueId);
    }
    if (other && other != e && other->enabled && !other->crashed) {
        if (other->u.fx.version >= e->u.fx.version) {
            e->duplicated = 1;
            setFailure("the same plugin (or a newer one) is in %s", other->filename);
            return 0;
        }
        other->enabled = 0;
        other->duplicated = 1;
        _SaveToSettings(other);
    }
    e->supported = 1;
    return 1;
}

/* ---- resolution ---------------------------------------------------------- */

extern "C" _VSTEFFECT* AUDIOVST_FindPluginEx(const char* filename, int id, bool force)
{
    t_failure[0] = '\0';
    if (!findHost()) {
        setFailure("no working host program (vlorvst) was found");
        BLNOTIFY_SendEvent(nullptr, 0, AUDIOVST_NOTIFY_NO_HOST, nullptr, nullptr);
        return nullptr;
    }
    if (!filename || !*filename)
        return nullptr;

    _VSTEFFECT* e = _SearchPlugin(filename, id);
    if (!BLIO_Exists(filename)) {
        setFailure("the file is gone");
        if (e)
            AUDIOVST_DeletePlugin(e);
        return nullptr;
    }
    if (!e)
        e = _CreateEffectRecord(filename, id);
    if (!e)
        return nullptr;

    bool needCheck = true;
    if (settingsBelongTo(e)) {
        _LoadFromSettings(e, e->hash, 1);
        needCheck = force;
    }
    needCheck = needCheck || e->force_recheck;

    const int64_t stamp = BLIO_GetFileTimeStamp(filename, 2);
    char path[kDirSize];
    const bool haveDescriptor = _GetVSTXMLPath(e->hash, path, sizeof(path)) && BLIO_Exists(path);
    bool refresh;
    if (!haveDescriptor) {
        e->crashed = 0;
        refresh = true;
    } else {
        if (!e->crashed && e->supported && needCheck)
            refresh = true;
        else if (!e->crashed && e->supported)
            refresh = !_LoadFromVSTXML(e, path) || e->architecture == 0;
        else
            refresh = needCheck;
        const bool unchanged = e->timestamp != 0 && e->timestamp == stamp;
        if (!unchanged) {
            // A file that changed on disk is looked at again, and a crash is forgotten with it.
            e->crashed = 0;
            refresh = true;
        }
    }

    bool refreshed = false;
    const int refreshedAs = refresh ? _RefreshPluginData(e) : 0;
    if (refreshedAs < 0) {
        // Cut short: nothing learned, nothing stored; the next resolution checks again.
        AUDIOVST_DeletePlugin(e);
        return nullptr;
    }
    if (refreshedAs > 0) {
        refreshed = true;
        e->force_recheck = 0;
    }
    // A check that found the plugin unusable has the last word: the
    // description still in the record is that of the file as it was.
    const bool rejected = refresh && refreshedAs == 0 && !e->supported;
    if (!_CheckPlugin(e)) {
        _CheckPlugin(e);
        AUDIOVST_DeletePlugin(e);
        return nullptr;
    }
    if (rejected)
        e->supported = 0;
    _SaveToSettings(e);
    if (refreshed && !e->crashed && e->supported)
        writeDescriptor(e);
    if (AUDIOVST_IsSupported(e))
        return e;
    if (!t_failure[0])
        setFailure(e->crashed ? "crashed when it was last checked" : "cannot be used here");
    return nullptr;
}

extern "C" const char* AUDIOVST_GetLastFailure(void) { return t_failure; }

extern "C" int AUDIOVST_CheckAhead(const char* filename, int id, int (*stop)(void* user), void* user)
{
    if (!filename || !*filename)
        return -1;
    {
        static std::mutex hostLock;
        std::lock_guard<std::mutex> l(hostLock);
        if (!findHost())
            return -1;
    }
    // The hosts as a resolution asks them: the second when the first could not load it.
    int status = -1;
    for (int index = 0; index < 2; ++index) {
        const char* host = checkHost(index);
        if (!host)
            continue;
        const CheckOutcome outcome = runCheckChild(host, filename, id, stop, user);
        // A cancelled check learned nothing: the resolution, if it comes, checks anew.
        if (!outcome.aborted) {
            std::lock_guard<std::mutex> l(g_aheadLock);
            g_ahead[aheadKey(host, filename, id)] = outcome;
        }
        status = outcome.status;
        if (status == VLORVST_CHECK_OK || outcome.aborted || outcome.skipped)
            break;
    }
    return status;
}


extern "C" void AUDIOVST_DropChecksAhead(void)
{
    std::lock_guard<std::mutex> l(g_aheadLock);
    g_ahead.clear();
}

extern "C" void AUDIOVST_SetCheckTimeout(int milliseconds) { g_checkTimeoutMs.store(milliseconds > 0 ? milliseconds : 30000); }

extern "C" _VSTEFFECT* AUDIOVST_FindPluginByHash(const char* hash)
{
    if (!hash)
        return nullptr;
    return eachRecord([&](_VSTEFFECT* e) { return _MatchEffectByHash(e, hash); });
}

extern "C" _VSTEFFECT* AUDIOVST_FindPluginByUniqId(int id)
{
    return eachRecord([&](_VSTEFFECT* e) {
        _VSTEFFECT* found = nullptr;
        return _MatchEffectById(e, id, &found) ? found : nullptr;
    });
}
