// The host's half of the FIFO contract: readers come and go on the FIFO of
// an output by number, and the engine counts what the FIFOs lose.
//
// Reader numbers. A FIFO has 32 of them. Register hands out the lowest number
// that no registered reader holds, so a number is used again once its reader
// has been unregistered. That is safe because Unregister erases every trace
// of the reader (its bits in the FIFO's masks and in every slot, its waiting
// mark), and Register resets the wake-up event of the number it hands out.
//
// The connection protocol with inputs (interrupting a blocked reader, handing
// the input its monitor and number) belongs to whoever attaches inputs: it
// calls Register once the input has stepped aside, and Unregister before it
// gives the input another FIFO.
#ifndef VELDOR_ENGINE_FIFO_READERS_H
#define VELDOR_ENGINE_FIFO_READERS_H

#include <atomic>

#include "veld_fifo.h"
#include "veld_io_elt_impl.h"

namespace veldor {

class FifoReaders {
public:
    typedef VELDFastIO<VELDIOEltImplementation> Fifo;

    FifoReaders();

    // Registers a reader of `readerType` (VELD::FifoReader to
    // VELD::SamplingReader) on `fifo` and returns its number, or -1 when the
    // FIFO has 32 readers already or the type is unknown. A FIFO reader (types
    // 0 to 2) stores `subsampling`, brought into 1 to 256; it reads first the
    // oldest element there is.
    static int Register(Fifo& fifo, int readerType, int subsampling);
    // Removes a reader: the writer no longer waits for it or counts it among
    // those who must read, the elements that it held are released, and a
    // writer blocked on it goes on. Unknown numbers are ignored. The reader
    // must not be inside a read (the input's protocol sees to that).
    static void Unregister(Fifo& fifo, int reader);

    // The kernel's overflow service: one element lost on `output` (the FIFO's
    // overflow context, a VELDOutput; may be null).
    void CountOverflow(void* output);
    int TotalOverflows() const { return m_overflows.load(std::memory_order_relaxed); }

private:
    std::atomic<int> m_overflows;
};

}  // namespace veldor

#endif
