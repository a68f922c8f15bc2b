// The descriptor reader on whatever the fuzzer makes of a descriptor.
#include "audiovst.h"
#include "vsteffect_p.h"

#include <cstdint>
#include <cstdio>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int fd = memfd_create("descriptor", 0);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        return 0;
    char path[64];
    std::snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);
    AUDIOVST_Initialize();
    _VSTEFFECT* e = _CreateEffectRecord("/fuzz/plugin.so", 0);
    if (_LoadFromVSTXML(e, path)) {
        // Use what was read, as the layers above would.
        AUDIOVST_GetDisplayName(e);
        for (int i = 0; i < AUDIOVST_PluginsCount(e); ++i)
            AUDIOVST_GetPluginName(e, i);
        for (int i = 0; i < e->numParams && e->category == 0; ++i) {
            const ValueType* vt = e->parameters[i].valueType;
            for (int k = 0; vt && k < vt->count; ++k)
                (void)vt->entries[k].low;
        }
        FILE* out = std::fopen("/dev/null", "w");
        _WriteVSTXML(e, out);
        std::fclose(out);
    }
    AUDIOVST_DeletePlugin(e);
    return 0;
}
