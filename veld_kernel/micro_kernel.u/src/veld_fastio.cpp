#include "veld_fifo.h"

#include <cstdio>

#include "veld.h"
#include "veld_io_elt_impl.h"

namespace {

const char* const kNoSpaceToWrite =
    "Output buffer fatal error : StartWriting has no space where to write. Check that each call to StartWriting "
    "has its corresponding call to StopWriting.";
const char* const kFifoReaderLost =
    "VELDFastIO fatal error : Trouble with a FIFO reader. Couldn't find its data (X%u). Please contact the "
    "technical support team.";
const char* const kSamplingReaderLost =
    "VELDFastIO fatal error : Trouble with a sampling reader. Couldn't find its data (X%u). Please contact the "
    "technical support team.";
const char* const kNoSpaceToRead =
    "VELDFastIO fatal error : VELDFastIO monitor has no space where to read (X%u). Please contact the technical "
    "support team.";
const char* const kStopWithoutStart = "VELDFastIO fatal error : Stop reading without starting (X%u)";
const char* const kRateNotRegistered =
    "VELDFastIO fatal error : trying to set the subsampling rate for a reader that has never been registered "
    "before.";
const char* const kRateNotFifo = "VELDFastIO fatal error : SetSubsamplingRate works only with FIFO readers.";
const char* const kRateOutOfRange =
    "VELDFastIO fatal error: Output subsampling rate must be an integer in the range between 1 and 256 included.";
const char* const kTypeNotRegistered =
    "VELDFastIO fatal error : trying to set the reader type for a reader that has never been registered before.";
const char* const kTypeNotFifo = "VELDFastIO fatal error : SetReaderType works only with FIFO readers.";

// Results of the blocked writer's wait, by position in its list of events.
const int kSlotReleased = 0;
const int kAborted = 1;
const int kCancelled = 2;

}  // namespace

using namespace VELDFastIOSlot;

template <class T>
VELDFastIO<T>::VELDFastIO(VELDEvent* abort, int fifoSize, int subsampling, OverflowCallback callback,
                          VELDOutput* context)
    : condition(nullptr), allReadEvent(false, nullptr), slotReleasedEvent(false, nullptr),
      writeCancelEvent(false, nullptr), abortEvent(abort), reserved(0),
      // A period below 1 would never publish anything.
      subsamplingPeriod(subsampling < 1 ? 1 : subsampling), subsamplingCountdown(subsamplingPeriod),
      registeredMask(0), fifoMask(0), neverSkippingMask(0), lastOrNextMask(0), writeTimeout(-1), readerParam(),
      overflowCallback(callback), overflowContext(context)
{
    condition = new VELDCondition2(&mutex, abortEvent, -1);
    ResetFifoSize(fifoSize);
}

template <class T>
VELDFastIO<T>::~VELDFastIO()
{
    delete condition;
    condition = nullptr;
    ring.Clear();
}

template <class T>
T& VELDFastIO<T>::operator[](VELDListIterator slot)
{
    return ItemOf(slot)->value.elt;
}

template <class T>
VELDListIterator VELDFastIO<T>::InitBegin()
{
    return VELDListIterator(ring.First());
}

template <class T>
bool VELDFastIO<T>::InitNext(VELDListIterator& slot)
{
    ++slot;
    return slot.ptr != nullptr;
}

template <class T>
VELDListIterator VELDFastIO<T>::SlotOf(Slot* slot)
{
    // The slot is the value of its list item, at a fixed offset; the item has
    // no virtual base, so the offset is a constant.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    const std::size_t offset = offsetof(Item, value);
#pragma GCC diagnostic pop
    if (!slot) return VELDListIterator();
    return VELDListIterator(reinterpret_cast<Item*>(reinterpret_cast<char*>(slot) - offset));
}

template <class T>
void VELDFastIO<T>::Fatal(const char* format, VELDUInt32 bit)
{
    mutex.Release();
    char text[256];
    std::snprintf(text, sizeof text, format, static_cast<unsigned>(bit));
    VELD::ReportError(text, 1);
    throw VELD::ErrorException;
}

// ---------------------------------------------------------------------------
// The writer

template <class T>
VELDListIterator VELDFastIO<T>::StartWriting(VELDMutex* handover)
{
    mutex.Lock();
    if (handover) handover->Release();
    for (;;) {
        // From the oldest slot towards the newest: a free slot is taken at
        // once; slots held by the writer or by readers are stepped over; the
        // first published slot is the candidate.
        Item* item = ring.LastItem();
        while (item && item->value.state != Free && item->value.state != Published)
            item = static_cast<Item*>(item->predecessor);
        if (!item) break;
        Slot& slot = item->value;
        if (slot.state == Published && slot.readMask != fifoMask) {
            if ((neverSkippingMask & slot.readMask) == neverSkippingMask) {
                // Only plain readers miss it: they lose this element.
                if (overflowCallback) overflowCallback(overflowContext);
            } else {
                // A never-skipping reader still needs it: wait until the
                // never-skipping readers move on. The resets come before the
                // release, so no release in between can be missed.
                slotReleasedEvent.Reset();
                writeCancelEvent.Reset();
                const long timeout = writeTimeout;
                mutex.Release();
                int result;
                if (abortEvent) {
                    VELDEvent* events[3] = {&slotReleasedEvent, abortEvent, &writeCancelEvent};
                    result = VELDEvent::Wait(3, events, timeout);
                } else {
                    VELDEvent* events[2] = {&slotReleasedEvent, &writeCancelEvent};
                    result = VELDEvent::Wait(2, events, timeout);
                    if (result == 1) result = kCancelled;
                }
                mutex.Lock();
                if (result == kSlotReleased) continue;
                if (result == kAborted) {
                    mutex.Release();
                    throw VELD::ModuleDied;
                }
                if (result == kCancelled) {
                    mutex.Release();
                    return VELDListIterator();
                }
                if (result == VELD::TimeOut) {
                    mutex.Release();
                    throw VELD::TimeOut;
                }
            }
        }
        slot.state = Writing;
        mutex.Release();
        return VELDListIterator(item);
    }
    // Every slot is held by the writer or by readers, or there is none.
    if (overflowCallback) overflowCallback(overflowContext);
    mutex.Release();
    VELD::ReportError(kNoSpaceToWrite, 1);
    throw VELD::ErrorException;
}

template <class T>
bool VELDFastIO<T>::StopWriting(VELDListIterator position, bool discard)
{
    mutex.Lock();
    Item* item = ItemOf(position);
    bool published = false;
    if (discard || subsamplingCountdown-- != 1) {
        item->value.state = Free;
    } else {
        ring.MoveToFirst(item);
        item->value.state = Published;
        item->value.readMask = 0;
        condition->Signal();
        subsamplingCountdown = subsamplingPeriod;
        published = true;
    }
    mutex.Release();
    return published;
}

// ---------------------------------------------------------------------------
// The readers

template <class T>
typename VELDFastIO<T>::Item* VELDFastIO<T>::NewestWithData() const
{
    Item* item = ring.FirstItem();
    while (item && !HasData(item)) item = static_cast<Item*>(item->successor);
    return item;
}

template <class T>
void VELDFastIO<T>::MarkRead(Item* item, VELDUInt32 bit)
{
    VELDUInt32& readMask = item->value.readMask;
    readMask |= bit;
    if (neverSkippingMask && (readMask & neverSkippingMask) == neverSkippingMask) slotReleasedEvent.Set();
}

template <class T>
typename VELDFastIO<T>::Item* VELDFastIO<T>::NextForFifoReader(VELDUInt32 bit)
{
    // `mark` is the newest element that this reader has read or skipped.
    Item* newest = nullptr;
    Item* mark = nullptr;
    for (Item* item = ring.FirstItem(); item; item = static_cast<Item*>(item->successor)) {
        if (!HasData(item)) continue;
        if (!newest) newest = item;
        if (item->value.readMask & bit) {
            mark = item;
            break;
        }
    }
    if (!newest || mark == newest) return nullptr;

    if (!(lastOrNextMask & bit)) {
        // The next element after the mark, or, when all that the reader had
        // is gone, the oldest one there is.
        Item* item = mark ? static_cast<Item*>(mark->predecessor) : ring.LastItem();
        while (!HasData(item)) item = static_cast<Item*>(item->predecessor);
        return item;
    }
    // A last-or-next reader takes the newest and skips the rest, oldest
    // first.
    Item* item = mark ? static_cast<Item*>(mark->predecessor) : ring.LastItem();
    for (; item != newest; item = static_cast<Item*>(item->predecessor))
        if (HasData(item)) MarkRead(item, bit);
    return newest;
}

template <class T>
VELDListIterator VELDFastIO<T>::Take(Item* item, VELDUInt32 bit, bool fifoReader)
{
    Slot& slot = item->value;
    slot.readingMask |= bit;
    if (fifoReader) slot.readMask |= bit;
    slot.state = Reading;
    mutex.Release();
    return VELDListIterator(item);
}

template <class T>
void VELDFastIO<T>::ArmWait(int reader, VELDEvent** wakeEvent, VELDEvent** abort)
{
    condition->WaitX(reader, wakeEvent, abort);
}

template <class T>
int VELDFastIO<T>::StartReadingX(int reader, VELDEvent** wakeEvent, VELDEvent** abort, VELDListIterator* slot)
{
    const int r = reader & 31;
    const VELDUInt32 bit = 1u << r;
    mutex.Lock();
    Item* item = nullptr;
    if (fifoMask & bit) {
        item = NextForFifoReader(bit);
    } else if (readerParam[r] == VELD::SamplingReader) {
        item = NewestWithData();
    } else if (readerParam[r] != VELD::Wait4NextReader) {
        mutex.Release();
        return 1;
    }
    if (!item) {
        ArmWait(r, wakeEvent, abort);
        return 0;
    }
    *slot = Take(item, bit, (fifoMask & bit) != 0);
    return 1;
}

template <class T>
VELDListIterator VELDFastIO<T>::AchieveStartReadingX(int reader, int waitResult)
{
    const int r = reader & 31;
    const VELDUInt32 bit = 1u << r;
    condition->AchieveWaitX(r, waitResult);
    if (fifoMask & bit) {
        Item* item = NextForFifoReader(bit);
        if (!item) Fatal(kFifoReaderLost, bit);
        return Take(item, bit, true);
    }
    const int type = readerParam[r];
    if (type != VELD::Wait4NextReader && type != VELD::SamplingReader) {
        mutex.Release();
        return VELDListIterator();
    }
    // The newest element now, which may be later than the one that woke us.
    Item* item = NewestWithData();
    if (!item) Fatal(type == VELD::SamplingReader ? kSamplingReaderLost : kNoSpaceToRead, bit);
    return Take(item, bit, false);
}

template <class T>
void VELDFastIO<T>::Release(Item* item, VELDUInt32 bit)
{
    Slot& slot = item->value;
    slot.readingMask &= ~bit;
    if (slot.readingMask) return;
    slot.state = Published;
    if ((fifoMask & bit) && slot.readMask == fifoMask) allReadEvent.Set();
    // A writer may be waiting for the never-skipping readers to be done with
    // this slot; it tests the slot again when woken.
    if (neverSkippingMask && (slot.readMask & neverSkippingMask) == neverSkippingMask)
        slotReleasedEvent.Set();
}

template <class T>
void VELDFastIO<T>::StopReading(int reader)
{
    const VELDUInt32 bit = 1u << (reader & 31);
    mutex.Lock();
    for (Item* item = ring.FirstItem(); item; item = static_cast<Item*>(item->successor)) {
        if (item->value.state == Reading && (item->value.readingMask & bit)) {
            Release(item, bit);
            mutex.Release();
            return;
        }
    }
    Fatal(kStopWithoutStart, bit);
}

template <class T>
void VELDFastIO<T>::StopReading(int reader, VELDListIterator position)
{
    const VELDUInt32 bit = 1u << (reader & 31);
    mutex.Lock();
    Item* item = ItemOf(position);
    if (!item || !(item->value.readingMask & bit)) Fatal(kStopWithoutStart, bit);
    Release(item, bit);
    mutex.Release();
}

// ---------------------------------------------------------------------------
// Settings

template <class T>
void VELDFastIO<T>::SetSubsamplingRate(int reader, int rate)
{
    const int r = reader & 31;
    const VELDUInt32 bit = 1u << r;
    mutex.Lock();
    if (!(registeredMask & bit)) Fatal(kRateNotRegistered, bit);
    if (!(fifoMask & bit)) Fatal(kRateNotFifo, bit);
    if (rate < 1 || rate > 256) Fatal(kRateOutOfRange, bit);
    readerParam[r] = static_cast<unsigned char>(rate - 1);
    mutex.Release();
}

template <class T>
void VELDFastIO<T>::SetReaderType(int reader, int type)
{
    const VELDUInt32 bit = 1u << (reader & 31);
    mutex.Lock();
    if (!(registeredMask & bit)) Fatal(kTypeNotRegistered, bit);
    if (!(fifoMask & bit)) Fatal(kTypeNotFifo, bit);
    neverSkippingMask &= ~bit;
    lastOrNextMask &= ~bit;
    if (type == VELD::NeverSkippingReader) neverSkippingMask |= bit;
    if (type == VELD::LastOrNextReader) lastOrNextMask |= bit;
    // A writer blocked on this reader may go on now.
    slotReleasedEvent.Set();
    mutex.Release();
}

template <class T>
void VELDFastIO<T>::ResetFifoSize(int size)
{
    mutex.Lock();
    ring.Clear();
    for (int i = 0; i < size; ++i) ring.Append();
    mutex.Release();
}

// ---------------------------------------------------------------------------
// Queries

template <class T>
bool VELDFastIO<T>::DataAvailableInFIFO(int reader)
{
    const VELDUInt32 bit = 1u << (reader & 31);
    mutex.Lock();
    Item* newest = NewestWithData();
    bool available = newest && (!(fifoMask & bit) || !(newest->value.readMask & bit));
    mutex.Release();
    return available;
}

template <class T>
int VELDFastIO<T>::NbDataAvailableInFIFO(int reader)
{
    const VELDUInt32 bit = 1u << (reader & 31);
    const VELDUInt32 ignored = (fifoMask & bit) ? bit : 0;
    int count = 0;
    mutex.Lock();
    for (Item* item = ring.FirstItem(); item; item = static_cast<Item*>(item->successor))
        if (HasData(item) && !(item->value.readMask & ignored)) ++count;
    mutex.Release();
    return count;
}

template <class T>
bool VELDFastIO<T>::PrepareHandshake()
{
    mutex.Lock();
    Item* newest = NewestWithData();
    const bool allRead = !newest || newest->value.readMask == fifoMask;
    // The next read that completes an element sets the event again.
    if (!allRead) allReadEvent.Reset();
    mutex.Release();
    return allRead;
}

template <class T>
bool VELDFastIO<T>::IsFIFOEmpty()
{
    bool empty = true;
    mutex.Lock();
    for (Item* item = ring.FirstItem(); item && empty; item = static_cast<Item*>(item->successor)) {
        const Slot& slot = item->value;
        if (slot.state == Reading || (slot.state == Published && slot.readMask != fifoMask)) empty = false;
    }
    mutex.Release();
    return empty;
}

template <class T>
bool VELDFastIO<T>::IsFIFOFull()
{
    bool full = true;
    mutex.Lock();
    for (Item* item = ring.LastItem(); item; item = static_cast<Item*>(item->predecessor)) {
        const Slot& slot = item->value;
        if (slot.state == Free) {
            full = false;
            break;
        }
        if (slot.state == Published) {
            full = slot.readMask != fifoMask;
            break;
        }
    }
    mutex.Release();
    return full;
}

template <class T>
int VELDFastIO<T>::NbFreeSlotsInFIFO()
{
    int count = 0;
    mutex.Lock();
    for (Item* item = ring.FirstItem(); item; item = static_cast<Item*>(item->successor)) {
        const Slot& slot = item->value;
        if (slot.state == Free || (slot.state == Published && slot.readMask == fifoMask)) ++count;
    }
    mutex.Release();
    return count;
}

template class VELDFastIO<VELDIOEltImplementation>;
