#include "veld_input_impl.h"

#include "veld.h"
#include "veld_io_monitor_impl.h"
#include "veld_module.h"

VELDInputImplementation::VELDInputImplementation()
    : monitor(nullptr), definition{nullptr, 0, nullptr, VELD::FifoReader, 1}, readerHandle(-1),
      connectionChangedEvent(false, nullptr), interruptEvent(false, nullptr), interruptAckEvent(false, nullptr),
      subsamplingCount(0), heldElts(new HeldSlot*[1]()), heldCapacity(1), nbHeld(0), reconnecting(false),
      reading(false), output(nullptr), owner(nullptr), skipCount(0)
{
}

VELDInputImplementation::~VELDInputImplementation() { delete[] heldElts; }

bool VELDInputImplementation::DataAvailableInFIFO()
{
    VELDIOMonitorImplementation* fifo = monitor.load(std::memory_order_acquire);
    return fifo && fifo->DataAvailableInFIFO(readerHandle.load());
}

int VELDInputImplementation::NbDataAvailableInFIFO()
{
    VELDIOMonitorImplementation* fifo = monitor.load(std::memory_order_acquire);
    return fifo ? fifo->NbDataAvailableInFIFO(readerHandle.load()) : 0;
}

void VELDInputImplementation::Rename(const char* oldPrefix, const char* newPrefix)
{
    VELD::RenameModulePart(name, oldPrefix, newPrefix);
}

// ---------------------------------------------------------------------------
// The host's half

void VELDInputImplementation::BeginReconnection()
{
    mutex.Lock();
    interruptAckEvent.Reset();
    reconnecting.store(true);
    const bool busy = reading.load() || nbHeld.load() != 0;
    interruptEvent.Set();
    mutex.Release();
    if (!busy) return;
    // The reader acknowledges once it is out of the FIFO. A module that no
    // longer lives has no thread left to do so: its read state is only
    // forgotten.
    while (interruptAckEvent.Wait(10000) == VELD::TimeOut) {
        if (owner && !owner->IsStarted() && !reading.load()) {
            nbHeld.store(0);
            break;
        }
    }
}

void VELDInputImplementation::Connect(VELDOutput* connectedOutput, VELDIOMonitorImplementation* fifo, int reader)
{
    readerHandle.store(reader);
    output.store(connectedOutput);
    monitor.store(fifo, std::memory_order_release);
}

void VELDInputImplementation::Disconnect()
{
    monitor.store(nullptr, std::memory_order_release);
    output.store(nullptr);
    readerHandle.store(-1);
}

void VELDInputImplementation::EndReconnection()
{
    reconnecting.store(false);
    interruptAckEvent.Reset();
}

// ---------------------------------------------------------------------------
// The reader's half

void VELDInputImplementation::EnterReading()
{
    VELDMutexGuard guard(mutex);
    while (reconnecting.load()) VELD::Wait4AWhile();
    reading.store(true);
}

void VELDInputImplementation::ExitStartReading()
{
    VELDMutexGuard guard(mutex);
    if (reconnecting.load() && nbHeld.load() == 0) {
        interruptEvent.Reset();
        WaitWhileReconnecting();
    }
    reading.store(false);
}

void VELDInputImplementation::WaitWhileReconnecting()
{
    // The acknowledgement stays set for as long as the reader is out of
    // the FIFO, whichever reconnection the host is in.
    while (reconnecting.load()) {
        interruptAckEvent.Set();
        VELD::Wait4AWhile();
    }
}

void VELDInputImplementation::StepAside()
{
    while (reconnecting.load()) {
        interruptAckEvent.Set();
        if (owner && owner->IsDying()) throw VELD::ModuleDied;
        VELD::Wait4AWhile();
    }
}

void VELDInputImplementation::ReleaseHeld()
{
    VELDIOMonitorImplementation* fifo = monitor.load(std::memory_order_acquire);
    const int held = nbHeld.load();
    for (int i = 0; i < held; ++i) {
        if (fifo && heldElts[i]) fifo->StopReading(readerHandle.load(), VELDIOMonitorImplementation::SlotOf(heldElts[i]));
        heldElts[i] = nullptr;
    }
    if (reading.load()) {
        nbHeld.store(0);
        return;
    }
    VELDMutexGuard guard(mutex);
    nbHeld.store(0);
    if (reconnecting.load()) {
        interruptEvent.Reset();
        WaitWhileReconnecting();
    }
}

void VELDInputImplementation::ResetReadState()
{
    VELDMutexGuard guard(mutex);
    for (int i = 0; i < heldCapacity; ++i) heldElts[i] = nullptr;
    nbHeld.store(0);
    reading.store(false);
    subsamplingCount = 0;
    skipCount = 0;
}

void VELDInputImplementation::ReserveHeld(int n)
{
    if (n <= heldCapacity) return;
    HeldSlot** grown = new HeldSlot*[n]();
    for (int i = 0; i < nbHeld.load(); ++i) grown[i] = heldElts[i];
    delete[] heldElts;
    heldElts = grown;
    heldCapacity = n;
}
