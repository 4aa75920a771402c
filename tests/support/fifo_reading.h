// A reader's side of an output's FIFO as an input drives it: the split read
// with a real wait on the reader's wake event, the FIFO's abort event and a
// cancel event of the caller, all in one multi-event wait.
#ifndef VELDOR_TESTS_FIFO_READING_H
#define VELDOR_TESTS_FIFO_READING_H

#include "veld_constants.h"
#include "veld_event.h"
#include "veld_fifo.h"
#include "veld_io_elt_impl.h"

typedef VELDFastIO<VELDIOEltImplementation> TestFifo;

// The next slot for `reader`, blocking until there is one. A null slot when
// `cancel` (may be null) was set first; VELD::ModuleDied on the abort event.
inline VELDListIterator BlockingRead(TestFifo& fifo, int reader, VELDEvent* cancel)
{
    VELDEvent* wake = nullptr;
    VELDEvent* abort = nullptr;
    VELDListIterator slot;
    if (fifo.StartReadingX(reader, &wake, &abort, &slot)) return slot;
    VELDEvent* events[3] = {wake, nullptr, nullptr};
    int n = 1;
    int abortIndex = -1;
    if (abort) {
        abortIndex = n;
        events[n++] = abort;
    }
    if (cancel) events[n++] = cancel;
    const int result = VELDEvent::Wait(n, events, VELD::Infinite);
    if (result == 0) return fifo.AchieveStartReadingX(reader, 0);
    if (result == abortIndex) return fifo.AchieveStartReadingX(reader, 1);
    fifo.condition->AbortWaitX(reader);
    fifo.mutex.Release();
    return VELDListIterator();
}

// The next slot for `reader` if one can be had at once; a null slot (and no
// wait left armed) otherwise.
inline VELDListIterator TryRead(TestFifo& fifo, int reader)
{
    VELDEvent* wake = nullptr;
    VELDEvent* abort = nullptr;
    VELDListIterator slot;
    if (fifo.StartReadingX(reader, &wake, &abort, &slot)) return slot;
    fifo.condition->AbortWaitX(reader);
    fifo.mutex.Release();
    return VELDListIterator();
}

#endif
