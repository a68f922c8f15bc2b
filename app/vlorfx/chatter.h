#pragma once
// What plugins print while they run in this process.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <fcntl.h>
#include <unistd.h>

namespace vlorfx {

// While a plugin runs here, what it prints goes to the plugin log of the
// data folder, as in the host programs (or stays, with --verbose): the
// terminal and our output are the user's.
class PluginChatterAside {
public:
    PluginChatterAside()
    {
        if (std::getenv("VLORFX_VERBOSE"))
            return;
        std::fflush(stdout);
        std::fflush(stderr);
        const char* log = std::getenv("VLOR_PLUGIN_LOG");
        int sink = log && *log && std::strcmp(log, "-") != 0
                       ? open(log, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644)
                       : -1;
        if (sink < 0)
            sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
        for (int k = 0; k < 2; ++k) {
            m_saved[k] = dup(k + 1);
            if (m_saved[k] >= 0 && sink >= 0)
                dup2(sink, k + 1);
        }
        if (sink >= 0)
            close(sink);
        if (m_saved[1] >= 0)
            m_out = fdopen(dup(m_saved[1]), "w");
    }
    ~PluginChatterAside()
    {
        if (m_out)
            std::fclose(m_out);
        std::fflush(stdout);
        std::fflush(stderr);
        for (int k = 0; k < 2; ++k)
            if (m_saved[k] >= 0) {
                dup2(m_saved[k], k + 1);
                close(m_saved[k]);
            }
    }
    // Where our own progress goes meanwhile.
    FILE* out() const { return m_out ? m_out : stderr; }
    // A line of our own result for standard output, which is the plugin's meanwhile.
    void printResult(const std::string& line) const
    {
        const std::string text = line + "\n";
        if (m_saved[0] < 0) {
            std::fputs(text.c_str(), stdout);
            return;
        }
        if (::write(m_saved[0], text.data(), text.size()) < 0)
            return; // nobody reads our output any more
    }

private:
    int m_saved[2] = {-1, -1};
    FILE* m_out = nullptr;
};

} // namespace vlorfx
