#ifndef VST3MODULE_P_H
#define VST3MODULE_P_H
// A VST3 bundle opened in this process, in the manner of the SDK's hosting
// Module: it opens as a whole or undoes what it did, and closes in a fixed
// order (factory released, ModuleExit, dlclose).
#include <pluginterfaces/base/ipluginbase.h>
#include <pluginterfaces/base/smartpointer.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace VST3 {

using UID = std::array<uint8_t, 16>;

namespace Hosting {

class ClassInfo {
public:
    UID ID() const { return m_id; }
    const std::string& name() const { return m_name; }
    const std::string& category() const { return m_category; }
    const std::string& vendor() const { return m_vendor; }
    const std::string& version() const { return m_version; }
    const std::vector<std::string>& subCategories() const { return m_subCategories; }
    // The sub-categories joined with '|', as the SDK gives them.
    std::string subCategoriesString() const;

private:
    friend class PluginFactory;
    UID m_id{};
    std::string m_name, m_category, m_vendor, m_version;
    std::vector<std::string> m_subCategories;
};

class PluginFactory {
public:
    explicit PluginFactory(Steinberg::IPtr<Steinberg::IPluginFactory> factory) : m_factory(std::move(factory)) {}
    std::vector<ClassInfo> classInfos() const;
    // A new object of the class, owned by the result; null when the class or
    // the interface is refused.
    template <typename T> Steinberg::IPtr<T> createInstance(const UID& cid) const
    {
        void* obj = nullptr;
        if (!m_factory ||
            m_factory->createInstance(reinterpret_cast<const char*>(cid.data()), T::iid, &obj) != Steinberg::kResultOk ||
            !obj)
            return nullptr;
        return Steinberg::owned(static_cast<T*>(obj));
    }
    Steinberg::IPluginFactory* get() const { return m_factory.get(); }
    // The host context for factories that ask for one (IPluginFactory3).
    void setHostContext(Steinberg::FUnknown* context) const;

private:
    friend class Module;
    Steinberg::IPtr<Steinberg::IPluginFactory> m_factory;
};

class Module {
public:
    using Ptr = std::shared_ptr<Module>;
    // The bundle at path (a ".vst3" folder, or the shared object itself), or
    // null with the reason in errorText.
    static Ptr create(const std::string& path, std::string& errorText);
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    const PluginFactory& getFactory() const { return m_factory; }
    const std::string& path() const { return m_path; }

private:
    Module() : m_factory(nullptr) {}
    void* m_library = nullptr;
    PluginFactory m_factory;
    std::string m_path;
};

} // namespace Hosting
} // namespace VST3

namespace Steinberg {
namespace Vst {

// The plugin context that objects of the SDK ask for, set once by the host.
class PluginContextFactory {
public:
    static PluginContextFactory& instance();
    void setPluginContext(FUnknown* context) { m_context = context; }
    FUnknown* getPluginContext() const { return m_context; }

private:
    FUnknown* m_context = nullptr;
};

} // namespace Vst
} // namespace Steinberg

// The cached module of a path, loading it on first use; null with errorText on failure.
VST3::Hosting::Module::Ptr vlorvst3ModuleForPath(const std::string& path, std::string& errorText);
void vlorvst3ReleaseModules();

#endif
