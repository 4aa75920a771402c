// The waits of a module. They measure time on the engine's clock, so that a
// wait stretches with a slower speed, stops while time stands still, starts
// again after a jump backwards, and ends at once with VELD::ModuleDied when
// the module dies. VELDModule forwards its waits here; anything that has a
// death event and a state can wait the same way.
#ifndef VELD_MODULE_WAITS_H
#define VELD_MODULE_WAITS_H

#include <atomic>

#include "veld_types.h"

class VELDEvent;

// What the runtime needs of a module when it waits, reads or writes for it:
// its death event, its state, and its error and report paths.
struct VELDModuleContext {
    VELDEvent* dieEvent;
    // Tested for VELD::DyingState after a wait without limit.
    const std::atomic<int>* state;
    void* module;
    // The module's Error(text, 1, ErrorGeneric): reports and throws.
    void (*error)(void* module, const char* text);
    // The module's Report(text, level, verbosity).
    void (*report)(void* module, const char* text, int level, int verbosity);
};

class VELDModuleWaits {
public:
    // True when `event` was set, false when `timeout` microseconds of clock
    // time passed first.
    static bool Wait4Event(const VELDModuleContext& owner, VELDEvent* event, long timeout);
    // The index of the first event set, or VELD::TimeOut. With addDeathEvent
    // the death event is waited on too. At most 254 events.
    static int Wait4Events(const VELDModuleContext& owner, int n, VELDEvent** events, long timeout,
                           bool addDeathEvent);
    // One wait with the death event added, on real time.
    static bool MsgWait4Event(const VELDModuleContext& owner, VELDEvent* event, long timeout);
    // At most 255 events.
    static int MsgWait4Events(const VELDModuleContext& owner, int n, VELDEvent** events, long timeout);
    // True once `delay` microseconds of clock time have passed (towards the
    // past at a negative speed), false on `abortEvent`. A speed change keeps
    // the part of the delay already spent.
    static bool Rest(const VELDModuleContext& owner, long delay, VELDEvent* abortEvent);
    // True once the clock has reached `timestamp`, false on `abortEvent`.
    static bool Wait(const VELDModuleContext& owner, long timestamp, VELDEvent* abortEvent);
    // 1 when the clock reached t, 0 on `abortEvent`.
    static int WaitForTimestamp(const VELDModuleContext& owner, long t, VELDEvent* abortEvent, bool* timeStateChanged);
    // 1 when the clock reached t, 0 on one of the events, whose index goes to
    // `cancelled`.
    static int WaitForTimestamp(const VELDModuleContext& owner, long t, int n, VELDEvent** events, int* cancelled,
                                bool* timeStateChanged);
};

namespace VELD {

// Outside any module: 1 when the clock reached t, 0 when one of the cancel
// events was set (its index goes to `cancelled`, -1 otherwise). A dying or
// broken wait throws VELD::ModuleDied.
int WaitForTimestamp(long t, int nbCancelEvents, VELDEvent** cancelEvents, int* cancelled, bool* timeStateChanged);
int WaitForTimestamp(long t, VELDEvent* cancelEvent, bool* timeStateChanged);

}  // namespace VELD

#endif
