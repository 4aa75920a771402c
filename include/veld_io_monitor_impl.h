// The FIFO that every output owns: the ring engine with the host's walk.
#ifndef VELD_IO_MONITOR_IMPL_H
#define VELD_IO_MONITOR_IMPL_H

#include "veld_fifo.h"
#include "veld_io_elt_impl.h"
#include "veld_io_monitor.h"

class VELDIOMonitorImplementation : public VELDFastIO<VELDIOEltImplementation>, public VELDIOMonitor {
public:
    // A ring of `fifoSize` free slots that publishes one element in
    // `subsampling`, whose waits end with the module's `abortEvent`, and
    // whose overflows are counted by the kernel for `output`.
    VELDIOMonitorImplementation(VELDEvent* abortEvent, VELDOutput* output, int fifoSize, int subsampling);
    static VELDIOMonitorImplementation* CreateMonitor(VELDEvent* abortEvent, VELDOutput* output, int fifoSize,
                                                      int subsampling);
    ~VELDIOMonitorImplementation() override;

    VELDIOEltImplementation& operator[](VELDListIterator slot) override;
    VELDListIterator InitBegin() override;
    bool InitNext(VELDListIterator& slot) override;

    // The writer's slot, with its element's timestamp cleared; a null slot
    // when the host cancelled a blocked writer.
    VELDListIterator StartWriting();
};

#endif
