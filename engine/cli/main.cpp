// veldor: runs diagrams of packages and lists what packages offer.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Engine.h"
#include "EngineVersion.h"
#include "veld_constants.h"
#include "veld_definitions.h"
#include "veld_pck.h"

namespace {

void Usage(std::FILE* out)
{
    std::fprintf(out,
                 "usage: veldor <command> [arguments]\n"
                 "\n"
                 "commands:\n"
                 "  models PACKAGE   list the component models of a package file (.pck)\n"
                 "  version          print the engine's version\n");
}

int ListModels(const char* path)
{
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        std::fprintf(stderr, "veldor: cannot load %s: %s\n", path, dlerror());
        return 1;
    }
    auto init = reinterpret_cast<VELDPckInitFunction>(dlsym(handle, "VELDPckInit"));
    auto list = reinterpret_cast<VELDGetModulesDefStructFunction>(dlsym(handle, "VELDGetModulesDefStruct"));
    if (!init || !list) {
        std::fprintf(stderr, "veldor: %s is not a package: it lacks VELDPckInit or VELDGetModulesDefStruct\n", path);
        return 1;
    }
    veldor::EngineOptions options;
    options.printReports = true;
    veldor::Engine engine(options);
    if (init(&engine, VELD::PackageInterfaceVersion) == 0) {
        std::fprintf(stderr, "veldor: %s refuses this engine's interface version\n", path);
        return 1;
    }
    unsigned count = list("VELDComponent", nullptr, 0);
    if (count == 0xFFFFFFFFu) count = 0;
    std::vector<void*> table(count);
    count = count ? list("VELDComponent", table.data(), static_cast<int>(count)) : 0;
    for (unsigned i = 0; i < count; ++i) {
        const VELDComponentDefinition* definition = static_cast<const VELDComponentDefinition*>(table[i]);
        std::printf("%s %s\n", definition->name, definition->version);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "--help")) {
        Usage(argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    std::string command = argv[1];
    if (command == "version" || command == "--version") {
        std::printf("veldor %s\n", veldor::kEngineVersion);
        return 0;
    }
    if (command == "models") {
        if (argc != 3) {
            std::fprintf(stderr, "usage: veldor models PACKAGE\n");
            return 2;
        }
        return ListModels(argv[2]);
    }
    std::fprintf(stderr, "veldor: unknown command \"%s\"\n\n", argv[1]);
    Usage(stderr);
    return 2;
}
