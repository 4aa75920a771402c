#include "veld_io_monitor_impl.h"

#include "veld_private.h"

VELDIOMonitorImplementation::VELDIOMonitorImplementation(VELDEvent* abortEvent, VELDOutput* output, int fifoSize,
                                                         int subsampling)
    : VELDFastIO<VELDIOEltImplementation>(abortEvent, fifoSize, subsampling, &VELDPrivate::SignalFifoOverflow, output)
{
}

VELDIOMonitorImplementation* VELDIOMonitorImplementation::CreateMonitor(VELDEvent* abortEvent, VELDOutput* output,
                                                                        int fifoSize, int subsampling)
{
    return new VELDIOMonitorImplementation(abortEvent, output, fifoSize, subsampling);
}

VELDIOMonitorImplementation::~VELDIOMonitorImplementation() {}

VELDIOEltImplementation& VELDIOMonitorImplementation::operator[](VELDListIterator slot)
{
    return VELDFastIO<VELDIOEltImplementation>::operator[](slot);
}

VELDListIterator VELDIOMonitorImplementation::InitBegin() { return VELDFastIO<VELDIOEltImplementation>::InitBegin(); }

bool VELDIOMonitorImplementation::InitNext(VELDListIterator& slot)
{
    return VELDFastIO<VELDIOEltImplementation>::InitNext(slot);
}

VELDListIterator VELDIOMonitorImplementation::StartWriting()
{
    VELDListIterator slot = VELDFastIO<VELDIOEltImplementation>::StartWriting(nullptr);
    if (slot.ptr) (*this)[slot].timestamp = 0;
    return slot;
}
