// Helpers shared by the test programs: a private data folder for each run, a
// reader of the error log, and small file utilities.
#pragma once

#include "bldebug.h"

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vlortest {

// A fresh folder under the system's temp folder, removed at the end.
class TempDir {
public:
    TempDir()
    {
        char tmpl[] = "/tmp/vlortest.XXXXXX";
        const char* p = mkdtemp(tmpl);
        m_path = p ? p : "/tmp";
    }
    ~TempDir()
    {
        if (m_path.size() > 5)
            std::system(("rm -rf '" + m_path + "'").c_str());
    }
    const std::string& path() const { return m_path; }
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};

// Collects what BLDEBUG_Error reports while it lives.
class LogCapture {
public:
    LogCapture()
    {
        BLDEBUG_SetLogCallback(&LogCapture::onLog, this);
        m_oldStderr = BLDEBUG_SetStderrEnabled(0);
    }
    ~LogCapture()
    {
        BLDEBUG_SetLogCallback(nullptr, nullptr);
        BLDEBUG_SetStderrEnabled(m_oldStderr);
    }
    std::vector<std::string> lines()
    {
        std::lock_guard<std::mutex> g(m_lock);
        return m_lines;
    }
    bool contains(const std::string& text)
    {
        for (const auto& l : lines())
            if (l.find(text) != std::string::npos)
                return true;
        return false;
    }

private:
    static void onLog(void* user, int, const char* message)
    {
        auto* self = static_cast<LogCapture*>(user);
        std::lock_guard<std::mutex> g(self->m_lock);
        self->m_lines.emplace_back(message);
    }
    std::mutex m_lock;
    std::vector<std::string> m_lines;
    int m_oldStderr = 1;
};

inline void writeFile(const std::string& path, const std::string& text, bool executable = false)
{
    std::ofstream(path) << text;
    if (executable)
        chmod(path.c_str(), 0755);
}

inline std::string readFile(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Whether a process runs: a zombie, left to an init that does not reap, has
// ended. Waits up to waitMs for it to end, as a kill is not instant.
inline bool processRuns(long pid, int waitMs = 2000)
{
    for (int waited = 0;; waited += 20) {
        std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
        std::string stat;
        std::getline(in, stat);
        const size_t paren = stat.rfind(')');
        const bool runs = paren != std::string::npos && paren + 2 < stat.size() && stat[paren + 2] != 'Z' &&
                          stat[paren + 2] != 'X';
        if (!runs || waited >= waitMs)
            return runs;
        usleep(20 * 1000);
    }
}

// The pid a forking test child wrote to its file, or 0.
inline long pidFromFile(const std::string& path)
{
    for (int waited = 0; waited < 2000; waited += 20) {
        const std::string text = readFile(path);
        if (!text.empty() && text.back() == '\n')
            return std::stol(text);
        usleep(20 * 1000);
    }
    return 0;
}

// Of the system's plugin files a test runs on, the first that is missing, or
// empty when all are there: the test skips, naming it, rather than pass
// without asserting anything.
inline std::string missingFile(std::initializer_list<const char*> files)
{
    for (const char* f : files)
        if (access(f, F_OK) != 0)
            return f;
    return std::string();
}

// Polls until condition holds, for at most ms: a change is saved a moment
// after it is made, not at once.
template <typename F> bool waitFor(F condition, int ms = 3000)
{
    for (int waited = 0;; waited += 10) {
        if (condition())
            return true;
        if (waited >= ms)
            return false;
        usleep(10 * 1000);
    }
}

// The host programs that run an effect instance for this process (or
// whose command line holds marker).
inline std::vector<long> instanceHostPids(const char* marker = "--fxinstance")
{
    std::vector<long> pids;
    DIR* tasks = opendir("/proc/self/task");
    while (dirent* t = tasks ? readdir(tasks) : nullptr) {
        if (t->d_name[0] == '.')
            continue;
        std::istringstream children(readFile(std::string("/proc/self/task/") + t->d_name + "/children"));
        for (std::string pid; children >> pid;)
            if (readFile("/proc/" + pid + "/cmdline").find(marker) != std::string::npos)
                pids.push_back(std::stol(pid));
    }
    if (tasks)
        closedir(tasks);
    return pids;
}

// The data folder of this test program: set before anything reads settings.
inline const std::string& dataDir()
{
    static TempDir dir;
    static const bool set = (setenv("VLOR_DATA_PATH", dir.path().c_str(), 1), true);
    (void)set;
    return dir.path();
}

} // namespace vlortest
