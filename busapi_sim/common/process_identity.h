// Who a process is, in a form that survives the reuse of its pid: what the
// simulated networks record as the owner of a claim.
#pragma once

#include <cstdint>

namespace nxsim {

struct ProcessId {
    int32_t pid = 0;
    uint32_t reserved = 0;
    uint64_t startTime = 0;  // clock ticks after boot, from /proc/<pid>/stat
    bool operator==(const ProcessId& o) const { return pid == o.pid && startTime == o.startTime; }
};

ProcessId SelfProcessId();
// False for a process that has ended, also while it is a zombie.
bool ProcessAlive(const ProcessId& id);

}  // namespace nxsim
