#include "veld_output_impl.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "veld.h"
#include "veld_io_records.h"
#include "veld_private.h"

namespace {

const char* const kAlreadyInitialized = "Output buffer already initialized. Can't initialize an output buffer twice.";

// How a type's payload is laid out when the whole buffer is allocated.
enum class Payload { Zeroed, Untouched, Matrix, IplImage, Image, Triangles, Audio };

struct AllocationRule {
    const VELDTypeFilterBase* filter;
    int itemSize;    // bytes per item
    int headerSize;  // bytes before the items
    int minItems;    // below this nothing is allocated
    bool vectorCheck;
    bool sizeInBytes;  // bufferSizeItems is -1: the capacity counts bytes
    bool text;         // an empty text: vectorSize stays 0
    Payload payload;
};

// Tried from top to bottom on the output's type; the last row takes the rest.
const AllocationRule kAllocationRules[] = {
    {&VELD::FilterIntegers8, 1, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterIntegers16, 2, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterIntegers32, 4, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterUnsignedIntegers8, 1, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterIntegers64, 8, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterUnsignedIntegers16, 2, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterUnsignedIntegers32, 4, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterUnsignedIntegers64, 8, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterFloat32, 4, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterFloat64, 8, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterTextAscii, 1, 0, 1, false, false, true, Payload::Zeroed},
    {&VELD::FilterTextUnicode, 2, 0, 1, false, false, true, Payload::Zeroed},
    {&VELD::FilterCANFrame, 24, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterCANFDFrame, 80, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterCANUniFrame, 96, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterMatrix, 16, VELD::MatrixHeaderSize, 1, false, false, false, Payload::Matrix},
    {&VELD::FilterIplImage, 1, VELD::IplImageHeaderSize + VELD::IplROISize, 2, false, true, false, Payload::IplImage},
    {&VELD::FilterVELDImage, 1, VELD::VELDImageHeaderSize, 2, false, true, false, Payload::Image},
    {&VELD::FilterRealObjects, VELD::RealObjectSize, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterDrawingObjects, VELD::DrawingObjectSize, 0, 1, true, false, false, Payload::Zeroed},
    {&VELD::FilterTriangles3D, VELD::Point3DSize + VELD::Triangle3DSize + VELD::Object3DSize,
     VELD::Triangles3DHeaderSize, 1, false, false, false, Payload::Triangles},
    {&VELD::FilterStream8, 1, 0, 1, false, false, false, Payload::Zeroed},
    {&VELD::FilterStream16, 2, 0, 1, false, false, false, Payload::Zeroed},
    {&VELD::FilterStream32, 4, 0, 1, false, false, false, Payload::Zeroed},
    {&VELD::FilterAudioSignal, 1, VELD::AudioSignalHeaderSize, 2, false, true, false, Payload::Audio},
    {nullptr, 1, 0, 1, false, false, false, Payload::Untouched},
};

const AllocationRule& AllocationRuleFor(const VELDTypeInfo& type)
{
    const AllocationRule* rule = kAllocationRules;
    while (rule->filter && !VELD::TypeFilter(type, *rule->filter)) ++rule;
    return *rule;
}

// The structured payloads of AllocOutputBuffer, for an element of `items`.
void LayOutPayload(Payload payload, unsigned char* data, int items, std::size_t bytes)
{
    const std::size_t n = static_cast<std::size_t>(items);
    switch (payload) {
    case Payload::Zeroed:
        std::memset(data, 0, bytes);
        break;
    case Payload::Untouched:
        break;
    case Payload::Matrix: {
        VELDMatrix* matrix = new (data) VELDMatrix();
        matrix->re = reinterpret_cast<double*>(data + VELD::MatrixHeaderSize);
        matrix->im = reinterpret_cast<double*>(data + VELD::MatrixHeaderSize + 8 * n);
        std::memset(matrix->re, 0, 8 * n);
        std::memset(matrix->im, 0, 8 * n);
        break;
    }
    case Payload::IplImage: {
        _IplImage* image = reinterpret_cast<_IplImage*>(data);
        std::memset(image, 0, sizeof(_IplImage));
        std::memcpy(image->colorModel, "????", 4);
        std::memcpy(image->channelSeq, "????", 4);
        image->imageData = reinterpret_cast<char*>(data + VELD::IplImageHeaderSize + VELD::IplROISize);
        image->roi = reinterpret_cast<IplROI*>(data + VELD::IplImageHeaderSize);
        std::memset(image->roi, 0, sizeof(IplROI));
        break;
    }
    case Payload::Image: {
        VELDImage* image = reinterpret_cast<VELDImage*>(data);
        std::memset(image, 0, sizeof(VELDImage));
        image->bufferSize = items;
        image->imageData = data + VELD::VELDImageHeaderSize;
        std::memcpy(image->imageCoding, "????", 4);
        break;
    }
    case Payload::Triangles: {
        VELDTriangles3D* mesh = reinterpret_cast<VELDTriangles3D*>(data);
        std::memset(mesh, 0, sizeof(VELDTriangles3D));
        unsigned char* blocks = data + VELD::Triangles3DHeaderSize;
        mesh->points = reinterpret_cast<VELDPoint3D*>(blocks);
        mesh->triangles = reinterpret_cast<VELDTriangle3D*>(blocks + VELD::Point3DSize * n);
        mesh->objects = reinterpret_cast<VELDObject3D*>(blocks + (VELD::Point3DSize + VELD::Triangle3DSize) * n);
        break;
    }
    case Payload::Audio: {
        VELDAudioSignal* audio = reinterpret_cast<VELDAudioSignal*>(data);
        std::memset(audio, 0, sizeof(VELDAudioSignal));
        audio->streamSizeInBytes = static_cast<VELDUInt32>(items);
        audio->streamData = data + VELD::AudioSignalHeaderSize;
        break;
    }
    }
}

[[noreturn]] void Fail(const VELDStreamedString& text) { VELDPrivate::KernelError(text, 2); }

// "<what> [<value>] < 0" for a negative argument.
void FailIfNegative(const char* what, int value)
{
    if (value >= 0) return;
    VELDStreamedString text;
    text << what << " [" << value << "] < 0";
    Fail(text);
}

// A payload that starts with a header record begins on a boundary that the
// record's pointers can stand on: its stride is rounded up to 8 bytes, while
// the output still reports the payload's own size.
VELDInt64 HeaderStride(VELDInt64 bytes) { return (bytes + 7) & ~VELDInt64(7); }

// Calls fill(element, payload, i) for the first `count` slots from the head,
// the payload of slot i lying at i x stride in `block` (null without block).
template <class Fill>
void ForEachSlot(VELDIOMonitorImplementation* monitor, int count, unsigned char* block, VELDInt64 stride, Fill fill)
{
    int i = 0;
    for (VELDListIterator it = monitor->InitBegin(); it.ptr && i < count; monitor->InitNext(it), ++i)
        fill((*monitor)[it], block ? block + static_cast<std::size_t>(i) * static_cast<std::size_t>(stride) : nullptr,
             i);
}

}  // namespace

// ---------------------------------------------------------------------------
// Shared memory: plain aligned heap blocks

namespace VELD {

void* AllocSharedMemory(std::size_t bytes)
{
    void* block = nullptr;
    // A block of no bytes is still a block: a null means failure only.
    if (posix_memalign(&block, 64, bytes ? bytes : 1) != 0) return nullptr;
    return block;
}

void FreeSharedMemory(void* block) { std::free(block); }

}  // namespace VELD

// ---------------------------------------------------------------------------

VELDOutputImplementation::VELDOutputImplementation(const char* fullName, const VELDOutputDefinition& def,
                                                   VELDEvent* deathEvent)
    : name(fullName), monitor(nullptr), sharedMemory(nullptr), definition(def), nbFifoOverflows(0),
      bufferSizeItems(0), eltSizeBytes(0), periodic(false), timestampHistory(), timestampIndex(0),
      nbSequentialInputs(0), sharedMemoryBytes(0)
{
    monitor = VELDIOMonitorImplementation::CreateMonitor(deathEvent, this, definition.fifoSize,
                                                         definition.subsampling);
}

VELDOutputImplementation::~VELDOutputImplementation()
{
    FreeBuffer();
    delete monitor;
    monitor = nullptr;
}

void VELDOutputImplementation::Rename(const char* oldPrefix, const char* newPrefix)
{
    VELD::RenameModulePart(name, oldPrefix, newPrefix);
}

void VELDOutputImplementation::AddSequentialInput(const VELDSequentialReader& reader)
{
    VELDMutexGuard guard(mutex);
    sequentialInputs.Append(reader);
    nbSequentialInputs = sequentialInputs.Length();
}

bool VELDOutputImplementation::RemoveSequentialInput(VELDInput* input)
{
    VELDMutexGuard guard(mutex);
    for (VELDBasicListItem* it = sequentialInputs.First(); it; it = it->successor) {
        if (VELDList<VELDSequentialReader>::Value(it).input == input) {
            sequentialInputs.Remove(it);
            nbSequentialInputs = sequentialInputs.Length();
            return true;
        }
    }
    return false;
}

// ---------------------------------------------------------------------------
// Allocation

void VELDOutputImplementation::AllocateSharedMemory(std::size_t bytes)
{
    sharedMemory = nullptr;
    const VELDUInt64 slots = static_cast<VELDUInt64>(static_cast<VELDInt64>(definition.fifoSize));
    VELDUInt64 total = 0;
    if (__builtin_mul_overflow(slots, static_cast<VELDUInt64>(bytes), &total)) {
        VELDStreamedString text;
        text << "AllocateSharedMemory:63: Requested buffer size [" << static_cast<unsigned long>(bytes)
             << "] is too big given the current FIFO size [" << definition.fifoSize << "] of output [" << name
             << "]. Please reduce the requested output buffer size and/or the output FIFO size such that "
                "(buffer_size * fifo_size) <= 18446744073709551615 (i.e. std::numeric_limits<size_t>::max)";
        Fail(text);
    }
    sharedMemory = static_cast<unsigned char*>(VELD::AllocSharedMemory(total));
    sharedMemoryBytes = sharedMemory ? total : 0;
    if (!sharedMemory) {
        VELDStreamedString text;
        text << "AllocateSharedMemory:107: Failed to allocate [buffer_size:" << static_cast<unsigned long>(bytes)
             << " x fifo_size:" << definition.fifoSize << " = " << static_cast<unsigned long>(total)
             << "] bytes for output [" << name << "]";
        Fail(text);
    }
}

void VELDOutputImplementation::FreeBuffer()
{
    std::memset(timestampHistory, 0, sizeof timestampHistory);
    if (sharedMemory) {
        // Elements that pointed into the block point nowhere now; memory that
        // a component hung on an element stays its own.
        const unsigned char* end = sharedMemory + sharedMemoryBytes;
        for (VELDListIterator it = monitor ? monitor->InitBegin() : VELDListIterator(); it.ptr; monitor->InitNext(it)) {
            unsigned char* data = static_cast<unsigned char*>((*monitor)[it].data);
            if (data >= sharedMemory && data < end) (*monitor)[it].data = nullptr;
        }
        VELD::FreeSharedMemory(sharedMemory);
    }
    sharedMemory = nullptr;
    sharedMemoryBytes = 0;
    bufferSizeItems = 0;
}

void VELDOutputImplementation::CheckVectorFlag(int items, const VELDOutputDefinition& def)
{
    if (items == 1 || (def.type.value & VELD::VectorFlag)) return;
    VELDStreamedString text;
    text << "Output " << (def.name ? def.name : "") << " is a vector but its vector flag is not set.";
    VELDPrivate::Report(text, 2, 0, true);
}

void VELDOutputImplementation::PrepareElements()
{
    for (VELDListIterator it = monitor->InitBegin(); it.ptr; monitor->InitNext(it)) {
        VELDIOEltImplementation& elt = (*monitor)[it];
        elt.bufferSize = 0;
        elt.frequency = 0;
        elt.quality = 0;
        elt.misc1 = elt.misc2 = elt.misc3 = 0;
        elt.type = definition.type;
        elt.data = nullptr;
    }
}

void VELDOutputImplementation::CheckNotInitialized(int verbosity)
{
    if (bufferSizeItems != 0) VELDPrivate::KernelError(kAlreadyInitialized, verbosity);
}

void VELDOutputImplementation::CheckAllocated()
{
    if (sharedMemory) return;
    VELDStreamedString text;
    text << "Output : " << name << " : Not enough memory to allocate output buffer.";
    Fail(text);
}

void VELDOutputImplementation::AllocOutputBuffer(int items, bool allocate)
{
    FailIfNegative("AllocOutputBuffer:150: isize", items);
    CheckNotInitialized(1);
    PrepareElements();
    const AllocationRule& rule = AllocationRuleFor(definition.type);
    // Too small to hold anything: the elements stay empty, and a later
    // allocation is still possible.
    if (items < rule.minItems) return;
    if (rule.vectorCheck) CheckVectorFlag(items, definition);

    const VELDInt64 bytes = static_cast<VELDInt64>(rule.itemSize) * items + rule.headerSize;
    const VELDInt64 stride = rule.headerSize ? HeaderStride(bytes) : bytes;
    bufferSizeItems = rule.sizeInBytes ? -1 : items;
    eltSizeBytes = static_cast<VELDInt32>(bytes);
    if (allocate) {
        AllocateSharedMemory(static_cast<std::size_t>(stride));
        CheckAllocated();
    }
    ForEachSlot(monitor, definition.fifoSize, sharedMemory, stride,
                [&](VELDIOEltImplementation& elt, unsigned char* data, int) {
                    elt.bufferSize = items;
                    if (!data) return;
                    elt.data = data;
                    elt.vectorSize = rule.text ? 0 : items;
                    LayOutPayload(rule.payload, data, items, static_cast<std::size_t>(bytes));
                });
}

void VELDOutputImplementation::AllocOutputBufferMatrix(int rows, int columns)
{
    FailIfNegative("AllocOutputBufferMatrix:445: m", rows);
    FailIfNegative("AllocOutputBufferMatrix:446: n", columns);
    CheckNotInitialized(2);
    PrepareElements();
    // The count of cells is a 32-bit figure; the bytes are counted in 64.
    const VELDInt32 cells = static_cast<VELDInt32>(static_cast<VELDUInt32>(rows) * static_cast<VELDUInt32>(columns));
    const VELDInt64 stride = 16 * static_cast<VELDInt64>(cells) + VELD::MatrixHeaderSize;
    AllocateSharedMemory(static_cast<std::size_t>(stride));
    CheckAllocated();
    eltSizeBytes = static_cast<VELDInt32>(stride);
    ForEachSlot(monitor, definition.fifoSize, sharedMemory, stride,
                [&](VELDIOEltImplementation& elt, unsigned char* data, int) {
                    elt.data = data;
                    elt.bufferSize = cells;
                    LayOutPayload(Payload::Matrix, data, cells, static_cast<std::size_t>(stride));
                    VELDMatrix* matrix = static_cast<VELDMatrix*>(elt.data);
                    matrix->rows = rows;
                    matrix->columns = columns;
                });
    bufferSizeItems = cells;
}

void VELDOutputImplementation::AllocOutputBufferImage(int items, int width, int height, unsigned int coding,
                                                      unsigned int imageType, bool external)
{
    FailIfNegative("AllocOutputBufferImage:582: isize", items);
    FailIfNegative("AllocOutputBufferImage:584: w", width);
    FailIfNegative("AllocOutputBufferImage:585: h", height);
    CheckNotInitialized(2);
    PrepareElements();
    // External pixels: the elements get only their headers, while the
    // reported element size stays that of a full image.
    const VELDInt64 stride =
        HeaderStride(external ? VELD::VELDImageHeaderSize : static_cast<VELDInt64>(items) + VELD::VELDImageHeaderSize);
    AllocateSharedMemory(static_cast<std::size_t>(stride));
    CheckAllocated();
    ForEachSlot(monitor, definition.fifoSize, sharedMemory, stride,
                [&](VELDIOEltImplementation& elt, unsigned char* data, int i) {
                    elt.data = data;
                    elt.bufferSize = items;
                    VELDImage* image = reinterpret_cast<VELDImage*>(data);
                    image->width = width;
                    image->height = height;
                    image->imageSize = items;
                    image->bufferSize = items;
                    image->imageId = i;
                    image->imageId2 = VELD::RingImageMark;
                    std::memcpy(image->imageCoding, &coding, 4);
                    std::memcpy(image->imageType, &imageType, 4);
                    image->imageData = external ? nullptr : data + VELD::VELDImageHeaderSize;
                });
    bufferSizeItems = -1;
    eltSizeBytes = items + VELD::VELDImageHeaderSize;
}

void VELDOutputImplementation::AllocOutputBufferVELDImage(int items, int width, int height, unsigned int coding,
                                                          unsigned int imageType, bool external)
{
    AllocOutputBufferImage(items, width, height, coding, imageType, external);
}

void VELDOutputImplementation::AllocOutputBufferIplImage(const _IplImage& model, bool external)
{
    CheckNotInitialized(2);
    PrepareElements();
    if (!external && model.imageSize < 0) {
        VELDStreamedString text;
        text << "AllocOutputBufferIplImage:546: model.imageSize [" << model.imageSize << "] < 0";
        Fail(text);
    }
    const VELDInt64 full = static_cast<VELDInt64>(model.imageSize) + model.align + VELD::IplImageHeaderSize +
                           VELD::IplROISize;
    const VELDInt64 stride = HeaderStride(external ? VELD::IplImageHeaderSize + VELD::IplROISize : full);
    AllocateSharedMemory(static_cast<std::size_t>(stride));
    CheckAllocated();
    ForEachSlot(monitor, definition.fifoSize, sharedMemory, stride,
                [&](VELDIOEltImplementation& elt, unsigned char* data, int) {
        elt.data = data;
        _IplImage* image = reinterpret_cast<_IplImage*>(data);
        std::memcpy(image, &model, sizeof(_IplImage));
        if (!external) {
            char* origin = reinterpret_cast<char*>(data + VELD::IplImageHeaderSize + VELD::IplROISize);
            image->imageDataOrigin = origin;
            // The next aligned address strictly after the origin; the stride
            // holds `align` bytes of room for it. No alignment asked: the
            // origin itself.
            const long align = model.align;
            image->imageData =
                align > 0 ? origin + align - static_cast<long>(reinterpret_cast<VELDUInt64>(origin) % align) : origin;
        } else {
            image->imageData = nullptr;
        }
        image->roi = reinterpret_cast<IplROI*>(data + VELD::IplImageHeaderSize);
        image->roi->coi = image->roi->xOffset = image->roi->yOffset = 0;
        image->roi->width = model.width;
        image->roi->height = model.height;
        elt.bufferSize = model.imageSize;
    });
    bufferSizeItems = -1;
    eltSizeBytes = static_cast<VELDInt32>(full);
}

void VELDOutputImplementation::AllocOutputBufferAudioSignal(const VELDAudioSignal& model)
{
    CheckNotInitialized(2);
    PrepareElements();
    const VELDInt64 bytes = static_cast<VELDInt64>(model.streamSizeInBytes) + VELD::AudioSignalHeaderSize;
    const VELDInt64 stride = HeaderStride(bytes);
    AllocateSharedMemory(static_cast<std::size_t>(stride));
    CheckAllocated();
    ForEachSlot(monitor, definition.fifoSize, sharedMemory, stride,
                [&](VELDIOEltImplementation& elt, unsigned char* data, int) {
                    elt.data = data;
                    VELDAudioSignal* audio = reinterpret_cast<VELDAudioSignal*>(data);
                    std::memcpy(audio, &model, sizeof(VELDAudioSignal));
                    audio->streamData = data + VELD::AudioSignalHeaderSize;
                    elt.bufferSize = static_cast<VELDInt32>(model.streamSizeInBytes);
                });
    bufferSizeItems = -1;
    eltSizeBytes = static_cast<VELDInt32>(bytes);
}
