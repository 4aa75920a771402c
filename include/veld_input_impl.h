// An input: a module's connection to at most one output's FIFO, and the
// reader's half of the protocol that lets the host attach, detach or move an
// input while its reader is blocked in a read.
//
// The protocol, between the reader (the module's thread, or the writer's
// thread for a sequential module) and the host:
//   1. The host calls BeginReconnection: `reconnecting` is set, a reader in
//      a wait is woken through `interruptEvent`, and the host waits for
//      `interruptAckEvent` while a read is in progress or elements are held.
//   2. The reader sees `reconnecting`, releases what it holds, sets
//      `interruptAckEvent` and sleeps in 10 ms steps, holding no FIFO lock,
//      until `reconnecting` clears.
//   3. The host changes the FIFO and the reader number (Connect or
//      Disconnect), then calls EndReconnection.
// Attaching an input that has no FIFO needs no interruption: a reader
// waiting for a connection wakes on `connectionChangedEvent`.
#ifndef VELD_INPUT_IMPL_H
#define VELD_INPUT_IMPL_H

#include <atomic>

#include "veld_definitions.h"
#include "veld_event.h"
#include "veld_fifo.h"
#include "veld_input.h"
#include "veld_io_elt_impl.h"
#include "veld_string.h"

class VELDIOMonitorImplementation;
class VELDModule;

class VELDInputImplementation : public VELDInput {
public:
    typedef VELDFastIOElt<VELDIOEltImplementation> HeldSlot;

    VELDInputImplementation();
    VELDInputImplementation(const VELDInputImplementation&) = delete;
    VELDInputImplementation& operator=(const VELDInputImplementation&) = delete;
    ~VELDInputImplementation() override;

    // ---- VELDInput, in its fixed order ----
    bool IsConnected() override { return monitor.load(std::memory_order_acquire) != nullptr; }
    VELDOutput* ConnectedOutput() override { return output.load(std::memory_order_acquire); }
    const VELDTypeFilterBase* Type() override { return definition.typeFilter; }
    const char* Name() override { return name; }
    const char* ShortName() override { return shortName; }
    bool DataAvailableInFIFO() override;
    int NbDataAvailableInFIFO() override;

    // Replaces the module part of the full name when it is `oldPrefix`.
    void Rename(const char* oldPrefix, const char* newPrefix);
    VELDModule* Owner() const { return owner; }
    // The reader type and the input subsampling in force.
    int ReaderType() const { return definition.readerType; }
    int Subsampling() const { return definition.subsampling; }

    // ---- the host's half of the protocol ----
    // Step 1: after it, no reader of this input is inside the FIFO.
    void BeginReconnection();
    // Step 3: the FIFO of `connectedOutput` and the reader number in it.
    void Connect(VELDOutput* connectedOutput, VELDIOMonitorImplementation* fifo, int reader);
    void Disconnect();
    void EndReconnection();
    // A reader waiting for a connection is told that one came.
    void SignalConnectionChanged() { connectionChangedEvent.Set(); }

    // ---- the reader's half ----
    // Under `mutex`: waits while the host reconnects, then marks a read in
    // progress.
    void EnterReading();
    // Under `mutex`: steps aside when the host waits for it, then ends the
    // read in progress.
    void ExitStartReading();
    // Tells the host that the reader stepped aside and sleeps until the
    // host is done. Throws VELD::ModuleDied when the module dies meanwhile.
    void StepAside();
    // The same without the test of death, for the reader's exits.
    void WaitWhileReconnecting();
    // Releases every held element in the FIFO, then steps aside when the
    // host waits (not while a read is in progress).
    void ReleaseHeld();
    // Forgets the read state without touching the FIFO (after a shutdown).
    void ResetReadState();
    // Makes room for `n` held elements, keeping those held.
    void ReserveHeld(int n);

    // ---- fields, in order ----
    VELDStackedString<40> name;       // "<module>.<short name>"
    VELDStackedString<40> shortName;
    VELDMutex mutex;  // guards the two flags below against the host
    std::atomic<VELDIOMonitorImplementation*> monitor;  // the connected FIFO, or null
    VELDInputDefinition definition;
    std::atomic<VELDFastIOHandle> readerHandle;  // the reader number in the FIFO
    VELDEvent connectionChangedEvent;  // set by the host when the input is attached
    VELDEvent interruptEvent;          // set by the host to pull a reader out of a wait
    VELDEvent interruptAckEvent;       // set by the reader: it has stepped aside
    VELDInt32 subsamplingCount;        // elements of the current cycle already read
    HeldSlot** heldElts;               // the elements held, oldest first
    VELDInt32 heldCapacity;
    std::atomic<VELDInt32> nbHeld;
    std::atomic<bool> reconnecting;    // the host is changing the connection
    std::atomic<bool> reading;         // a read is in progress

    // ---- beyond the reading fields ----
    std::atomic<VELDOutput*> output;   // the connected output, or null
    VELDModule* owner;
    // The elements skipped by a sequential module's subsampling.
    VELDInt32 skipCount;
};

#endif
