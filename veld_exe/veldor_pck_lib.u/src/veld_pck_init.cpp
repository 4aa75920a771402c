// The entry points of a package.
#include "veld_constants.h"
#include "veld_module_definition.h"
#include "veld_os_c_wrappers_posix.h"
#include "veld_pck.h"
#include "veld_private.h"

namespace {

// Serialises VELDPckInit: the check of the kernel and its store are one step.
VELDMutex VELDPckInit_Mutex;

class PckInitLock {
public:
    PckInitLock() { VELDPckInit_Mutex.Lock(); }
    ~PckInitLock() { VELDPckInit_Mutex.Release(); }
};

}  // namespace

// The host's first call. A wrong interface version gives 0 and touches
// nothing; the first kernel given stays, later ones are ignored. Registration
// functions of the models run once, before the kernel becomes visible.
int VELDPckInit(void* kernel, int version)
{
    if (version != VELD::PackageInterfaceVersion) return 0;
    PckInitLock lock;
    if (!VELDPrivate::kernel) {
        VELDModuleManagement::Initialize(nullptr);
        VELDPrivate::kernel = static_cast<VELDKernelServices*>(kernel);
    }
    return VELD::KernelBuild >> 16;
}

// With no table: the number of definitions of the group, its children
// included at any depth, or of all groups (each counted once) for a null
// group; 0xFFFFFFFF for an unknown group. With a table and room for at least
// one entry: the arguments of up to maxCount definitions, in listing order,
// and how many were written.
unsigned VELDGetModulesDefStruct(const char* groupName, void** definitions, int maxCount)
{
    if (!definitions) return static_cast<unsigned>(VELDModuleManagement::NumberOfReferencedModules(groupName, true));
    if (maxCount <= 0) return 0;
    VELDModuleDefinition** table = new VELDModuleDefinition*[maxCount];
    int n = VELDModuleManagement::EnumerateAvailableModules(table, maxCount, groupName, true);
    for (int i = 0; i < n; ++i) definitions[i] = table[i]->arg;
    delete[] table;
    return static_cast<unsigned>(n);
}
