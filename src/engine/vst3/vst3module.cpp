#include "vst3module_p.h"

#include "../utf8_p.h"

#include <dlfcn.h>
#include <sys/stat.h>

using namespace Steinberg;

namespace VST3 {
namespace Hosting {

namespace {

std::string text(const char* s, size_t max)
{
    size_t n = 0;
    while (n < max && s[n])
        ++n;
    return std::string(s, n);
}

bool isDirectory(const std::string& p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool isFile(const std::string& p)
{
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The shared object inside a bundle for this machine:
// Name.vst3/Contents/x86_64-linux/Name.so
std::string binaryOf(const std::string& bundle)
{
    std::string name = bundle;
    while (name.size() > 1 && name.back() == '/')
        name.pop_back();
    const size_t slash = name.rfind('/');
    std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    const size_t dot = base.rfind('.');
    if (dot != std::string::npos)
        base = base.substr(0, dot);
    return name + "/Contents/x86_64-linux/" + base + ".so";
}

std::vector<std::string> splitSubCategories(const std::string& subs)
{
    std::vector<std::string> parts;
    size_t start = 0;
    while (start < subs.size()) {
        const size_t bar = subs.find('|', start);
        const std::string part = subs.substr(start, bar == std::string::npos ? std::string::npos : bar - start);
        if (!part.empty())
            parts.push_back(part);
        if (bar == std::string::npos)
            break;
        start = bar + 1;
    }
    return parts;
}

using EntryProc = bool (*)(void*);
using ExitProc = bool (*)();
using FactoryProc = IPluginFactory* (*)();

} // namespace

std::string ClassInfo::subCategoriesString() const
{
    std::string out;
    for (size_t i = 0; i < m_subCategories.size(); ++i)
        out += (i ? "|" : "") + m_subCategories[i];
    return out;
}

std::vector<ClassInfo> PluginFactory::classInfos() const
{
    std::vector<ClassInfo> out;
    if (!m_factory)
        return out;
    PFactoryInfo factoryInfo{};
    m_factory->getFactoryInfo(&factoryInfo);
    const std::string factoryVendor = text(factoryInfo.vendor, PFactoryInfo::kNameSize);
    FUnknownPtr<IPluginFactory2> f2(m_factory);
    FUnknownPtr<IPluginFactory3> f3(m_factory);
    // The two richer forms of class information differ only in how their texts are encoded.
    auto fill = [](ClassInfo& c, const auto& info, auto toText) {
        std::copy(info.cid, info.cid + 16, c.m_id.begin());
        c.m_name = toText(info.name, PClassInfo::kNameSize);
        c.m_category = text(info.category, PClassInfo::kCategorySize);
        c.m_vendor = toText(info.vendor, PClassInfo2::kVendorSize);
        c.m_version = toText(info.version, PClassInfo2::kVersionSize);
        c.m_subCategories = splitSubCategories(text(info.subCategories, PClassInfo2::kSubCategoriesSize));
    };
    const int32 count = m_factory->countClasses();
    for (int32 i = 0; i < count; ++i) {
        ClassInfo c;
        PClassInfoW infoW{};
        PClassInfo2 info2{};
        PClassInfo info{};
        // The Unicode names come first where the factory has them: the 8-bit
        // ones are often in the code page of the machine that built the plugin.
        if (f3 && f3->getClassInfoUnicode(i, &infoW) == kResultOk) {
            fill(c, infoW, [](const char16* t, size_t n) { return Utf16ToUtf8(t, n); });
        } else if (f2 && f2->getClassInfo2(i, &info2) == kResultOk) {
            fill(c, info2, text);
        } else if (m_factory->getClassInfo(i, &info) == kResultOk) {
            std::copy(info.cid, info.cid + 16, c.m_id.begin());
            c.m_name = text(info.name, PClassInfo::kNameSize);
            c.m_category = text(info.category, PClassInfo::kCategorySize);
        } else {
            continue;
        }
        if (c.m_vendor.empty())
            c.m_vendor = factoryVendor;
        out.push_back(std::move(c));
    }
    return out;
}

void PluginFactory::setHostContext(FUnknown* context) const
{
    FUnknownPtr<IPluginFactory3> f3(m_factory);
    if (f3 && context)
        f3->setHostContext(context);
}

Module::Ptr Module::create(const std::string& path, std::string& errorText)
{
    std::string binary;
    if (isDirectory(path)) {
        binary = binaryOf(path);
        if (!isFile(binary)) {
            errorText = "no binary for x86_64-linux in " + path;
            return nullptr;
        }
    } else if (isFile(path)) {
        binary = path;
    } else {
        errorText = "no such bundle: " + path;
        return nullptr;
    }
    void* library = dlopen(binary.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (!library) {
        const char* why = dlerror();
        errorText = why ? why : "cannot load " + binary;
        return nullptr;
    }
    auto entry = reinterpret_cast<EntryProc>(dlsym(library, "ModuleEntry"));
    auto exitProc = reinterpret_cast<ExitProc>(dlsym(library, "ModuleExit"));
    auto factoryProc = reinterpret_cast<FactoryProc>(dlsym(library, "GetPluginFactory"));
    if (!entry || !exitProc || !factoryProc) {
        errorText = "not a VST3 module (ModuleEntry, ModuleExit or GetPluginFactory missing): " + binary;
        dlclose(library);
        return nullptr;
    }
    if (!entry(library)) {
        errorText = "ModuleEntry failed: " + binary;
        dlclose(library);
        return nullptr;
    }
    IPluginFactory* factory = factoryProc();
    if (!factory) {
        errorText = "GetPluginFactory gave nothing: " + binary;
        exitProc();
        dlclose(library);
        return nullptr;
    }
    Ptr module(new Module);
    module->m_library = library;
    module->m_factory.m_factory = owned(factory); // the call's reference is ours
    module->m_path = path;
    module->m_factory.setHostContext(Vst::PluginContextFactory::instance().getPluginContext());
    return module;
}

Module::~Module()
{
    // Every interface of the module goes before ModuleExit, and ModuleExit before dlclose.
    m_factory.m_factory = nullptr;
    if (m_library) {
        if (auto exitProc = reinterpret_cast<ExitProc>(dlsym(m_library, "ModuleExit")))
            exitProc();
        dlclose(m_library);
    }
}

} // namespace Hosting
} // namespace VST3

namespace Steinberg {
namespace Vst {
PluginContextFactory& PluginContextFactory::instance()
{
    static PluginContextFactory factory;
    return factory;
}
} // namespace Vst
} // namespace Steinberg
