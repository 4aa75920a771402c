// The two functions a package exports, unmangled, and how a host calls them.
#ifndef VELD_PCK_H
#define VELD_PCK_H

#include "veld_types.h"

extern "C" {
// The host's first call: hands the package its kernel services object.
// Returns 4, or 0 for an interface version other than 0x80538.
VELD_EXPORT int VELDPckInit(void* kernel, int version);
// Counts or lists the definitions of a group and its children; the table
// receives each definition's argument, a VELDComponentDefinition* for a
// component. See veld_pck_init.cpp for the exact rules.
VELD_EXPORT unsigned VELDGetModulesDefStruct(const char* groupName, void** definitions, int maxCount);
}

typedef unsigned (*VELDGetModulesDefStructFunction)(const char* groupName, void** definitions, int maxCount);
typedef int (*VELDPckInitFunction)(void* kernel, int version);

#endif
