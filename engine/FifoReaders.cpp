#include "FifoReaders.h"

#include "veld_constants.h"
#include "veld_output_impl.h"

namespace veldor {

FifoReaders::FifoReaders() : m_overflows(0) {}

int FifoReaders::Register(Fifo& fifo, int readerType, int subsampling)
{
    if (readerType < VELD::FifoReader || readerType > VELD::SamplingReader) return -1;
    VELDMutexGuard guard(fifo.mutex);
    const VELDUInt32 unused = ~fifo.registeredMask;
    if (!unused) return -1;
    const int reader = __builtin_ctz(unused);
    const VELDUInt32 bit = 1u << reader;
    fifo.registeredMask |= bit;
    if (readerType <= VELD::LastOrNextReader) {
        fifo.fifoMask |= bit;
        if (readerType == VELD::NeverSkippingReader) fifo.neverSkippingMask |= bit;
        if (readerType == VELD::LastOrNextReader) fifo.lastOrNextMask |= bit;
        const int rate = subsampling < 1 ? 1 : subsampling > 256 ? 256 : subsampling;
        fifo.readerParam[reader] = static_cast<unsigned char>(rate - 1);
    } else {
        fifo.readerParam[reader] = static_cast<unsigned char>(readerType);
    }
    fifo.condition->Subscribe(reader);
    return reader;
}

void FifoReaders::Unregister(Fifo& fifo, int reader)
{
    if (reader < 0 || reader > 31) return;
    const VELDUInt32 bit = 1u << reader;
    VELDMutexGuard guard(fifo.mutex);
    if (!(fifo.registeredMask & bit)) return;
    fifo.registeredMask &= ~bit;
    fifo.fifoMask &= ~bit;
    fifo.neverSkippingMask &= ~bit;
    fifo.lastOrNextMask &= ~bit;
    fifo.readerParam[reader] = 0;
    fifo.condition->waiting[reader] = false;

    Fifo::Item* newest = nullptr;
    for (VELDBasicListItem* it = fifo.ring.First(); it; it = it->successor) {
        Fifo::Slot& slot = VELDList<Fifo::Slot>::Value(it);
        slot.readMask &= ~bit;
        if (slot.readingMask & bit) {
            slot.readingMask &= ~bit;
            if (!slot.readingMask && slot.state == VELDFastIOSlot::Reading) slot.state = VELDFastIOSlot::Published;
        }
        if (!newest && VELDFastIOSlot::HasData(slot.state)) newest = static_cast<Fifo::Item*>(it);
    }
    // The reader that left may have been the one that everybody waited for.
    fifo.slotReleasedEvent.Set();
    if (!newest || newest->value.readMask == fifo.fifoMask) fifo.allReadEvent.Set();
}

void FifoReaders::CountOverflow(void* output)
{
    m_overflows.fetch_add(1, std::memory_order_relaxed);
    if (!output) return;
    VELDOutput* base = static_cast<VELDOutput*>(output);
    static_cast<VELDOutputImplementation*>(base)->nbFifoOverflows.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace veldor
