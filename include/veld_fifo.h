// The FIFO of an output: a fixed ring of elements through which one writer
// and up to 32 readers exchange data without copying. A reader is handed the
// very element that the writer filled and holds it until StopReading.
//
// The ring is a list in age order, newest at the head. Each slot has a state
// and two reader masks; the FIFO has one mask per reader class. A writer
// never waits for a plain reader (it takes the oldest published slot and
// signals an overflow) but waits for a never-skipping one. A reader that
// holds an element on and on costs the writer one slot and no delay.
//
// One mutex guards everything, held for one walk of the ring: never during a
// wait, never while user code runs (the overflow callback excepted, which
// the kernel keeps short). Lock order: this mutex, then event mutexes.
//
// Reader numbers 0 to 31 are handed out by the host, which sets the masks:
// nothing here registers a reader.
#ifndef VELD_FIFO_H
#define VELD_FIFO_H

#include <cstddef>

#include "veld_constants.h"
#include "veld_containers.h"
#include "veld_event.h"
#include "veld_types.h"

class VELDOutput;

// A reader's number in one FIFO.
typedef VELDInt32 VELDFastIOHandle;

// The states of a slot. A slot has data when Published or Reading.
namespace VELDFastIOSlot {
const VELDInt32 Published = 0;  // data present, no reader holds it
const VELDInt32 Writing = 1;    // owned by the writer
const VELDInt32 Reading = 2;    // data present, held by at least one reader
const VELDInt32 Free = 3;       // no data
inline bool HasData(VELDInt32 state) { return (state & ~2) == 0; }
}  // namespace VELDFastIOSlot

// One slot of the ring, the payload of a list item.
template <class T>
class VELDFastIOElt {
public:
    VELDFastIOElt() : state(VELDFastIOSlot::Free), readingMask(0), readMask(0), elt() {}
    VELDFastIOElt(const VELDFastIOElt&) = delete;
    VELDFastIOElt& operator=(const VELDFastIOElt&) = delete;

    VELDInt32 state;
    VELDUInt32 readingMask;  // bit r: reader r holds this element
    VELDUInt32 readMask;     // bit r: FIFO reader r has read or skipped it
    T elt;
};

template <class T>
class VELDFastIO {
public:
    typedef VELDFastIOElt<T> Slot;
    typedef VELDListItem<Slot> Item;
    typedef void (*OverflowCallback)(void* context);

    // An empty FIFO of `fifoSize` free slots that publishes one element in
    // `subsampling`. `abortEvent` (may be null) ends every wait of the
    // writer and of the readers with VELD::ModuleDied.
    VELDFastIO(VELDEvent* abortEvent, int fifoSize, int subsampling, OverflowCallback callback,
               VELDOutput* context);
    VELDFastIO(const VELDFastIO&) = delete;
    VELDFastIO& operator=(const VELDFastIO&) = delete;
    virtual ~VELDFastIO();

    // The walk of the ring for the allocation and the host, without lock:
    // only while the FIFO is idle. InitNext steps and tells whether it still
    // stands on a slot.
    virtual T& operator[](VELDListIterator slot);
    virtual VELDListIterator InitBegin();
    virtual bool InitNext(VELDListIterator& slot);

    // ---- the writer ----
    // Takes the oldest slot that may be reused and marks it Writing. Blocks
    // while a never-skipping reader still needs it; throws VELD::ModuleDied
    // on the abort event, VELD::TimeOut after writeTimeout, and returns a
    // null slot when writeCancelEvent is set. With no slot to take at all,
    // reports and throws VELD::ErrorException. `handover`, when given, is
    // released as soon as the FIFO's mutex is held.
    VELDListIterator StartWriting(VELDMutex* handover);
    // The second half of writing: a discarded element, or one that output
    // subsampling drops, goes back to Free; a published one moves to the
    // head and wakes the waiting readers. True when published.
    bool StopWriting(VELDListIterator slot, bool discard);

    // ---- the readers ----
    // The first half of a read, without blocking. 1: `*slot` holds the
    // element (or, for a reader of no known type, was left alone). 0: the
    // reader must wait on `*wakeEvent` (with `*abortEvent`, which may be
    // null, and any events of its own); the FIFO's mutex is then free, and
    // the caller finishes with AchieveStartReadingX when the wake event
    // fired, or with condition->AbortWaitX(reader) and mutex.Release().
    int StartReadingX(int reader, VELDEvent** wakeEvent, VELDEvent** abortEvent, VELDListIterator* slot);
    // The second half, after the wait ended with `waitResult` (0: woken).
    VELDListIterator AchieveStartReadingX(int reader, int waitResult);
    // Releases the element that the reader holds (the newest one held, when
    // it holds several), or the given one.
    void StopReading(int reader);
    void StopReading(int reader, VELDListIterator slot);

    // ---- settings ----
    // A FIFO reader's subsampling rate, 1 to 256; stored for the host.
    void SetSubsamplingRate(int reader, int rate);
    // Moves a registered FIFO reader between the three FIFO reader types.
    void SetReaderType(int reader, int type);
    // Discards the content and makes `size` free slots (none below 1).
    void ResetFifoSize(int size);

    // ---- queries, each one walk under the mutex ----
    // Whether StartReadingX would find an element at once (FIFO readers), or
    // whether any element is there (others).
    bool DataAvailableInFIFO(int reader);
    // Elements that the reader hasn't had (FIFO readers), or all elements.
    int NbDataAvailableInFIFO(int reader);
    bool IsFIFOEmpty();
    // True when the FIFO readers have all read the newest element; otherwise
    // allReadEvent is reset, to be set by the next read that completes an
    // element: the writer's handshake waits for it.
    bool PrepareHandshake();
    bool IsFIFOFull();
    int NbFreeSlotsInFIFO();

    // From a slot's record to its place in the ring, and back.
    static VELDListIterator SlotOf(Slot* slot);
    static Item* ItemOf(VELDListIterator slot) { return static_cast<Item*>(slot.ptr); }

    VELDMutex mutex;
    VELDCondition2* condition;   // owned: one wake-up event per reader
    VELDEvent allReadEvent;      // an element has been read by all FIFO readers
    VELDEvent slotReleasedEvent; // the never-skipping readers moved on
    VELDEvent writeCancelEvent;  // set by the host: a blocked writer gives up
    VELDEvent* abortEvent;       // the owning module's death event, not owned
    VELDList<Slot> ring;         // head: newest
    VELDInt32 reserved;
    VELDInt32 subsamplingPeriod;
    VELDInt32 subsamplingCountdown;
    VELDUInt32 registeredMask;
    VELDUInt32 fifoMask;          // reader types 0 to 2
    VELDUInt32 neverSkippingMask; // type 1
    VELDUInt32 lastOrNextMask;    // type 2
    VELDInt32 writeTimeout;       // microseconds, -1: none
    // A FIFO reader's subsampling rate minus 1; another reader's type.
    unsigned char readerParam[32];
    OverflowCallback overflowCallback;
    VELDOutput* overflowContext;

private:
    static bool HasData(const Item* item) { return VELDFastIOSlot::HasData(item->value.state); }
    Item* NewestWithData() const;
    // The element that FIFO reader `bit` reads next, with the marking of a
    // last-or-next reader done; null when it has nothing new.
    Item* NextForFifoReader(VELDUInt32 bit);
    // Marks a slot as read by `bit`, waking a blocked writer when that
    // leaves no never-skipping reader needing it.
    void MarkRead(Item* item, VELDUInt32 bit);
    VELDListIterator Take(Item* item, VELDUInt32 bit, bool fifoReader);
    void Release(Item* item, VELDUInt32 bit);
    // Reports a fatal error of the FIFO with the mutex released, and throws.
    [[noreturn]] void Fatal(const char* format, VELDUInt32 bit);
    void ArmWait(int reader, VELDEvent** wakeEvent, VELDEvent** abortEvent);
};

#endif
