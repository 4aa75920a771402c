#include "veld_output_writing.h"

#include <cstdio>

#include "veld.h"
#include "veld_module_waits.h"
#include "veld_output_impl.h"
#include "veld_private.h"

namespace {

const int kHistoryDepth = 30;
const int kLastPublished = 30;

bool Dying(const VELDModuleContext& module) { return module.state && (module.state->load() & VELD::DyingState); }

// The module's Error: reports and throws. One that returns leaves the caller
// to give up quietly.
void ModuleError(const VELDModuleContext& module, const char* text)
{
    if (module.error)
        module.error(module.module, text);
    else
        VELDPrivate::KernelError(text, 1);
}

VELDOutputImplementation& Implementation(VELDOutput& output) { return static_cast<VELDOutputImplementation&>(output); }

}  // namespace

VELDIOElt* VELDOutputWriting::StartWriting(const VELDModuleContext& module, VELDOutput& output)
{
    if (Dying(module)) throw VELD::ModuleDied;
    VELDOutputImplementation& out = Implementation(output);
    VELDListIterator slot;
    try {
        slot = out.monitor->VELDFastIO<VELDIOEltImplementation>::StartWriting(nullptr);
    } catch (int code) {
        if (code == VELD::ModuleDied) throw;
        char text[256];
        std::snprintf(text, sizeof text, "Failed to start writing on %s", out.Name());
        ModuleError(module, text);
        return nullptr;
    }
    if (!slot.ptr) return nullptr;
    VELDFastIOElt<VELDIOEltImplementation>& record = VELDIOMonitorImplementation::ItemOf(slot)->value;
    VELDIOEltImplementation& element = record.elt;
    element.output = &output;
    element.fastElt = &record;
    element.timeOfIssue = 0;
    element.timestamp = 0;
    return &element;
}

VELDIOElt* VELDOutputWriting::StartWriting(const VELDModuleContext& module, VELDOutput& output,
                                           VELDTimestamp timestamp)
{
    VELDIOElt* element = StartWriting(module, output);
    if (element) element->Timestamp() = timestamp;
    return element;
}

void VELDOutputWriting::StopWriting(const VELDModuleContext& module, VELDIOElt* element, bool discard)
{
    VELDIOEltImplementation& elt = *static_cast<VELDIOEltImplementation*>(element);
    if (elt.vectorSize > elt.bufferSize) {
        // The element stays the writer's and nothing is published; the
        // memory that was overrun is not looked at.
        char text[128];
        std::snprintf(text, sizeof text, "Buffer overflow detected: VectorSize(%d) > BufferSize(%d)", elt.vectorSize,
                      elt.bufferSize);
        ModuleError(module, text);
        return;
    }
    // The kernel's clock, asked directly: one read of the monotonic clock.
    if (elt.timeOfIssue == 0) elt.timeOfIssue = VELDPrivate::kernel->CurrentTime(true, true);
    if (elt.timestamp == 0) elt.timestamp = elt.timeOfIssue;
    VELDOutputImplementation& out = Implementation(*elt.output);
    elt.timestamp = ResolveTimestamp(out, elt.timestamp, elt.timeOfIssue);
    out.monitor->StopWriting(VELDIOMonitorImplementation::SlotOf(elt.fastElt), discard);
    // Published or dropped by subsampling, the sequential readers are told.
    if (!discard && out.nbSequentialInputs.load(std::memory_order_acquire) != 0) CallSequentialComponents(out);
}

VELDTimestamp VELDOutputWriting::ResolveTimestamp(VELDOutputImplementation& output, VELDTimestamp timestamp,
                                                  VELDTimestamp timeOfIssue)
{
    VELDTimestamp* history = output.timestampHistory;
    const int index = output.timestampIndex;
    history[index] = timestamp;
    if (output.periodic) {
        // A slot at 0 means that the history isn't full yet.
        VELDInt64 sum = 0;
        bool full = true;
        for (int k = 0; k < kHistoryDepth && full; ++k) {
            full = history[k] != 0;
            sum += history[k];
        }
        if (full) {
            const double meanT = static_cast<double>(sum) / kHistoryDepth;
            const double meanI = (kHistoryDepth - 1) / 2.0;
            double covariance = 0;
            double variance = 0;
            // k = 0 is the oldest sample, k = 29 the one just stored.
            for (int k = 0; k < kHistoryDepth; ++k) {
                const double t = static_cast<double>(history[(index + 1 + k) % kHistoryDepth]);
                covariance += (t - meanT) * (k - meanI);
                variance += (k - meanI) * (k - meanI);
            }
            const double slope = covariance / variance;
            timestamp = static_cast<VELDTimestamp>((meanT - meanI * slope) + (kHistoryDepth - 1) * slope);
        }
        // Time never runs backwards on an output; the time of issue stands
        // even if it does not help.
        if (timestamp < history[kLastPublished]) timestamp = timeOfIssue;
    }
    history[kLastPublished] = timestamp;
    output.timestampIndex = (index + 1) % kHistoryDepth;
    return timestamp;
}

void VELDOutputWriting::CallSequentialComponents(VELDOutputImplementation& output)
{
    if (output.nbSequentialInputs.load(std::memory_order_acquire) == 0) return;
    VELDMutexGuard guard(output.mutex);
    for (VELDBasicListItem* it = output.sequentialInputs.First(); it; it = it->successor) {
        const VELDSequentialReader& reader = VELDList<VELDSequentialReader>::Value(it);
        if (!reader.sequentialCore || (reader.isThreaded && reader.isThreaded(reader.module))) continue;
        const int before = reader.state ? reader.state->load() : 0;
        reader.sequentialCore(reader.module, reader.input);
        const int after = reader.state ? reader.state->load() : 0;
        if (after != before) VELDPrivate::ModuleStateChanged(reader.name ? reader.name(reader.module) : "", after);
    }
}

bool VELDOutputWriting::IsFIFOEmpty(VELDOutput& output)
{
    VELDIOMonitorImplementation* monitor = Implementation(output).monitor;
    return !monitor || monitor->IsFIFOEmpty();
}

bool VELDOutputWriting::IsFIFOFull(VELDOutput& output)
{
    VELDIOMonitorImplementation* monitor = Implementation(output).monitor;
    return !monitor || monitor->IsFIFOFull();
}

void VELDOutputWriting::Wait4Handshake(const VELDModuleContext& module, VELDOutput& output)
{
    VELDIOMonitorImplementation& fifo = *Implementation(output).monitor;
    VELDEvent* allRead = &fifo.allReadEvent;
    VELDEvent* events[2] = {module.dieEvent, allRead};
    // An older element read to the end sets the event too: look again.
    while (!fifo.PrepareHandshake()) {
        if (!module.dieEvent || module.dieEvent == allRead)
            allRead->Wait(VELD::Infinite);
        else
            VELDEvent::Wait(2, events, VELD::Infinite);
        if (Dying(module)) throw VELD::ModuleDied;
    }
    if (Dying(module)) throw VELD::ModuleDied;
}
