// VELDModule: reading. A threaded module blocks in its reads; a sequential
// one runs on the writer's thread and only takes what is there.
#include <vector>

#include "veld.h"
#include "veld_input_impl.h"
#include "veld_io_monitor_impl.h"
#include "veld_module.h"
#include "veld_private.h"

namespace {

typedef VELDInputImplementation::HeldSlot HeldSlot;
typedef int (*MultiWait)(int n, VELDEvent** events, long timeout);

VELDInputImplementation& In(VELDInput& input) { return static_cast<VELDInputImplementation&>(input); }
HeldSlot* Record(VELDListIterator slot) { return &VELDIOMonitorImplementation::ItemOf(slot)->value; }
VELDListIterator SlotOf(HeldSlot* record) { return VELDIOMonitorImplementation::SlotOf(record); }

// Gives up a wait armed by StartReadingX.
void Disarm(VELDIOMonitorImplementation* fifo, int reader)
{
    fifo->condition->AbortWaitX(reader);
    fifo->mutex.Release();
}

void WaitForConnection(VELDModule& module, VELDInputImplementation& input, MultiWait wait)
{
    VELDEvent* events[2] = {&input.connectionChangedEvent, &module.m_dieEvent};
    wait(2, events, VELD::Infinite);
    if (module.IsDying()) throw VELD::ModuleDied;
    input.connectionChangedEvent.Reset();
}

// One element of a threaded module's read: the subsampling cycle reads
// `subsampling` elements and keeps the last. Blocks until there is one, a
// connection included.
HeldSlot* ReadThreaded(VELDModule& module, VELDInputImplementation& input, MultiWait wait)
{
    const int rate = input.definition.subsampling;
    if (rate < 1) return nullptr;
    HeldSlot* kept = nullptr;
    while (input.subsamplingCount < rate) {
        VELDIOMonitorImplementation* fifo = input.monitor.load(std::memory_order_acquire);
        if (!fifo) {
            WaitForConnection(module, input, wait);
            continue;
        }
        if (input.reconnecting.load()) {
            input.StepAside();
            continue;
        }
        const int reader = input.readerHandle.load();
        VELDEvent* wake = nullptr;
        VELDEvent* abort = nullptr;
        VELDListIterator slot;
        if (!fifo->StartReadingX(reader, &wake, &abort, &slot)) {
            VELDEvent* events[3] = {wake, &module.m_dieEvent, &input.interruptEvent};
            const int result = wait(3, events, VELD::Infinite);
            if (result == 0) {
                slot = fifo->AchieveStartReadingX(reader, 0);
            } else {
                Disarm(fifo, reader);
                if (result == 1) throw VELD::ModuleDied;
                if (result == 2) {
                    input.interruptEvent.Reset();
                    if (input.reconnecting.load()) input.StepAside();
                }
                continue;
            }
        }
        if (!slot.ptr) return nullptr;
        if (++input.subsamplingCount < rate)
            fifo->StopReading(reader, slot);
        else
            kept = Record(slot);
    }
    input.subsamplingCount = 0;
    return kept;
}

// A sequential module's read: what is there, or nothing.
HeldSlot* ReadSequential(VELDInputImplementation& input)
{
    VELDIOMonitorImplementation* fifo = input.monitor.load(std::memory_order_acquire);
    if (!fifo) return nullptr;
    if (input.reconnecting.load()) {
        input.StepAside();
        return nullptr;
    }
    const int reader = input.readerHandle.load();
    VELDEvent* wake = nullptr;
    VELDEvent* abort = nullptr;
    VELDListIterator slot;
    if (!fifo->StartReadingX(reader, &wake, &abort, &slot)) {
        // The writer announced data that a sibling reader may have taken.
        Disarm(fifo, reader);
        return nullptr;
    }
    return slot.ptr ? Record(slot) : nullptr;
}

VELDString FailedToRead(VELDInput& input)
{
    VELDString text("Failed to start reading on ");
    text += input.Name();
    return text;
}

}  // namespace

// ---------------------------------------------------------------------------
// One input

namespace {

VELDIOElt* StartReadingWith(VELDModule& module, VELDInput& i, MultiWait wait)
{
    VELDInputImplementation& input = In(i);
    if (module.IsDying()) throw VELD::ModuleDied;
    if (input.nbHeld.load()) module.StopReading(input);
    input.EnterReading();
    HeldSlot* held = nullptr;
    try {
        held = module.m_threaded.load() ? ReadThreaded(module, input, wait) : ReadSequential(input);
    } catch (int code) {
        input.ExitStartReading();
        if (code != VELD::ErrorException) throw;
        module.Error(FailedToRead(input), 1, VELDModule::ErrorGeneric);
        return nullptr;
    } catch (...) {
        input.ExitStartReading();
        throw;
    }
    if (held) {
        input.heldElts[0] = held;
        input.nbHeld.store(1);
    }
    input.ExitStartReading();
    return held ? &held->elt : nullptr;
}

}  // namespace

VELDIOElt* VELDModule::StartReading(VELDInput& input) { return StartReadingWith(*this, input, VELDEvent::Wait); }
VELDIOElt* VELDModule::MsgStartReading(VELDInput& input) { return StartReadingWith(*this, input, VELDEvent::MsgWait); }

void VELDModule::StopReading(VELDInput& input) { In(input).ReleaseHeld(); }

bool VELDModule::DataAvailableInFIFO(VELDInput& input) { return input.DataAvailableInFIFO(); }

int VELDModule::ReaderHandle(int index)
{
    VELDInputImplementation& input = In(Input(index));
    return input.IsConnected() ? input.readerHandle.load() : -1;
}

// ---------------------------------------------------------------------------
// Several inputs and events

namespace {

const int kMaxInputs = 32;
const int kMaxEvents = 32;

// What an index of the multi-input wait stands for.
struct WaitEntry {
    enum Kind { Death, Wake, Interrupt, Connection, Caller };
    Kind kind;
    int index;  // the input, or the caller's event
};

struct Armed {
    int input;
    VELDIOMonitorImplementation* fifo;
    int reader;
};

void DisarmAll(const Armed* armed, int count, int except = -1)
{
    for (int k = 0; k < count; ++k)
        if (k != except) Disarm(armed[k].fifo, armed[k].reader);
}

// The loop of the multi-input read, with every input's read in progress.
VELDIOElt* ReadFirst(VELDModule& module, int nb, VELDInput** inputs, int* answered, int nbEvents,
                     VELDEvent** callerEvents, MultiWait wait)
{
    VELDEvent* events[1 + 2 * kMaxInputs + kMaxEvents];
    WaitEntry entries[1 + 2 * kMaxInputs + kMaxEvents];
    Armed armed[kMaxInputs];
    for (;;) {
        int n = 0;
        events[n] = &module.m_dieEvent;
        entries[n++] = {WaitEntry::Death, 0};
        int nbArmed = 0;
        int got = -1;
        VELDListIterator slot;
        VELDIOMonitorImplementation* gotFifo = nullptr;
        int gotReader = -1;
        bool restart = false;
        for (int i = 0; i < nb && got < 0; ++i) {
            VELDInputImplementation& input = In(*inputs[i]);
            VELDIOMonitorImplementation* fifo = input.monitor.load(std::memory_order_acquire);
            if (!fifo) {
                events[n] = &input.connectionChangedEvent;
                entries[n++] = {WaitEntry::Connection, i};
                continue;
            }
            if (input.reconnecting.load()) {
                DisarmAll(armed, nbArmed);
                input.StepAside();
                restart = true;
                break;
            }
            const int reader = input.readerHandle.load();
            VELDEvent* wake = nullptr;
            VELDEvent* abort = nullptr;
            if (fifo->StartReadingX(reader, &wake, &abort, &slot)) {
                DisarmAll(armed, nbArmed);
                got = i;
                gotFifo = fifo;
                gotReader = reader;
                break;
            }
            armed[nbArmed++] = {i, fifo, reader};
            events[n] = wake;
            entries[n++] = {WaitEntry::Wake, nbArmed - 1};
            events[n] = &input.interruptEvent;
            entries[n++] = {WaitEntry::Interrupt, i};
        }
        if (restart) continue;
        if (got < 0) {
            for (int e = 0; e < nbEvents; ++e) {
                events[n] = callerEvents[e];
                entries[n++] = {WaitEntry::Caller, e};
            }
            const int result = wait(n, events, VELD::Infinite);
            if (result < 0 || result >= n) {
                DisarmAll(armed, nbArmed);
                continue;
            }
            const WaitEntry entry = entries[result];
            switch (entry.kind) {
            case WaitEntry::Death:
                DisarmAll(armed, nbArmed);
                throw VELD::ModuleDied;
            case WaitEntry::Caller:
                DisarmAll(armed, nbArmed);
                *answered = nb + entry.index;
                return nullptr;
            case WaitEntry::Wake:
                DisarmAll(armed, nbArmed, entry.index);
                got = armed[entry.index].input;
                gotFifo = armed[entry.index].fifo;
                gotReader = armed[entry.index].reader;
                slot = gotFifo->AchieveStartReadingX(gotReader, 0);
                break;
            case WaitEntry::Interrupt:
            case WaitEntry::Connection: {
                DisarmAll(armed, nbArmed);
                VELDInputImplementation& input = In(*inputs[entry.index]);
                if (entry.kind == WaitEntry::Connection) {
                    input.connectionChangedEvent.Reset();
                } else {
                    input.interruptEvent.Reset();
                    if (input.reconnecting.load()) input.StepAside();
                }
                continue;
            }
            }
        }
        if (!slot.ptr) continue;
        // Subsampling is counted for each input.
        VELDInputImplementation& input = In(*inputs[got]);
        if (++input.subsamplingCount < input.definition.subsampling) {
            gotFifo->StopReading(gotReader, slot);
            continue;
        }
        input.subsamplingCount = 0;
        input.heldElts[0] = Record(slot);
        input.nbHeld.store(1);
        *answered = got;
        return &input.heldElts[0]->elt;
    }
}

void RefuseSamplingReaders(VELDModule& module, int nb, VELDInput** inputs)
{
    for (int i = 0; i < nb; ++i)
        if (In(*inputs[i]).definition.readerType == VELD::SamplingReader) {
            VELDString text("StartReading on multiple inputs is not possible with SamplingReader inputs. ");
            text += inputs[i]->Name();
            text += " is a SamplingReader input.";
            module.Error(text, 1, VELDModule::ErrorGeneric);
            throw VELD::ErrorException;
        }
}

VELDIOElt* StartReadingSeveral(VELDModule& module, int nb, VELDInput** inputs, int* answered, int nbEvents,
                               VELDEvent** events, MultiWait wait)
{
    if (module.IsDying()) throw VELD::ModuleDied;
    if (!module.m_threaded.load()) {
        // On the writer's thread: the input that the writer fed answers.
        for (int i = 0; i < nb; ++i) {
            VELDInputImplementation& input = In(*inputs[i]);
            if (input.reconnecting.load() && input.nbHeld.load()) {
                module.StopReading(input);
                *answered = i;
                return nullptr;
            }
        }
        *answered = -1;
        for (int i = 0; i < nb; ++i)
            if (inputs[i] == module.m_currentInput) *answered = i;
        return *answered < 0 ? nullptr : module.StartReading(*inputs[*answered]);
    }
    if (nbEvents > kMaxEvents)
        VELDPrivate::KernelError("StartReading can't wait on more than 32 events simultaneously.", 1);
    if (nb > kMaxInputs) VELDPrivate::KernelError("StartReading can't wait for more than 32 inputs simultaneously.", 1);
    RefuseSamplingReaders(module, nb, inputs);
    for (int i = 0; i < nb; ++i)
        if (In(*inputs[i]).nbHeld.load()) module.StopReading(*inputs[i]);
    for (int i = 0; i < nb; ++i) In(*inputs[i]).EnterReading();
    VELDIOElt* element = nullptr;
    try {
        element = ReadFirst(module, nb, inputs, answered, nbEvents, events, wait);
    } catch (int code) {
        for (int i = 0; i < nb; ++i) In(*inputs[i]).ExitStartReading();
        if (code != VELD::ErrorException) throw;
        module.Error(FailedToRead(*inputs[0]), 1, VELDModule::ErrorGeneric);
        return nullptr;
    } catch (...) {
        for (int i = 0; i < nb; ++i) In(*inputs[i]).ExitStartReading();
        throw;
    }
    for (int i = 0; i < nb; ++i) In(*inputs[i]).ExitStartReading();
    return element;
}

}  // namespace

VELDIOElt* VELDModule::StartReading(int nb, VELDInput** inputs, int* answered, int nbEvents, VELDEvent** events)
{
    return StartReadingSeveral(*this, nb, inputs, answered, nbEvents, events, VELDEvent::Wait);
}

VELDIOElt* VELDModule::MsgStartReading(int nb, VELDInput** inputs, int* answered, int nbEvents, VELDEvent** events)
{
    return StartReadingSeveral(*this, nb, inputs, answered, nbEvents, events, VELDEvent::MsgWait);
}

// ---------------------------------------------------------------------------
// The last n elements

namespace {

// Releases the oldest `count` held elements and moves the others down.
void DropOldest(VELDInputImplementation& input, int count)
{
    VELDIOMonitorImplementation* fifo = input.monitor.load();
    const int held = input.nbHeld.load();
    for (int k = 0; k < count && k < held; ++k)
        if (fifo) fifo->StopReading(input.readerHandle.load(), SlotOf(input.heldElts[k]));
    for (int k = count; k < held; ++k) input.heldElts[k - count] = input.heldElts[k];
    for (int k = held - count; k < held; ++k)
        if (k >= 0) input.heldElts[k] = nullptr;
    input.nbHeld.store(held > count ? held - count : 0);
}

}  // namespace

bool VELDModule::NLastStartReading(VELDInput& i, int n, VELDIOElt** elts)
{
    VELDInputImplementation& input = In(i);
    if (IsDying()) throw VELD::ModuleDied;
    if (input.reconnecting.load() && input.nbHeld.load()) StopReading(input);
    if (!m_threaded.load() && input.definition.subsampling > 1) {
        Error("NLastStartReading is not supported for sequential components with an input subsampling.", 1,
              ErrorGeneric);
        return false;
    }
    if (n < 1) return false;
    input.EnterReading();
    try {
        input.ReserveHeld(n);
        if (input.nbHeld.load() > n) DropOldest(input, input.nbHeld.load() - n);
        for (;;) {
            HeldSlot* fresh = m_threaded.load() ? ReadThreaded(*this, input, VELDEvent::Wait) : ReadSequential(input);
            if (!fresh) {
                input.ExitStartReading();
                return false;
            }
            const int held = input.nbHeld.load();
            if (held < n) {
                input.heldElts[held] = fresh;
                input.nbHeld.store(held + 1);
                if (held + 1 < n) {
                    // The first call blocks until the window is full.
                    if (m_threaded.load()) continue;
                    input.ExitStartReading();
                    return false;
                }
            } else {
                DropOldest(input, 1);
                input.heldElts[n - 1] = fresh;
                input.nbHeld.store(n);
            }
            break;
        }
    } catch (int code) {
        input.ExitStartReading();
        if (code != VELD::ErrorException) throw;
        Error(FailedToRead(input), 1, ErrorGeneric);
        return false;
    }
    for (int k = 0; k < n; ++k) elts[k] = &input.heldElts[k]->elt;
    input.ExitStartReading();
    return true;
}

// ---------------------------------------------------------------------------
// Synchronised reading

long VELDModule::SynchroStartReading(int nb, VELDInput** inputs, VELDIOElt** elts, long tolerance,
                                     VELDEvent* abortEvent)
{
    const long result = SynchroStartReading2(nb, inputs, elts, tolerance, abortEvent);
    if (result == -1)
        for (int i = 0; i < nb; ++i) elts[i] = nullptr;
    return result;
}

long VELDModule::SynchroStartReading2(int nb, VELDInput** inputs, VELDIOElt** elts, long tolerance,
                                      VELDEvent* abortEvent)
{
    if (nb < 0) Error("The number of inputs cannot be negative.", 1, ErrorGeneric);
    if (nb > 256) Error("Can't SynchroStartRead on more than 256 inputs simultaneously. Sorry.", 1, ErrorGeneric);
    if (tolerance < 0) Error("synchroTolerance cannot be negative", 1, ErrorGeneric);
    if (nb < 0 || nb > 256 || tolerance < 0) return -1;
    RefuseSamplingReaders(*this, nb, inputs);
    auto releaseAll = [&]() {
        for (int i = 0; i < nb; ++i) StopReading(*inputs[i]);
    };
    if (!m_threaded.load()) {
        releaseAll();
        return -1;
    }
    for (int i = 0; i < nb; ++i) elts[i] = nullptr;
    std::vector<int> pending(static_cast<size_t>(nb));
    for (int i = 0; i < nb; ++i) pending[static_cast<size_t>(i)] = i;
    std::vector<VELDInput*> waitInputs;
    long minTs = 0, maxTs = 0;
    bool haveReference = false;
    VELDEvent* cancel[1] = {abortEvent};
    while (!pending.empty()) {
        waitInputs.clear();
        for (int i : pending) waitInputs.push_back(inputs[i]);
        int answered = -1;
        VELDIOElt* element = StartReading(static_cast<int>(waitInputs.size()), waitInputs.data(), &answered,
                                          abortEvent ? 1 : 0, cancel);
        if (!element) {
            releaseAll();
            return -1;
        }
        const int index = pending[static_cast<size_t>(answered)];
        const long ts = element->Timestamp();
        // Replay may run backwards: "behind" follows the direction of time.
        const bool forward = VELD::TimeSpeed() >= 0;
        elts[index] = element;
        if (!haveReference) {
            haveReference = true;
            minTs = maxTs = ts;
            pending.erase(pending.begin() + answered);
            continue;
        }
        const long low = ts < minTs ? ts : minTs;
        const long high = ts > maxTs ? ts : maxTs;
        if (high - low <= tolerance) {
            minTs = low;
            maxTs = high;
            pending.erase(pending.begin() + answered);
            continue;
        }
        const bool behind = forward ? ts < minTs : ts > maxTs;
        if (behind) {
            // Dropped: read anew.
            elts[index] = nullptr;
            continue;
        }
        // A new reference: what lies too far from it is read anew.
        minTs = maxTs = ts;
        pending.erase(pending.begin() + answered);
        for (int i = 0; i < nb; ++i) {
            if (i == index || !elts[i]) continue;
            const long other = elts[i]->Timestamp();
            const long distance = other > ts ? other - ts : ts - other;
            if (distance > tolerance) {
                StopReading(*inputs[i]);
                elts[i] = nullptr;
                pending.push_back(i);
            } else {
                if (other < minTs) minTs = other;
                if (other > maxTs) maxTs = other;
            }
        }
    }
    return VELD::TimeSpeed() >= 0 ? maxTs : minTs;
}
