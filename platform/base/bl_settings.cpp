#include "blsettings.h"

#include <climits>

#include <cerrno>

#include <sys/stat.h>

#include "blsavetarget.h"
#include "bldebug.h"
#include "blio.h"
#include "blutils.h"

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <fcntl.h>
#include <sys/file.h>

namespace {

// Changes are coalesced: a scan writes hundreds of keys in a burst, and each
// one rewriting the whole file would cost more than the scan itself.
constexpr auto kFlushDelay = std::chrono::milliseconds(200);
constexpr auto kLookInterval = std::chrono::milliseconds(500);

std::string formatArgs(const char* format, va_list ap)
{
    char small[512];
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(small, sizeof(small), format, copy);
    va_end(copy);
    if (n < 0)
        return std::string();
    if (size_t(n) < sizeof(small))
        return std::string(small, size_t(n));
    std::string big(size_t(n) + 1, '\0');
    std::vsnprintf(&big[0], big.size(), format, ap);
    big.resize(size_t(n));
    return big;
}

std::string escape(const std::string& s)
{
    std::string out;
    out.reserve(s.size());
    for (char c : s) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else
            out += c;
    }
    return out;
}

std::string unescape(const std::string& s)
{
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            const char n = s[++i];
            out += n == 'n' ? '\n' : n == 'r' ? '\r' : n;
        } else {
            out += s[i];
        }
    }
    return out;
}

class Store {
public:
    static Store& instance()
    {
        // Never destroyed: handlers that run at exit may still read settings.
        static Store* store = new Store;
        return *store;
    }

    bool get(const std::string& key, std::string* value)
    {
        std::lock_guard<std::mutex> g(m_lock);
        ensureLoaded();
        lookAtDisk();
        auto it = m_values.find(key);
        if (it == m_values.end())
            return false;
        if (value)
            *value = it->second;
        return true;
    }

    void set(const std::string& key, const std::string& value)
    {
        std::lock_guard<std::mutex> g(m_lock);
        ensureLoaded();
        auto it = m_values.find(key);
        if (it != m_values.end() && it->second == value)
            return;
        m_values[key] = value;
        markDirty();
    }

    bool remove(const std::string& key)
    {
        std::lock_guard<std::mutex> g(m_lock);
        ensureLoaded();
        if (m_values.erase(key) == 0)
            return false;
        markDirty();
        return true;
    }

    bool flush()
    {
        std::lock_guard<std::mutex> g(m_lock);
        return writeLocked();
    }

    bool reload()
    {
        std::lock_guard<std::mutex> g(m_lock);
        const bool ok = writeLocked();
        m_loaded = false;
        m_values.clear();
        ensureLoaded();
        return ok;
    }

    std::string path()
    {
        std::lock_guard<std::mutex> g(m_lock);
        ensureLoaded();
        return m_path;
    }

    std::map<std::string, std::string> snapshot()
    {
        std::lock_guard<std::mutex> g(m_lock);
        ensureLoaded();
        return m_values;
    }

private:
    Store() { std::atexit([] { Store::instance().shutdown(); }); }

    void ensureLoaded()
    {
        if (m_loaded)
            return;
        m_loaded = true;
        char dir[4096];
        m_dir = BLUTILS_GetDataDir(dir, sizeof(dir)) ? dir : ".";
        m_path = m_dir + "/settings.conf";
        // A pipe or a device in the file's place would block or never end.
        struct stat st;
        if (stat(m_path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))
            return;
        readFile(m_path, &m_values);
        m_base = m_values;
        m_stamp = stampOf(m_path);
        m_lastLook = std::chrono::steady_clock::now();
    }

    // The pairs of the file at path; false when there is no plain file to read.
    static bool readFile(const std::string& path, std::map<std::string, std::string>* values)
    {
        struct stat st;
        if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
            return false;
        FILE* f = std::fopen(path.c_str(), "r");
        if (!f)
            return false;
        std::string line;
        char buf[4096];
        while (std::fgets(buf, sizeof(buf), f)) {
            line += buf;
            if (line.empty() || line.back() != '\n') {
                if (!std::feof(f))
                    continue;
            } else {
                line.pop_back();
            }
            const size_t eq = line.find('=');
            if (eq != std::string::npos && eq > 0)
                (*values)[unescape(line.substr(0, eq))] = unescape(line.substr(eq + 1));
            line.clear();
        }
        std::fclose(f);
        return true;
    }

    // Other processes of the editor keep this file too: what one of them
    // changed since we last read or wrote it is taken in, key by key, unless
    // we changed that key as well (this later save wins).
    // A read takes in, within half a second, what another process wrote
    // (a binding made by vlorfx while the editor runs); what this one changed
    // and has not written yet stays.
    void lookAtDisk()
    {
        const auto now = std::chrono::steady_clock::now();
        if (now - m_lastLook < kLookInterval)
            return;
        m_lastLook = now;
        const std::pair<int64_t, int64_t> stamp = stampOf(m_path);
        if (stamp == m_stamp)
            return;
        m_stamp = stamp;
        std::map<std::string, std::string> disk;
        if (mergeFromDisk(&disk))
            m_base.swap(disk);
    }

    static std::pair<int64_t, int64_t> stampOf(const std::string& path)
    {
        struct stat st;
        if (stat(path.c_str(), &st) != 0)
            return {-1, -1};
        return {int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec, int64_t(st.st_size)};
    }

    // True, with the file's pairs in *diskOut, when it differed from our base.
    bool mergeFromDisk(std::map<std::string, std::string>* diskOut = nullptr)
    {
        std::map<std::string, std::string> disk;
        if (!readFile(m_path, &disk) || disk == m_base)
            return false;
        std::map<std::string, std::string> merged = m_values;
        auto keyOf = [](const std::map<std::string, std::string>& m, const std::string& k, const std::string** v) {
            const auto it = m.find(k);
            *v = it == m.end() ? nullptr : &it->second;
        };
        std::map<std::string, std::string> keys = disk;
        keys.insert(m_base.begin(), m_base.end());
        for (const auto& kv : keys) {
            const std::string *base, *mine, *theirs;
            keyOf(m_base, kv.first, &base);
            keyOf(m_values, kv.first, &mine);
            keyOf(disk, kv.first, &theirs);
            const bool mineSame = (!base && !mine) || (base && mine && *base == *mine);
            if (!mineSame)
                continue;
            if (theirs)
                merged[kv.first] = *theirs;
            else
                merged.erase(kv.first);
        }
        m_values.swap(merged);
        if (diskOut)
            diskOut->swap(disk);
        return true;
    }

    void markDirty()
    {
        m_dirty = true;
        if (!m_flusher.joinable() && !m_stopping)
            m_flusher = std::thread([this] { flusherLoop(); });
        m_wake.notify_one();
    }

    void flusherLoop()
    {
        std::unique_lock<std::mutex> g(m_lock);
        while (!m_stopping) {
            m_wake.wait(g, [this] { return m_dirty || m_stopping; });
            if (m_stopping)
                break;
            m_wake.wait_for(g, kFlushDelay, [this] { return m_stopping; });
            writeLocked();
        }
    }

    // Write to a temporary file and rename it over the old one, so that a
    // crash in the middle leaves either the old or the new file, never half.
    bool writeLocked()
    {
        if (!m_dirty)
            return true;
        BLIO_MakeDirs(m_dir.c_str());
        std::string target, why;
        if (!SaveTarget(m_path, &target, &why))
            return failed(why);
        // One read-modify-write at a time across the processes of the data folder.
        const int lockFd = open((m_path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (lockFd >= 0)
            while (flock(lockFd, LOCK_EX) != 0 && errno == EINTR) {
            }
        struct FdCloser {
            int fd;
            ~FdCloser()
            {
                if (fd >= 0)
                    close(fd);
            }
        } closer{lockFd};
        mergeFromDisk();
        const std::string tmp = target + ".tmp." + std::to_string(getpid());
        FILE* f = std::fopen(tmp.c_str(), "w");
        if (!f)
            return failed(std::strerror(errno));
        bool ok = true;
        errno = 0;
        for (const auto& kv : m_values) {
            const std::string line = escape(kv.first) + "=" + escape(kv.second) + "\n";
            ok = ok && std::fwrite(line.data(), 1, line.size(), f) == line.size();
        }
        ok = std::fflush(f) == 0 && ok;
        ok = fsync(fileno(f)) == 0 && ok;
        const int writeError = errno;
        ok = std::fclose(f) == 0 && ok;
        if (!ok || std::rename(tmp.c_str(), target.c_str()) != 0) {
            const int err = ok ? errno : writeError ? writeError : errno;
            std::remove(tmp.c_str());
            return failed(err ? std::strerror(err) : "the disk is full");
        }
        m_dirty = false;
        m_base = m_values;
        m_stamp = stampOf(m_path); // our own write is nothing to take in
        m_saveError.clear();
        return true;
    }

    // A write that failed leaves the changes due; each new reason is logged once.
    bool failed(const std::string& why)
    {
        const std::string error = m_path + ": " + why;
        if (error != m_saveError)
            BLDEBUG_Error(-1, "BLSETTINGS_Flush: cannot save %s", error.c_str());
        m_saveError = error;
        return false;
    }

public:
    bool saveError(std::string* error)
    {
        std::lock_guard<std::mutex> g(m_lock);
        *error = m_saveError;
        return !m_saveError.empty();
    }

private:
    void shutdown()
    {
        std::thread t;
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_stopping = true;
            writeLocked();
            t.swap(m_flusher);
        }
        m_wake.notify_all();
        if (t.joinable())
            t.join();
    }

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::thread m_flusher;
    std::string m_saveError;
    std::map<std::string, std::string> m_base; // the file as we last read or wrote it
    std::pair<int64_t, int64_t> m_stamp{-1, -1}; // its time and size then
    std::chrono::steady_clock::time_point m_lastLook{};
    std::map<std::string, std::string> m_values;
    std::string m_dir;
    std::string m_path;
    bool m_loaded = false;
    bool m_dirty = false;
    bool m_stopping = false;
};

// "key=[default]" -> key and default; a text without the bracket form is a key alone.
void splitRead(const std::string& text, std::string* key, std::string* def)
{
    const size_t eq = text.rfind("=[");
    if (eq != std::string::npos && text.size() >= eq + 3 && text.back() == ']') {
        *key = text.substr(0, eq);
        *def = text.substr(eq + 2, text.size() - eq - 3);
    } else {
        *key = text;
        def->clear();
    }
}

std::string readValue(const std::string& text, bool* found = nullptr)
{
    std::string key, def, value;
    splitRead(text, &key, &def);
    const bool has = Store::instance().get(key, &value);
    if (found)
        *found = has;
    return has ? value : def;
}

bool parseBool(const std::string& v)
{
    if (v == "true")
        return true;
    if (v == "false" || v.empty())
        return false;
    return std::strtol(v.c_str(), nullptr, 10) != 0;
}

} // namespace

// The formatted text of a call's format and arguments; 0 for a null format.
#define FORMATTED_OR_RETURN(text)                                                                                      \
    if (!format)                                                                                                       \
        return 0;                                                                                                      \
    va_list ap;                                                                                                        \
    va_start(ap, format);                                                                                              \
    const std::string text = formatArgs(format, ap);                                                                   \
    va_end(ap)

extern "C" int BLSETTINGS_ChangeEx(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(text);
    const size_t eq = text.find('=');
    const std::string key = text.substr(0, eq);
    if (key.empty())
        return 0;
    Store::instance().set(key, eq == std::string::npos ? std::string() : text.substr(eq + 1));
    return 1;
}

extern "C" int BLSETTINGS_GetStringEx(BLSettings, char* out, int size, const char* format, ...)
{
    FORMATTED_OR_RETURN(text);
    bool found = false;
    const std::string v = readValue(text, &found);
    if (out && size > 0)
        std::snprintf(out, size_t(size), "%s", v.c_str());
    return found ? 1 : 0;
}

extern "C" int BLSETTINGS_GetIntEx(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(text);
    return int(std::strtol(readValue(text).c_str(), nullptr, 10));
}

extern "C" int64_t BLSETTINGS_GetInt64Ex(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(text);
    return int64_t(std::strtoll(readValue(text).c_str(), nullptr, 10));
}

extern "C" int BLSETTINGS_GetBoolEx(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(text);
    return parseBool(readValue(text)) ? 1 : 0;
}

extern "C" int BLSETTINGS_ExistsEx(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(key);
    return Store::instance().get(key, nullptr) ? 1 : 0;
}

extern "C" int BLSETTINGS_DeleteEx(BLSettings, const char* format, ...)
{
    FORMATTED_OR_RETURN(key);
    return Store::instance().remove(key) ? 1 : 0;
}

extern "C" int BLSETTINGS_Flush(void) { return Store::instance().flush() ? 1 : 0; }

extern "C" int BLSETTINGS_GetSaveError(char* out, int size)
{
    std::string error;
    const bool failed = Store::instance().saveError(&error);
    if (out && size > 0)
        std::snprintf(out, size_t(size), "%s", error.c_str());
    return failed ? 1 : 0;
}

extern "C" int BLSETTINGS_Reload(void) { return Store::instance().reload() ? 1 : 0; }

extern "C" const char* BLSETTINGS_GetFilePath(void)
{
    // Kept per thread so that the pointer stays valid for the caller.
    static thread_local std::string path;
    path = Store::instance().path();
    return path.c_str();
}

extern "C" char** BLSETTINGS_ListKeys(const char* prefix)
{
    const std::string p = prefix ? prefix : "";
    const auto all = Store::instance().snapshot();
    size_t count = 0, bytes = 0;
    for (const auto& kv : all)
        if (kv.first.compare(0, p.size(), p) == 0) {
            ++count;
            bytes += kv.first.size() + 1;
        }
    char** table = static_cast<char**>(std::malloc((count + 1) * sizeof(char*) + bytes));
    if (!table)
        return nullptr;
    char* text = reinterpret_cast<char*>(table + count + 1);
    size_t i = 0;
    for (const auto& kv : all)
        if (kv.first.compare(0, p.size(), p) == 0) {
            table[i++] = text;
            std::memcpy(text, kv.first.c_str(), kv.first.size() + 1);
            text += kv.first.size() + 1;
        }
    table[count] = nullptr;
    return table;
}
