// An output's FIFO as the host walks it: from the newest slot to the oldest,
// one element per slot. The walk takes no lock; it is meant for times when
// the FIFO is idle (before a run, while preparing buffers).
//
// The engine reaches monitors by the position of these operations in the
// virtual table: never reorder them.
#ifndef VELD_IO_MONITOR_H
#define VELD_IO_MONITOR_H

#include "veld_containers.h"

class VELDIOElt;

class VELDIOMonitor {
public:
    // The element of a slot.
    virtual VELDIOElt& operator[](VELDListIterator slot) = 0;
    // The newest slot, or a null iterator for an empty ring.
    virtual VELDListIterator InitBegin() = 0;
    // Steps to the next older slot; false once past the oldest.
    virtual bool InitNext(VELDListIterator& slot) = 0;
    virtual ~VELDIOMonitor() {}
};

#endif
