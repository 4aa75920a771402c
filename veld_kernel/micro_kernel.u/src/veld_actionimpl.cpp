#include "veld_action_impl.h"

#include "veld_module.h"

VELDActionImplementation::VELDActionImplementation()
    : m_action(nullptr), m_allowedWhenComponentDead(false), m_owner(nullptr), m_index(-1),
      m_definitionName(nullptr)
{
}

VELDActionImplementation::~VELDActionImplementation() { delete m_action; }

void VELDActionImplementation::DoIt(const char* argument)
{
    if (!m_allowedWhenComponentDead && (m_owner->State() & VELD::DeadState)) {
        m_owner->Report("This action is not allowed when the component is not running.", VELD::Warning, 0);
        return;
    }
    if (!m_action) return;
    m_action->Run(m_owner, m_index, argument);
}

void VELDActionImplementation::Rename(const char* oldPrefix, const char* newPrefix)
{
    VELD::RenameModulePart(m_name, oldPrefix, newPrefix);
}
