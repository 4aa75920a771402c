#include <cstdio>

#include "veld_module_definition.h"
#include "veld_os_c_wrappers.h"
#include "veld_string.h"

VELDList<VELDModuleGroupDefinition*>* VELDModuleManagement::groups = nullptr;
bool VELDModuleManagement::initialized = false;

namespace {

// The registry lives as long as the code that filled it: when a host unloads
// the package, the groups and definitions go with it.
struct RegistryReleaser {
    ~RegistryReleaser()
    {
        if (VELDModuleManagement::IsInitialized() || VELDModuleManagement::NumberOfReferencedGroups(nullptr) > 0)
            VELDModuleManagement::Uninitialize();
    }
} g_registryReleaser;

// Child groups are followed by name; a tree deeper than this is a cycle.
const int kMaxGroupDepth = 64;

template <class T>
T ValueOf(VELDBasicListItem* item)
{
    return VELDList<T>::Value(item);
}

}  // namespace

// ---------------------------------------------------------------------------
// VELDModuleBase

VELDModuleBase::VELDModuleBase(const char* n) : definition(nullptr), name(VELD::Strdup(n)) {}

VELDModuleBase::~VELDModuleBase() { delete[] name; }

void VELDModuleBase::Rename(const char* oldName, const char* newName)
{
    if (VELD::Strcmp(name, oldName) == 0) {
        delete[] name;
        name = VELD::Strdup(newName);
        return;
    }
    // The test is against the new name: a name made from it keeps its tail.
    int n = VELD::Strlen(newName);
    if (!name || !newName || VELD::Strncmp(name, newName, n) != 0) return;
    const char* tail = name;
    while (*tail && *tail != '.') ++tail;
    VELDString renamed(newName);
    renamed += tail;
    delete[] name;
    name = VELD::Strdup(renamed);
}

// ---------------------------------------------------------------------------
// VELDModuleDefinition

VELDModuleDefinition::VELDModuleDefinition(const char* n, const char* group, InstantiationFunction instantiate,
                                           void* a, RegistrationFunction registration,
                                           UnregistrationFunction unregistration)
    : name(nullptr), groupName(nullptr), instantiationFunction(instantiate), registrationFunction(registration),
      unregistrationFunction(unregistration), arg(a)
{
    VELDModuleGroupDefinition* owner = VELDModuleManagement::FindGroup(group);
    if (owner && owner->FindModule(n, false)) {
        char text[100];
        std::snprintf(text, sizeof text, "Module %s already referenced in the category %s\n", n ? n : "(null)",
                      group ? group : "(null)");
        throw VELDStackedString<40>(text);
    }
    if (!owner) owner = new VELDModuleGroupDefinition(group, nullptr, nullptr, nullptr);
    name = VELD::Strdup(n);
    groupName = owner->name;
    owner->modules.Append(this);
    if (VELDModuleManagement::IsInitialized() && registrationFunction) registrationFunction(arg);
}

VELDModuleDefinition::~VELDModuleDefinition()
{
    VELDModuleGroupDefinition* owner = VELDModuleManagement::FindGroup(groupName);
    if (owner) owner->modules.RemoveValue(this);
    delete[] name;
    if (unregistrationFunction) unregistrationFunction(arg);
}

VELDModuleBase* VELDModuleDefinition::Instantiate(const char* instanceName)
{
    if (!instantiationFunction) return nullptr;
    VELDModuleBase* module = instantiationFunction(instanceName, arg);
    if (module) module->definition = this;
    return module;
}

bool VELDModuleDefinition::operator==(const char* other) const { return VELD::Strcmp(name, other) == 0; }

// ---------------------------------------------------------------------------
// VELDModuleGroupDefinition

VELDModuleGroupDefinition::VELDModuleGroupDefinition(const char* n, void (*init)(), void (*exit)(),
                                                     const char* parentGroup)
    : name(nullptr), initFunction(nullptr), exitFunction(nullptr)
{
    if (!n) throw "VELDModuleGroupDefinition construction : the group name can't be NULL\n";
    name = VELD::Strdup(n);

    // A group declared by its real owner replaces the placeholder that a
    // definition made earlier, keeping what was filed under it.
    if (VELDModuleGroupDefinition* old = VELDModuleManagement::FindGroup(name)) {
        childGroups = old->childGroups;
        old->childGroups.Clear();
        for (VELDBasicListItem* it = old->modules.First(); it; it = it->successor) {
            VELDModuleDefinition* definition = ValueOf<VELDModuleDefinition*>(it);
            definition->groupName = name;
            modules.Append(definition);
        }
        old->modules.Clear();
        // Whoever referred to the old group as a child now has this one.
        for (VELDBasicListItem* g = VELDModuleManagement::Groups().First(); g; g = g->successor)
            for (VELDBasicListItem* c = ValueOf<VELDModuleGroupDefinition*>(g)->childGroups.First(); c;
                 c = c->successor)
                if (ValueOf<VELDModuleGroupDefinition*>(c) == old)
                    VELDList<VELDModuleGroupDefinition*>::Value(c) = this;
        VELDModuleManagement::RemoveGroup(old, true);
    }

    VELDModuleManagement::Groups().Append(this);
    if (parentGroup) VELDModuleManagement::ReferenceChildGroup(parentGroup, name);
    initFunction = init;
    exitFunction = exit;
    if (initFunction) initFunction();
}

VELDModuleGroupDefinition::~VELDModuleGroupDefinition()
{
    // Unlinked first, each definition then looks for itself and finds
    // nothing to do.
    while (!modules.Empty()) {
        VELDModuleDefinition* definition = modules.FirstItem()->value;
        modules.Remove(modules.FirstItem());
        delete definition;
    }
    // No group keeps a reference to a group that is gone.
    VELDList<VELDModuleGroupDefinition*>& all = VELDModuleManagement::Groups();
    all.RemoveValue(this);
    for (VELDBasicListItem* g = all.First(); g; g = g->successor)
        while (ValueOf<VELDModuleGroupDefinition*>(g)->childGroups.RemoveValue(this)) {
        }
    delete[] name;
    name = nullptr;
    if (exitFunction) exitFunction();
}

void VELDModuleGroupDefinition::AddModule(VELDModuleDefinition* definition) { modules.Append(definition); }

void VELDModuleGroupDefinition::RemoveModule(VELDModuleDefinition* definition) { modules.RemoveValue(definition); }

void VELDModuleGroupDefinition::RemoveModule(const char* n)
{
    for (VELDBasicListItem* it = modules.First(); it; it = it->successor)
        if (*ValueOf<VELDModuleDefinition*>(it) == n) {
            modules.Remove(it);
            return;
        }
}

void VELDModuleGroupDefinition::AddChildGroup(VELDModuleGroupDefinition* child) { childGroups.Append(child); }

void VELDModuleGroupDefinition::RemoveChildGroup(VELDModuleGroupDefinition* child) { childGroups.RemoveValue(child); }

void VELDModuleGroupDefinition::RemoveChildGroup(const char* n)
{
    for (VELDBasicListItem* it = childGroups.First(); it; it = it->successor)
        if (*ValueOf<VELDModuleGroupDefinition*>(it) == n) {
            childGroups.Remove(it);
            return;
        }
}

VELDModuleDefinition* VELDModuleGroupDefinition::FindModule(const char* n, bool recursive) const
{
    for (VELDBasicListItem* it = modules.First(); it; it = it->successor)
        if (*ValueOf<VELDModuleDefinition*>(it) == n) return ValueOf<VELDModuleDefinition*>(it);
    if (!recursive) return nullptr;
    // One level down only.
    for (VELDBasicListItem* c = childGroups.First(); c; c = c->successor)
        if (VELDModuleDefinition* found = ValueOf<VELDModuleGroupDefinition*>(c)->FindModule(n, false)) return found;
    return nullptr;
}

bool VELDModuleGroupDefinition::operator==(const char* other) const
{
    if (!name || !other) return name == other;
    return VELD::Strcmp(name, other) == 0;
}

// ---------------------------------------------------------------------------
// VELDModuleManagement

VELDList<VELDModuleGroupDefinition*>& VELDModuleManagement::Groups()
{
    if (!groups) groups = new VELDList<VELDModuleGroupDefinition*>();
    return *groups;
}

void VELDModuleManagement::Initialize(const char*)
{
    initialized = true;
    for (VELDBasicListItem* g = Groups().First(); g; g = g->successor)
        for (VELDBasicListItem* m = ValueOf<VELDModuleGroupDefinition*>(g)->modules.First(); m; m = m->successor) {
            VELDModuleDefinition* definition = ValueOf<VELDModuleDefinition*>(m);
            if (definition->registrationFunction) definition->registrationFunction(definition->arg);
        }
}

void VELDModuleManagement::AllocationDone() { Groups(); }

void VELDModuleManagement::Uninitialize()
{
    ClearAll();
    delete groups;
    groups = nullptr;
    initialized = false;
}

void VELDModuleManagement::ClearAll()
{
    VELDList<VELDModuleGroupDefinition*>& all = Groups();
    while (!all.Empty()) {
        VELDModuleGroupDefinition* group = all.FirstItem()->value;
        all.Remove(all.FirstItem());
        delete group;
    }
}

VELDModuleGroupDefinition* VELDModuleManagement::CreateNewGroup(const char* name)
{
    return new VELDModuleGroupDefinition(name, nullptr, nullptr, nullptr);
}

void VELDModuleManagement::ReferenceNewGroup(VELDModuleGroupDefinition* group) { Groups().Append(group); }

void VELDModuleManagement::RemoveGroup(const char* name, bool destroy)
{
    VELDModuleGroupDefinition* group = FindGroup(name);
    if (group) RemoveGroup(group, destroy);
}

void VELDModuleManagement::RemoveGroup(VELDModuleGroupDefinition* group, bool destroy)
{
    if (!Groups().RemoveValue(group)) return;
    if (destroy) delete group;
}

VELDModuleGroupDefinition* VELDModuleManagement::FindGroup(const char* name)
{
    for (VELDBasicListItem* g = Groups().First(); g; g = g->successor)
        if (*ValueOf<VELDModuleGroupDefinition*>(g) == name) return ValueOf<VELDModuleGroupDefinition*>(g);
    return nullptr;
}

int VELDModuleManagement::ReferenceChildGroup(const char* parent, const char* child)
{
    VELDModuleGroupDefinition* p = FindGroup(parent);
    if (!p) p = CreateNewGroup(parent);
    VELDModuleGroupDefinition* c = FindGroup(child);
    if (!c) c = CreateNewGroup(child);
    p->childGroups.Append(c);
    return 1;
}

void VELDModuleManagement::AddModule(VELDModuleGroupDefinition* group, VELDModuleDefinition* definition)
{
    group->modules.Append(definition);
    if (initialized && definition->registrationFunction) definition->registrationFunction(definition->arg);
}

VELDModuleDefinition* VELDModuleManagement::FindModule(const char* name, const char* group, bool recursive)
{
    if (!group) {
        for (VELDBasicListItem* g = Groups().First(); g; g = g->successor)
            if (VELDModuleDefinition* found = ValueOf<VELDModuleGroupDefinition*>(g)->FindModule(name, false))
                return found;
        return nullptr;
    }
    VELDModuleGroupDefinition* g = FindGroup(group);
    return g ? g->FindModule(name, recursive) : nullptr;
}

void* VELDModuleManagement::GetModuleDefinition(const char* name, const char* group)
{
    VELDModuleDefinition* definition = FindModule(name, group, true);
    return definition ? definition->arg : nullptr;
}

VELDModuleBase* VELDModuleManagement::Instantiate(const char* instanceName, const char* model, const char* group)
{
    VELDModuleDefinition* definition = FindModule(model, group, true);
    return definition ? definition->Instantiate(instanceName) : nullptr;
}

namespace {

int CountModules(VELDModuleGroupDefinition* group, bool recursive, int depth)
{
    int n = group->modules.Length();
    if (!recursive || depth >= kMaxGroupDepth) return n;
    for (VELDBasicListItem* c = group->childGroups.First(); c; c = c->successor)
        if (VELDModuleGroupDefinition* child =
                VELDModuleManagement::FindGroup(ValueOf<VELDModuleGroupDefinition*>(c)->name))
            n += CountModules(child, true, depth + 1);
    return n;
}

int CountGroups(VELDModuleGroupDefinition* group, int depth)
{
    int n = 1;
    if (depth >= kMaxGroupDepth) return n;
    for (VELDBasicListItem* c = group->childGroups.First(); c; c = c->successor)
        n += CountGroups(ValueOf<VELDModuleGroupDefinition*>(c), depth + 1);
    return n;
}

int ListModules(VELDModuleGroupDefinition* group, VELDModuleDefinition** table, int max, bool recursive, int depth)
{
    int n = 0;
    for (VELDBasicListItem* m = group->modules.First(); m && n < max; m = m->successor)
        table[n++] = ValueOf<VELDModuleDefinition*>(m);
    if (!recursive || depth >= kMaxGroupDepth) return n;
    for (VELDBasicListItem* c = group->childGroups.First(); c && n < max; c = c->successor)
        if (VELDModuleGroupDefinition* child =
                VELDModuleManagement::FindGroup(ValueOf<VELDModuleGroupDefinition*>(c)->name))
            n += ListModules(child, table + n, max - n, true, depth + 1);
    return n;
}

int ListGroups(VELDModuleGroupDefinition* group, VELDModuleGroupDefinition** table, int max, bool recursive,
               int depth)
{
    if (max < 1) return 0;
    int n = 0;
    table[n++] = group;
    for (VELDBasicListItem* c = group->childGroups.First(); c && n < max; c = c->successor) {
        VELDModuleGroupDefinition* child = ValueOf<VELDModuleGroupDefinition*>(c);
        if (recursive && depth < kMaxGroupDepth)
            n += ListGroups(child, table + n, max - n, true, depth + 1);
        else
            table[n++] = child;
    }
    return n;
}

}  // namespace

int VELDModuleManagement::NumberOfReferencedModules(const char* group, bool recursive)
{
    if (!group) {
        int n = 0;
        for (VELDBasicListItem* g = Groups().First(); g; g = g->successor)
            n += ValueOf<VELDModuleGroupDefinition*>(g)->modules.Length();
        return n;
    }
    VELDModuleGroupDefinition* g = FindGroup(group);
    return g ? CountModules(g, recursive, 0) : -1;
}

int VELDModuleManagement::NumberOfReferencedGroups(const char* group)
{
    if (!group) return Groups().Length();
    VELDModuleGroupDefinition* g = FindGroup(group);
    return g ? CountGroups(g, 0) : 0;
}

int VELDModuleManagement::EnumerateAvailableModules(VELDModuleDefinition** table, int max, const char* group,
                                                    bool recursive)
{
    if (!table) return NumberOfReferencedModules(group, recursive);
    if (max <= 0) return 0;
    if (!group) {
        int n = 0;
        for (VELDBasicListItem* g = Groups().First(); g && n < max; g = g->successor)
            n += ListModules(ValueOf<VELDModuleGroupDefinition*>(g), table + n, max - n, false, 0);
        return n;
    }
    VELDModuleGroupDefinition* g = FindGroup(group);
    return g ? ListModules(g, table, max, recursive, 0) : 0;
}

int VELDModuleManagement::EnumerateAvailableGroups(VELDModuleGroupDefinition** table, int max, const char* group,
                                                   bool recursive)
{
    if (!table) return NumberOfReferencedGroups(group);
    if (max < 1) return 0;
    if (!group) {
        int n = 0;
        for (VELDBasicListItem* g = Groups().First(); g && n < max; g = g->successor)
            table[n++] = ValueOf<VELDModuleGroupDefinition*>(g);
        return n;
    }
    VELDModuleGroupDefinition* g = FindGroup(group);
    return g ? ListGroups(g, table, max, recursive, 0) : 0;
}

int VELDModuleManagement::SortModuleDefinitionTable(VELDModuleDefinition** table, int n, PrecedesFunction precedes,
                                                    bool ascending)
{
    if (n < 2 || !table || !precedes) return 1;
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            if (precedes(table[i], table[j]) != ascending) {
                VELDModuleDefinition* t = table[i];
                table[i] = table[j];
                table[j] = t;
            }
    return 1;
}
