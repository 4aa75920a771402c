// The package files of an engine and the component models they offer.
//
// Loading a package: the shared object is opened with RTLD_NOW|RTLD_LOCAL,
// its VELDPckInit is called with the engine and the interface version (a
// package that answers 0 is refused), and its models are read from the
// group "VELDComponent". Every count of -1 in a model's definition is
// resolved, before any component exists, to the number of records of its
// table that precede the record with a null name.
//
// A model name is offered by one package only: a package that offers a
// model already known is refused as a whole, and nothing of it is used.
//
// A package keeps the first kernel it was given for as long as it stays in
// the process, so:
//   - the files stay loaded until the engine ends (unregistering a package
//     only forgets its models); the engine closes them last, after its
//     components are gone;
//   - a file that is already in the process without being one of this
//     engine's packages (another engine loaded it, or a package that could
//     not be unloaded) is refused: its components would report to another
//     engine.
#ifndef VELDOR_ENGINE_PACKAGES_H
#define VELDOR_ENGINE_PACKAGES_H

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "veld_definitions.h"

class VELDKernelServices;

namespace veldor {

class Packages {
public:
    struct Model {
        std::string name;
        std::string package;  // the package's name
        VELDComponentDefinition* definition;
    };

    Packages() = default;
    Packages(const Packages&) = delete;
    Packages& operator=(const Packages&) = delete;
    // Closes every package file. The engine destroys its components first.
    ~Packages();

    // Loads the package at `path` for `kernel`, under `name` (the file name
    // without its folder and extension when empty). False, with the reason
    // in `*error`, when the file can't be loaded, isn't a package, refuses
    // the kernel, offers a model that another package offers, or when a
    // package of that name or file is loaded already.
    bool Load(const std::string& path, VELDKernelServices* kernel, const std::string& name, std::string* error);
    // Forgets the models of a package; the file itself stays loaded. False
    // for an unknown name.
    bool Unregister(const std::string& name);

    // The definition of a model, or null.
    VELDComponentDefinition* Find(const std::string& model) const;
    // The models, in the order their packages were loaded and listed them.
    std::vector<Model> Models() const;
    // The models of one package.
    std::vector<Model> ModelsOf(const std::string& package) const;
    std::vector<std::string> Names() const;

    // Makes the package files stay open after the engine ends: for a process
    // in which a component's thread refused to die, whose code must not go.
    void KeepLoaded() { m_keepLoaded = true; }

    // Resolves each count of -1 of a definition by counting its table up to
    // the record with a null name (0 for a missing table).
    static void ResolveCounts(VELDComponentDefinition& definition);
    // The package name that a file gives: its name without folder and
    // extension.
    static std::string NameOfFile(const std::string& path);

private:
    struct Package {
        std::string name;
        std::string path;  // as resolved on disk
        void* handle;
        std::vector<Model> models;
        bool registered;
    };

    mutable std::mutex m_mutex;
    std::vector<std::unique_ptr<Package>> m_packages;
    bool m_keepLoaded = false;
};

}  // namespace veldor

#endif
