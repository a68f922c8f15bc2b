// The lowest layer of the VST3 engine: the host context and the cache of
// loaded bundles. A bundle is opened once and stays loaded while the process
// lives, however many instances come and go.
#include "vst3engine.h"
#include "vst3module_p.h"

#include <public.sdk/source/vst/hosting/hostclasses.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>

using VST3::Hosting::Module;

namespace {

Steinberg::Vst::HostApplication* __HostApp = nullptr;

// Never destroyed: modules may be asked for during static destruction.
std::map<std::string, Module::Ptr>& __Modules()
{
    static auto* modules = new std::map<std::string, Module::Ptr>;
    return *modules;
}

std::mutex& __ModulesLock()
{
    static auto* lock = new std::mutex;
    return *lock;
}

void copyField(char* dst, size_t size, const std::string& src)
{
    std::strncpy(dst, src.c_str(), size - 1);
    dst[size - 1] = '\0';
}

} // namespace

Module::Ptr vlorvst3ModuleForPath(const std::string& path, std::string& errorText)
{
    // Held across the load: two threads asking for one path load it once.
    std::lock_guard<std::mutex> g(__ModulesLock());
    auto it = __Modules().find(path);
    if (it != __Modules().end())
        return it->second;
    Module::Ptr module = Module::create(path, errorText);
    if (module)
        __Modules().emplace(path, module);
    return module;
}

void vlorvst3ReleaseModules()
{
    std::lock_guard<std::mutex> g(__ModulesLock());
    __Modules().clear();
}

extern "C" int VLORVST3_Initialize(void)
{
    if (__HostApp)
        return 1;
    __HostApp = new Steinberg::Vst::HostApplication;
    Steinberg::Vst::PluginContextFactory::instance().setPluginContext(__HostApp);
    return 1;
}

extern "C" void VLORVST3_Finalize(void)
{
    if (!__HostApp)
        return;
    vlorvst3ReleaseModules();
    Steinberg::Vst::PluginContextFactory::instance().setPluginContext(nullptr);
    __HostApp->release();
    __HostApp = nullptr;
}

extern "C" void VLORVST3_ReleaseModule(const char* path)
{
    if (!path)
        return;
    std::lock_guard<std::mutex> g(__ModulesLock());
    __Modules().erase(path);
}

extern "C" int VLORVST3_ListClasses(const char* path, Vst3ClassRecord* records, int limit)
{
    if (!records || limit <= 0 || !path)
        return -1;
    std::string error;
    const Module::Ptr module = vlorvst3ModuleForPath(path, error);
    if (!module)
        return -1;
    int written = 0;
    for (const VST3::Hosting::ClassInfo& c : module->getFactory().classInfos()) {
        if (c.category() != "Audio Module Class")
            continue;
        if (written == limit)
            break;
        Vst3ClassRecord& r = records[written++];
        char uid[33];
        for (int i = 0; i < 16; ++i)
            std::snprintf(uid + 2 * i, 3, "%02X", c.ID()[size_t(i)]);
        copyField(r.uid, sizeof(r.uid), uid);
        copyField(r.name, sizeof(r.name), c.name());
        copyField(r.vendor, sizeof(r.vendor), c.vendor());
        copyField(r.category, sizeof(r.category), c.category());
        copyField(r.subCategories, sizeof(r.subCategories), c.subCategoriesString());
        copyField(r.version, sizeof(r.version), c.version());
    }
    return written;
}
