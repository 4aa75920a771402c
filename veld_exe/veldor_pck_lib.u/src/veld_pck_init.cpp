// The entry points of a package.
#include "veld_module_definition.h"
#include "veld_pck.h"

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
