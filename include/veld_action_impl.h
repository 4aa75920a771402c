// A named command of a module, run by the user or by other modules.
#ifndef VELD_ACTION_IMPL_H
#define VELD_ACTION_IMPL_H

#include "veld_action.h"
#include "veld_definitions.h"
#include "veld_string.h"

class VELDModule;

class VELDActionImplementation : public VELDAction {
public:
    VELDActionImplementation();
    VELDActionImplementation(const VELDActionImplementation&) = delete;
    VELDActionImplementation& operator=(const VELDActionImplementation&) = delete;

    // ---- VELDAction, in its fixed order ----
    // Runs the action's function with the owner, the index and the argument;
    // refused, with a report, on a dead component unless allowed.
    void DoIt(const char* argument) override;
    const char* Name() override { return m_name; }
    const char* ShortName() override { return m_shortName; }
    ~VELDActionImplementation() override;

    // Replaces the module part of the full name when it is `oldPrefix`.
    void Rename(const char* oldPrefix, const char* newPrefix);
    const char* DefinitionName() const { return m_definitionName; }

    VELDString m_name;
    VELDString m_shortName;
    VELDActionFunction* m_action;  // owned copy, may be null
    bool m_allowedWhenComponentDead;
    VELDModule* m_owner;
    int m_index;  // the index in the definition table
    const char* m_definitionName;
};

#endif
