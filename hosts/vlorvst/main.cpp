// vlorvst: loads one VST2 plugin away from the editor.
//   --true / --false        exit 1 / 0: proves the program runs and statuses arrive
//   --check FILE --id N     exit 0 if the plugin opens and can be described,
//                           7 if it is no effect the editor can use; a crash is a crash
//   --info FILE --id N      its descriptor on standard output
//   --fxinstance FILE --id N  serve one instance over standard input and output
//   --group                 serve the instances the library opens, on one pipe
// Whatever the plugin prints never reaches our output: fd 1 is moved aside
// before the plugin is loaded.
#include "host_io.h"

#include "hostchild_p.h"
#include "blsavetarget.h"

#include "blio.h"
#include "blioutils.h"
#include "bllib.h"
#include "blutils.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <unistd.h>
#include <vector>

using namespace vlorvsthost;

namespace {

std::string cachePath(const char* file, int32_t id, int64_t stamp)
{
    char path[2048];
    return _CheckedDescriptionPath(file, id, stamp, path, sizeof(path)) ? std::string(path) : std::string();
}

bool writeDescriptor(const _VSTEFFECT* r, FILE* f) { return _WriteVSTXML(r, f) && std::fflush(f) == 0; }

int describe(const char* file, int32_t id, bool checkOnly)
{
    const int64_t stamp = BLIO_GetFileTimeStamp(file, 2);
    const std::string cache = cachePath(file, id, stamp);
    if (!checkOnly && !cache.empty()) {
        if (FILE* f = std::fopen(cache.c_str(), "rb")) {
            char buf[65536];
            size_t n;
            bool ok = true;
            while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0)
                ok = ok && writeOut(buf, n);
            std::fclose(f);
            std::remove(cache.c_str());
            return ok ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
        }
    }

    Plugin p;
    if (!p.open(file, id) || !_DescribeEffect(p.record, p.fx))
        return checkOnly ? VLORVST_CHECK_UNSUPPORTED : VLORVST_STATUS_FAILED;
    p.record->timestamp = stamp;
    if (checkOnly) {
        if (_WhyNotUsableEffect(p.record))
            return VLORVST_CHECK_UNSUPPORTED;
        std::string target;
        std::string why;
        if (!cache.empty() && SaveTarget(cache, &target, &why)) {
            const std::string tmp = target + ".tmp" + std::to_string(getpid());
            if (FILE* f = std::fopen(tmp.c_str(), "w")) {
                const bool ok = writeDescriptor(p.record, f);
                std::fclose(f);
                if (!ok || std::rename(tmp.c_str(), target.c_str()) != 0)
                    std::remove(tmp.c_str());
            }
        }
        return VLORVST_CHECK_OK;
    }
    FILE* out = fdopen(dup(g_out), "w");
    const bool ok = out && writeDescriptor(p.record, out);
    if (out)
        std::fclose(out);
    return ok ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
}

int usage()
{
    std::fprintf(stderr, "usage: vlorvst --true | --false | --check FILE --id N | --info FILE --id N | "
                         "--fxinstance FILE --id N | --group\n");
    return VLORVST_STATUS_USAGE;
}

} // namespace

int main(int argc, char** argv)
{
    if (!HostChildDieWithParent())
        return VLORVST_STATUS_FAILED;

    if (argc == 2 && !std::strcmp(argv[1], "--true"))
        return VLORVST_STATUS_TRUE;
    if (argc == 2 && !std::strcmp(argv[1], "--false"))
        return VLORVST_STATUS_FALSE;
    const bool group = argc == 2 && !std::strcmp(argv[1], "--group");
    if (!group && (argc != 5 || std::strcmp(argv[3], "--id") != 0))
        return usage();
    const std::string mode = argv[1];
    const char* file = group ? "" : argv[2];
    const int32_t id = group ? 0 : int32_t(std::strtol(argv[4], nullptr, 10));

    // Plugins talk on standard error too; the editor's terminal is not theirs.
    g_out = HostChildTakeStdout(std::getenv("VLORVST_STDERR") != nullptr);
    if (g_out < 0)
        return VLORVST_STATUS_NO_OUTPUT;
    AUDIOVST_Initialize();

    int status;
    if (mode == "--check") {
        status = describe(file, id, true);
    } else if (mode == "--info") {
        status = describe(file, id, false);
    } else if (group) {
        status = serveGroup() ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
    } else if (mode == "--fxinstance") {
        Plugin p;
        if (!p.open(file, id)) {
            // The library's first "chck" finds the pipe closed.
            status = VLORVST_STATUS_FAILED;
        } else {
            status = serve(p.fx) ? VLORVST_STATUS_OK : VLORVST_STATUS_FAILED;
        }
    } else {
        return usage();
    }
    std::fflush(nullptr);
    // Plugins' static destructors have run with dlclose already; leave without more.
    _exit(status);
}
