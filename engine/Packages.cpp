#include "Packages.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

#include <set>

#include "veld_constants.h"
#include "veld_pck.h"

namespace veldor {

namespace {

// The package files that an engine of this process holds, by resolved path:
// a second engine must not load one, since the package would keep the first.
std::mutex g_processMutex;
std::set<std::string> g_processFiles;

template <class Record>
void Resolve(VELDUInt32& count, const Record* table)
{
    if (count != 0xFFFFFFFFu) return;
    VELDUInt32 n = 0;
    if (table)
        while (table[n].name) ++n;
    count = n;
}

std::string ResolvedPath(const std::string& path)
{
    char buffer[PATH_MAX];
    return realpath(path.c_str(), buffer) ? std::string(buffer) : path;
}

}  // namespace

void Packages::ResolveCounts(VELDComponentDefinition& definition)
{
    Resolve(definition.nbInputs, definition.inputs);
    Resolve(definition.nbOutputs, definition.outputs);
    Resolve(definition.nbProperties, definition.properties);
    Resolve(definition.nbActions, definition.actions);
}

std::string Packages::NameOfFile(const std::string& path)
{
    std::string name = path.substr(path.find_last_of('/') == std::string::npos ? 0 : path.find_last_of('/') + 1);
    size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

Packages::~Packages()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto it = m_packages.rbegin(); it != m_packages.rend(); ++it) {
        if (m_keepLoaded) continue;
        dlclose((*it)->handle);
        std::lock_guard<std::mutex> processLock(g_processMutex);
        g_processFiles.erase((*it)->path);
    }
}

bool Packages::Load(const std::string& path, VELDKernelServices* kernel, const std::string& name, std::string* error)
{
    auto fail = [error](const std::string& text) {
        if (error) *error = text;
        return false;
    };
    std::string packageName = name.empty() ? NameOfFile(path) : name;
    std::string resolved = ResolvedPath(path);

    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& package : m_packages) {
        if (package->path == resolved) return fail("package " + path + " is loaded already");
        if (package->name == packageName) return fail("a package named \"" + packageName + "\" is loaded already");
    }
    {
        std::lock_guard<std::mutex> processLock(g_processMutex);
        void* present = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
        if (present) dlclose(present);
        if (present || g_processFiles.count(resolved))
            return fail("package " + path +
                        " is already in this process for another engine; a package serves the first engine "
                        "that loads it");
        g_processFiles.insert(resolved);
    }
    auto release = [&resolved](void* handle) {
        if (handle) dlclose(handle);
        std::lock_guard<std::mutex> processLock(g_processMutex);
        g_processFiles.erase(resolved);
    };

    void* handle = dlopen(resolved.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        release(nullptr);
        return fail("cannot load package " + path + ": " + (reason ? reason : "unknown reason"));
    }
    auto init = reinterpret_cast<VELDPckInitFunction>(dlsym(handle, "VELDPckInit"));
    auto list = reinterpret_cast<VELDGetModulesDefStructFunction>(dlsym(handle, "VELDGetModulesDefStruct"));
    if (!init || !list) {
        release(handle);
        return fail(path + " is not a package: it lacks VELDPckInit or VELDGetModulesDefStruct");
    }
    if (init(kernel, VELD::PackageInterfaceVersion) == 0) {
        release(handle);
        return fail("package " + path + " refuses this engine (interface version 0x80538)");
    }

    std::unique_ptr<Package> package(new Package{packageName, resolved, handle, {}, true});
    unsigned count = list("VELDComponent", nullptr, 0);
    if (count != 0xFFFFFFFFu && count > 0) {
        std::vector<void*> table(count);
        count = list("VELDComponent", table.data(), static_cast<int>(count));
        for (unsigned i = 0; i < count; ++i) {
            auto* definition = static_cast<VELDComponentDefinition*>(table[i]);
            if (!definition || !definition->name) continue;
            ResolveCounts(*definition);
            package->models.push_back(Model{definition->name, packageName, definition});
        }
    }
    // A model offered twice refuses the whole package: which one a diagram
    // meant could not be told. The file, loaded and initialised, stays
    // unused to the end of the engine like every other.
    std::string clash;
    for (size_t i = 0; i < package->models.size() && clash.empty(); ++i) {
        const std::string& model = package->models[i].name;
        for (size_t j = 0; j < i && clash.empty(); ++j)
            if (package->models[j].name == model) clash = "the model \"" + model + "\" twice";
        for (const auto& other : m_packages)
            if (other->registered && clash.empty())
                for (const Model& known : other->models)
                    if (known.name == model)
                        clash = "the model \"" + model + "\", which package \"" + other->name + "\" offers already";
    }
    if (!clash.empty()) {
        package->registered = false;
        package->models.clear();
        m_packages.push_back(std::move(package));
        return fail("package " + path + " offers " + clash);
    }
    m_packages.push_back(std::move(package));
    return true;
}

bool Packages::Unregister(const std::string& name)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& package : m_packages)
        if (package->name == name && package->registered) {
            package->registered = false;
            return true;
        }
    return false;
}

VELDComponentDefinition* Packages::Find(const std::string& model) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& package : m_packages)
        if (package->registered)
            for (const Model& entry : package->models)
                if (entry.name == model) return entry.definition;
    return nullptr;
}

std::vector<Packages::Model> Packages::Models() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Model> models;
    for (const auto& package : m_packages)
        if (package->registered) models.insert(models.end(), package->models.begin(), package->models.end());
    return models;
}

std::vector<Packages::Model> Packages::ModelsOf(const std::string& name) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& package : m_packages)
        if (package->name == name && package->registered) return package->models;
    return {};
}

std::vector<std::string> Packages::Names() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    for (const auto& package : m_packages)
        if (package->registered) names.push_back(package->name);
    return names;
}

}  // namespace veldor
