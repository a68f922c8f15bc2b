#pragma once
// What plugins print while they run in this process.

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace vlorfx {

// While a plugin runs here, what it prints goes nowhere (or stays, with
// VLORFX_VERBOSE): the terminal and our output are the user's.
class PluginChatterAside {
public:
    PluginChatterAside()
    {
        if (std::getenv("VLORFX_VERBOSE"))
            return;
        std::fflush(stdout);
        std::fflush(stderr);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        for (int k = 0; k < 2; ++k) {
            m_saved[k] = dup(k + 1);
            if (m_saved[k] >= 0 && null >= 0)
                dup2(null, k + 1);
        }
        if (null >= 0)
            close(null);
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

private:
    int m_saved[2] = {-1, -1};
    FILE* m_out = nullptr;
};

} // namespace vlorfx
