// The registry of what a package offers. Each model is described by one
// VELDModuleDefinition that files itself under a named group while the
// shared object loads; the host reads the registry through
// VELDGetModulesDefStruct. It is built before any kernel exists and takes no
// lock: it is written by static initialisers and by the package's entry
// point, and only read after that.
#ifndef VELD_MODULE_DEFINITION_H
#define VELD_MODULE_DEFINITION_H

#include "veld_containers.h"
#include "veld_types.h"

class VELDModuleDefinition;

// The root of everything that can be instantiated from a definition.
class VELDModuleBase {
public:
    explicit VELDModuleBase(const char* name);
    VELDModuleBase(const VELDModuleBase&) = delete;
    VELDModuleBase& operator=(const VELDModuleBase&) = delete;
    virtual ~VELDModuleBase();
    // When the name is oldName, it becomes newName. Otherwise a name that
    // begins with newName becomes newName followed by its own tail from its
    // first "." on.
    virtual void Rename(const char* oldName, const char* newName);

    const char* Name() const { return name; }

    VELDModuleDefinition* definition;  // set by whoever instantiates the module
    char* name;                        // owned; null for a null name
};

class VELDModuleDefinition {
public:
    typedef VELDModuleBase* (*InstantiationFunction)(const char* instanceName, void* arg);
    typedef void (*RegistrationFunction)(void* arg);
    typedef void (*UnregistrationFunction)(void* arg);

    // Files the definition under groupName, creating the group when missing.
    // Throws VELDStackedString<40> "Module <name> already referenced in the
    // category <group>\n" when the group already holds this name.
    VELDModuleDefinition(const char* name, const char* groupName, InstantiationFunction instantiate, void* arg,
                         RegistrationFunction registration, UnregistrationFunction unregistration);
    VELDModuleDefinition(const VELDModuleDefinition&) = delete;
    VELDModuleDefinition& operator=(const VELDModuleDefinition&) = delete;
    virtual ~VELDModuleDefinition();

    // Null without an instantiation function; the new object learns its
    // definition.
    VELDModuleBase* Instantiate(const char* instanceName);
    bool operator==(const char* other) const;

    char* name;                  // owned; may be null
    const char* groupName;       // the group's own name, not owned
    InstantiationFunction instantiationFunction;
    RegistrationFunction registrationFunction;
    UnregistrationFunction unregistrationFunction;
    void* arg;                   // a component's VELDComponentDefinition
};

class VELDModuleGroupDefinition {
public:
    // A null name throws "VELDModuleGroupDefinition construction : the group
    // name can't be NULL\n". A group of an existing name takes over the old
    // group's definitions and children and replaces it.
    VELDModuleGroupDefinition(const char* name, void (*init)(), void (*exit)(), const char* parentGroup);
    VELDModuleGroupDefinition(const VELDModuleGroupDefinition&) = delete;
    VELDModuleGroupDefinition& operator=(const VELDModuleGroupDefinition&) = delete;
    virtual ~VELDModuleGroupDefinition();

    void AddModule(VELDModuleDefinition* definition);
    void RemoveModule(VELDModuleDefinition* definition);
    void RemoveModule(const char* name);
    void AddChildGroup(VELDModuleGroupDefinition* child);
    void RemoveChildGroup(VELDModuleGroupDefinition* child);
    void RemoveChildGroup(const char* name);
    // Own definitions first; with `recursive`, those of the direct children.
    VELDModuleDefinition* FindModule(const char* name, bool recursive) const;
    // Null is equal only to null.
    bool operator==(const char* other) const;

    char* name;
    void (*initFunction)();
    void (*exitFunction)();
    VELDList<VELDModuleDefinition*> modules;           // owned
    VELDList<VELDModuleGroupDefinition*> childGroups;  // references
};

class VELDModuleManagement {
public:
    typedef bool (*PrecedesFunction)(VELDModuleDefinition* a, VELDModuleDefinition* b);

    static void Initialize(const char* ignored);
    static void AllocationDone();
    static void Uninitialize();
    static void ClearAll();
    static bool IsInitialized() { return initialized; }

    static VELDModuleGroupDefinition* CreateNewGroup(const char* name);
    static void ReferenceNewGroup(VELDModuleGroupDefinition* group);
    static void RemoveGroup(const char* name, bool destroy);
    static void RemoveGroup(VELDModuleGroupDefinition* group, bool destroy);
    static VELDModuleGroupDefinition* FindGroup(const char* name);
    static int ReferenceChildGroup(const char* parent, const char* child);

    static void AddModule(VELDModuleGroupDefinition* group, VELDModuleDefinition* definition);
    static VELDModuleDefinition* FindModule(const char* name, const char* group, bool recursive);
    static void* GetModuleDefinition(const char* name, const char* group);
    static VELDModuleBase* Instantiate(const char* instanceName, const char* model, const char* group);

    // Definitions of a group and, with `recursive`, of its children to any
    // depth; with a null group, of all groups. -1 for an unknown group.
    static int NumberOfReferencedModules(const char* group, bool recursive);
    static int NumberOfReferencedGroups(const char* group);
    // With a null table, a count (-1 for an unknown group); otherwise the
    // number of entries written, 0 for an unknown group.
    static int EnumerateAvailableModules(VELDModuleDefinition** table, int max, const char* group, bool recursive);
    static int EnumerateAvailableGroups(VELDModuleGroupDefinition** table, int max, const char* group,
                                        bool recursive);
    static int SortModuleDefinitionTable(VELDModuleDefinition** table, int n, PrecedesFunction precedes,
                                         bool ascending);

    // The list of groups, made on first need by any caller.
    static VELDList<VELDModuleGroupDefinition*>& Groups();

private:
    static VELDList<VELDModuleGroupDefinition*>* groups;
    static bool initialized;
};

// One per model: its definition, and a marker that stands in the file so that
// a scanner can list the package's models and versions without loading it.
template <class Model>
class __NewModuleDeclarationClass {
public:
    static VELDModuleDefinition* moduleDefinition;
    static const char* moduleDescr;
};

#define VELD_MODULE_MARKER(group, model, version) "$!VELD_MODULE!" group "!" model "!$!" version "!$"

// Files a component model under "VELDComponent". ComponentDefinition is the
// model's static VELDComponentDefinition; model and version must be literals
// equal to its name and version.
#define VELD_DECLARE_COMPONENT(Model, definitionName, ComponentDefinition, model, version)                     \
    template <>                                                                                                 \
    VELDModuleDefinition* __NewModuleDeclarationClass<Model>::moduleDefinition =                                \
        new VELDModuleDefinition(definitionName, "VELDComponent", nullptr, &(ComponentDefinition), nullptr,     \
                                 nullptr);                                                                      \
    template <>                                                                                                 \
    VELD_USED const char* __NewModuleDeclarationClass<Model>::moduleDescr =                                     \
        VELD_MODULE_MARKER("VELDComponent", model, version)

#endif
