#include "veld_io_elt_impl.h"

#include <cstring>
#include <new>

#include "veld.h"
#include "veld_containers.h"
#include "veld_io_records.h"
#include "veld_private.h"

namespace {

const char* const kNullElement =
    "Check error : A NULL I/O Element was disregarded by a component (probably due a detachment not taken into "
    "account).";
const char* const kBadTyping = "Check error : Incorrect typing during I/O element access.";
const char* const kBadIndex = "Check error : Bad vector index during I/O element access.";

const unsigned int kUnknownSize = 0xFFFFFFFFu;

// How a type lays out its payload, for the size rules.
enum class Layout { Items, Text, Matrix, IplImage, Image, Audio, Triangles, Structure, Custom };

struct SizeRule {
    const VELDTypeFilterBase* filter;
    Layout layout;
    int itemSize;  // bytes of one item, for Items and Text
};

// Tried from top to bottom; the first filter that accepts the type decides.
// The unsigned rows come before the stream rows that share their bits.
const SizeRule kSizeRules[] = {
    {&VELD::FilterInteger8, Layout::Items, 1},
    {&VELD::FilterInteger16, Layout::Items, 2},
    {&VELD::FilterInteger32, Layout::Items, 4},
    {&VELD::FilterInteger64, Layout::Items, 8},
    {&VELD::FilterUnsignedInteger8, Layout::Items, 1},
    {&VELD::FilterUnsignedInteger16, Layout::Items, 2},
    {&VELD::FilterUnsignedInteger32, Layout::Items, 4},
    {&VELD::FilterUnsignedInteger64, Layout::Items, 8},
    {&VELD::FilterFloat32, Layout::Items, 4},
    {&VELD::FilterFloat64, Layout::Items, 8},
    {&VELD::FilterTextAscii, Layout::Text, 1},
    {&VELD::FilterTextUnicode, Layout::Items, 2},
    {&VELD::FilterCANFrame, Layout::Items, 24},
    {&VELD::FilterCANFDFrame, Layout::Items, 80},
    {&VELD::FilterCANUniFrame, Layout::Items, 96},
    {&VELD::FilterMatrix, Layout::Matrix, 0},
    {&VELD::FilterIplImage, Layout::IplImage, 0},
    {&VELD::FilterVELDImage, Layout::Image, 0},
    {&VELD::FilterRealObjects, Layout::Items, VELD::RealObjectSize},
    {&VELD::FilterDrawingObjects, Layout::Items, VELD::DrawingObjectSize},
    {&VELD::FilterStream8, Layout::Items, 1},
    {&VELD::FilterStream16, Layout::Items, 2},
    {&VELD::FilterStream32, Layout::Items, 4},
    {&VELD::FilterAudioSignal, Layout::Audio, 0},
    {&VELD::FilterTriangles3D, Layout::Triangles, 0},
    {&VELD::FilterStructure, Layout::Structure, 0},
    {&VELD::FilterCustomType, Layout::Custom, 0},
};

const SizeRule* RuleFor(const VELDTypeInfo& type)
{
    for (const SizeRule& rule : kSizeRules)
        if (VELD::TypeFilter(type, *rule.filter)) return &rule;
    return nullptr;
}

// One copy moves the whole payload.
bool IsFlat(Layout layout)
{
    return layout == Layout::Items || layout == Layout::Text || layout == Layout::Structure;
}

// What a structured header in use occupies with the blocks it points at.
VELDInt64 UsedBytes(Layout layout, const void* data, VELDInt64 v)
{
    switch (layout) {
    case Layout::Matrix: {
        const VELDMatrix* m = static_cast<const VELDMatrix*>(data);
        VELDInt64 cells = static_cast<VELDInt64>(m->rows) * m->columns;
        return VELD::MatrixHeaderSize + 8 * cells * ((m->re ? 1 : 0) + (m->im ? 1 : 0));
    }
    case Layout::IplImage: {
        const _IplImage* image = static_cast<const _IplImage*>(data);
        VELDInt64 header = image->roi ? VELD::IplImageHeaderSize + VELD::IplROISize : VELD::IplImageHeaderSize;
        return header + (image->imageData ? image->imageSize : 0);
    }
    case Layout::Image: {
        const VELDImage* image = static_cast<const VELDImage*>(data);
        return VELD::VELDImageHeaderSize + (image->imageData ? image->imageSize : 0);
    }
    case Layout::Audio:
        return static_cast<VELDInt64>(static_cast<const VELDAudioSignal*>(data)->streamSizeInBytes) +
               VELD::AudioSignalHeaderSize;
    case Layout::Triangles: {
        const VELDTriangles3D* mesh = static_cast<const VELDTriangles3D*>(data);
        return VELD::Triangles3DHeaderSize + (mesh->objects ? VELD::Object3DSize * v : 0) +
               (mesh->points ? VELD::Point3DSize * v : 0) + (mesh->triangles ? VELD::Triangle3DSize * v : 0);
    }
    default:
        return 0;
    }
}

// What a full payload of b items takes; kUnknownSize for a custom type, b
// for a type that matches no rule.
VELDInt64 FullBytes(const SizeRule* rule, VELDInt64 b)
{
    if (!rule) return b;
    switch (rule->layout) {
    case Layout::Items:
        return rule->itemSize * b;
    case Layout::Text:
    case Layout::Structure:
        return b;
    case Layout::Custom:
        return kUnknownSize;
    case Layout::Matrix:
        return 16 * b + VELD::MatrixHeaderSize;
    case Layout::IplImage:
        return b + VELD::IplImageHeaderSize + VELD::IplROISize;
    case Layout::Image:
        return b + VELD::VELDImageHeaderSize;
    case Layout::Audio:
        return b + VELD::AudioSignalHeaderSize;
    case Layout::Triangles:
        return (VELD::Point3DSize + VELD::Triangle3DSize + VELD::Object3DSize) * b + VELD::Triangles3DHeaderSize;
    }
    return 0;
}

}  // namespace

VELDIOEltImplementation::VELDIOEltImplementation()
    : data(nullptr), bufferSize(0), vectorSize(0), timestamp(0), timeOfIssue(0), type(), frequency(0), quality(0),
      output(nullptr), fastElt(nullptr), bufferItemSize(0), misc1(0), misc2(0), misc3(0), ownedData(nullptr)
{
}

VELDIOEltImplementation::~VELDIOEltImplementation() { VELD::FreeSharedMemory(ownedData); }

// ---------------------------------------------------------------------------
// The access check

void VELDIOEltImplementation::CheckAccess(const VELDTypeFilterBase& global, bool indexed, int index)
{
    // A private copy: a filter may build its expressions on first use, and
    // the global ones are shared by every thread.
    VELDTypeFilterBase filter(global);
    if (!VELD::TypeFilter(type, filter)) VELDPrivate::KernelError(kBadTyping, 2);
    if (indexed && index >= bufferSize) VELDPrivate::KernelError(kBadIndex, 2);
}

void VELDIOEltImplementation::Check(VELDIOElt* element, const VELDTypeFilterBase& filter)
{
    if (VELD::CheckLevel() < 1) return;
    if (!element) VELDPrivate::KernelError(kNullElement, 2);
    if (!VELD::TypeFilter(element->Type(), filter)) VELDPrivate::KernelError(kBadTyping, 2);
}

void VELDIOEltImplementation::Check(VELDIOElt* element, const VELDTypeFilterBase& filter, int index)
{
    if (VELD::CheckLevel() < 1) return;
    if (!element) VELDPrivate::KernelError(kNullElement, 2);
    if (!VELD::TypeFilter(element->Type(), filter)) VELDPrivate::KernelError(kBadTyping, 2);
    if (index >= element->BufferSize()) VELDPrivate::KernelError(kBadIndex, 2);
}

// The accessors stand on every component's hot path: they ask the kernel
// for the check level once per access.
template <class R>
R* VELDIOEltImplementation::Checked(const VELDTypeFilterBase& filter)
{
    if (VELD::CheckLevel() >= 1) CheckAccess(filter, false, 0);
    return static_cast<R*>(data);
}

template <class R>
R* VELDIOEltImplementation::CheckedItem(const VELDTypeFilterBase& filter, int index, int itemSize)
{
    if (VELD::CheckLevel() >= 1) CheckAccess(filter, true, index);
    return reinterpret_cast<R*>(static_cast<char*>(data) + static_cast<long>(index) * itemSize);
}

// ---------------------------------------------------------------------------
// Typed accessors

VELDInt32* VELDIOEltImplementation::Integer32(int i) { return CheckedItem<VELDInt32>(VELD::FilterIntegers32, i, 4); }
VELDInt64* VELDIOEltImplementation::Integer64(int i) { return CheckedItem<VELDInt64>(VELD::FilterIntegers64, i, 8); }
VELDFloat64* VELDIOEltImplementation::Float64(int i) { return CheckedItem<VELDFloat64>(VELD::FilterFloats64, i, 8); }
VELDFloat32* VELDIOEltImplementation::Float32(int i) { return CheckedItem<VELDFloat32>(VELD::FilterFloats32, i, 4); }
VELDCANFrame* VELDIOEltImplementation::CANFrame(int i) { return CheckedItem<VELDCANFrame>(VELD::FilterCANFrame, i, 24); }

VELDRealObject* VELDIOEltImplementation::RealObject(int i)
{
    return CheckedItem<VELDRealObject>(VELD::FilterRealObjects, i, VELD::RealObjectSize);
}

VELDDrawingObject* VELDIOEltImplementation::DrawingObject(int i)
{
    return CheckedItem<VELDDrawingObject>(VELD::FilterDrawingObjects, i, VELD::DrawingObjectSize);
}

char* VELDIOEltImplementation::Text() { return Checked<char>(VELD::FilterTextAscii); }
char* VELDIOEltImplementation::TextAscii() { return Checked<char>(VELD::FilterTextAscii); }
VELDUInt16* VELDIOEltImplementation::TextUnicode() { return Checked<VELDUInt16>(VELD::FilterTextUnicode); }
_IplImage* VELDIOEltImplementation::IplImage() { return Checked<_IplImage>(VELD::FilterIplImage); }
::VELDImage* VELDIOEltImplementation::VELDImage() { return Checked<::VELDImage>(VELD::FilterVELDImage); }
VELDMatrix* VELDIOEltImplementation::Matrix() { return Checked<VELDMatrix>(VELD::FilterMatrix); }
VELDTriangles3D* VELDIOEltImplementation::Triangles3D() { return Checked<VELDTriangles3D>(VELD::FilterTriangles3D); }
VELDUInt8* VELDIOEltImplementation::Stream8() { return Checked<VELDUInt8>(VELD::FilterStream8); }
VELDUInt16* VELDIOEltImplementation::Stream16() { return Checked<VELDUInt16>(VELD::FilterStream16); }
VELDUInt32* VELDIOEltImplementation::Stream32() { return Checked<VELDUInt32>(VELD::FilterStream32); }
VELDAudioSignal* VELDIOEltImplementation::AudioSignal() { return Checked<VELDAudioSignal>(VELD::FilterAudioSignal); }

// ---------------------------------------------------------------------------
// Sizes

unsigned int VELDIOEltImplementation::SizeInBytes(bool* flat, bool used)
{
    if (!data) return 0;
    const SizeRule* rule = RuleFor(type);
    const VELDInt64 b = bufferSize;
    const VELDInt64 v = vectorSize;
    if (!rule) return used ? kUnknownSize : static_cast<unsigned int>(b);
    if (flat) *flat = IsFlat(rule->layout);
    if (!used) return static_cast<unsigned int>(FullBytes(rule, b));

    switch (rule->layout) {
    case Layout::Items:
        return static_cast<unsigned int>(rule->itemSize * v);
    case Layout::Text:  // the terminating zero counts when it fits
        return static_cast<unsigned int>(v < b ? v + 1 : b);
    case Layout::Structure:  // the whole buffer, whatever is in use
        return static_cast<unsigned int>(b);
    case Layout::Custom:
        return kUnknownSize;
    default:
        return static_cast<unsigned int>(UsedBytes(rule->layout, data, v));
    }
}

unsigned int VELDIOEltImplementation::IOEltBufferSizeInBytes(bool* flat) { return SizeInBytes(flat, false); }
unsigned int VELDIOEltImplementation::IOEltUsedSizeInBytes(bool* flat) { return SizeInBytes(flat, true); }

// ---------------------------------------------------------------------------
// The serialized element, version 102: a native dump, the fields one after
// the other with no padding, in the machine's byte order.
//
//   0 version   4 bufferSize   8 vectorSize   12 timestamp   20 timeOfIssue
//   28 type value   36 N, then the type name and its zero when N > 0
//   U, then the unit and its zero when U > 0
//   frequency (8), quality, misc1, misc2, misc3 (4 each), then the payload
//
// Versions 100 and below have no timeOfIssue: the type value stands at 20.
// A structured payload is its header record, whose pointer fields hold the
// addresses that its blocks had in the destination, then those blocks.

namespace {

const VELDInt32 kFormatVersion = 102;
const VELDInt32 kNamedVersion = 101;  // what the refusal of a newer version calls current
const VELDInt32 kLastOlderHead = 100;
const unsigned int kFailure = 0xFFFFFFFFu;
// The head around the two texts: version to type value, then the two lengths
// to misc3.
const VELDUInt64 kHeadBeforeTexts = 36;
const VELDUInt64 kHeadAfterTexts = 32;

const char* const kTooSmall = "VELDIOElt serialization is not possible : destination memory is too small.";
const char* const kSerializeCustom = "VELDIOElt serialization not supported for custom types.";
const char* const kSerializeUnknown = "VELDIOElt serialization impossible : unknown type for VELDIOElt.";
const char* const kSourceNull = "VELDIOElt deserialization impossible : source pointer is NULL";
const char* const kNotAllocated = "VELDIOElt deserialization impossible : destination is not allocated properly.";
const char* const kBufferBigger =
    "VELDIOElt deserialization impossible : deserialized buffer size is bigger than allocated buffer size.";
const char* const kVectorBigger =
    "VELDIOElt deserialization impossible : deserialized vector size is bigger than allocated buffer size.";
const char* const kNoMemory = "VELDIOelt deserialization impossible : not enough memory.";
const char* const kDeserializeCustom = "VELDIOElt deserialization not supported for custom types.";
// Blocks of known length: what an element of trusted origin never says.
const char* const kTruncated = "VELDIOElt deserialization impossible : the source ends before the element does.";
const char* const kNegative = "VELDIOElt deserialization impossible : negative size or length in the source.";
const char* const kDoesNotFit = "VELDIOElt deserialization impossible : deserialized data do not fit the allocated buffer.";

unsigned int Refuse(const char* message)
{
    VELD::ReportError(message, 0);
    return kFailure;
}

// The bytes of a matrix header as they stand in memory (VELDMatrix has a
// virtual destructor, so its table pointer leads).
struct MatrixRecord {
    const void* table;
    VELDInt32 rows;
    VELDInt32 columns;
    double* re;
    double* im;
    bool owner;
};
static_assert(sizeof(MatrixRecord) == sizeof(VELDMatrix) && sizeof(MatrixRecord) == VELD::MatrixHeaderSize,
              "a matrix header is a 40-byte record");

class ByteWriter {
public:
    explicit ByteWriter(void* destination) : m_start(static_cast<unsigned char*>(destination)), m_at(m_start) {}

    template <class T>
    void Put(const T& value)
    {
        Put(&value, sizeof value);
    }
    // Where the bytes went.
    unsigned char* Put(const void* bytes, std::size_t n)
    {
        unsigned char* where = m_at;
        if (n) std::memcpy(m_at, bytes, n);
        m_at += n;
        return where;
    }
    void PutText(const VELDString* text)
    {
        const VELDInt32 n = text ? text->Length() : 0;
        Put(n);
        if (n) Put(text->Beginning(), static_cast<std::size_t>(n) + 1);
    }
    // A block of `n` bytes that is there only when `from` is.
    unsigned char* PutBlock(const void* from, VELDInt64 n)
    {
        return from ? Put(from, static_cast<std::size_t>(n > 0 ? n : 0)) : nullptr;
    }
    VELDUInt64 Written() const { return static_cast<VELDUInt64>(m_at - m_start); }

private:
    unsigned char* m_start;
    unsigned char* m_at;
};

// Stores `address` into the copy of a record, at the place that `field` has
// in the record itself.
void PatchPointer(unsigned char* copy, const void* record, const void* field, const void* address)
{
    const std::size_t offset =
        static_cast<std::size_t>(static_cast<const unsigned char*>(field) - static_cast<const unsigned char*>(record));
    std::memcpy(copy + offset, &address, sizeof address);
}

class ByteReader {
public:
    ByteReader(const void* source, std::size_t size) : m_at(static_cast<const unsigned char*>(source)), m_left(size)
    {
    }

    template <class T>
    bool Get(T& value)
    {
        const unsigned char* bytes = Take(sizeof value);
        if (bytes) std::memcpy(&value, bytes, sizeof value);
        return bytes != nullptr;
    }
    // The next `n` bytes, or null when the source ends before.
    const unsigned char* Take(VELDUInt64 n)
    {
        if (n > m_left) return nullptr;
        const unsigned char* bytes = m_at;
        m_at += n;
        m_left -= static_cast<std::size_t>(n);
        return bytes;
    }
    // The next block of `n` bytes into `to`, when the block is in the source
    // (`stored`) and has a place in the element (`to`); `copied` of them.
    bool Block(bool stored, void* to, VELDUInt64 n, VELDUInt64 copied)
    {
        if (!stored) return true;
        const unsigned char* bytes = Take(n);
        if (bytes && to && copied) std::memcpy(to, bytes, static_cast<std::size_t>(copied));
        return bytes != nullptr;
    }
    bool AtEnd() const { return m_left == 0; }

private:
    const unsigned char* m_at;
    std::size_t m_left;
};

struct StoredText {
    const unsigned char* bytes = nullptr;
    VELDInt32 length = 0;
};

struct StoredHead {
    VELDInt32 bufferSize = 0;
    VELDInt32 vectorSize = 0;
    VELDTimestamp timestamp = 0;
    VELDTypeInfoValue type = 0;
    StoredText name;
    StoredText unit;
    VELDInt64 frequency = 0;
    VELDInt32 quality = 0;
    VELDInt32 misc[3] = {0, 0, 0};
};

const char* ReadText(ByteReader& in, StoredText& text)
{
    if (!in.Get(text.length)) return kTruncated;
    if (text.length < 0) return kNegative;
    if (text.length == 0) return nullptr;
    text.bytes = in.Take(static_cast<VELDUInt64>(text.length) + 1);
    return text.bytes ? nullptr : kTruncated;
}

// The head after its version; null when it was read whole.
const char* ReadHead(ByteReader& in, VELDInt32 version, StoredHead& head)
{
    VELDTimestamp timeOfIssue = 0;  // not restored: the element keeps its own
    if (!in.Get(head.bufferSize) || !in.Get(head.vectorSize) || !in.Get(head.timestamp) ||
        (version > kLastOlderHead && !in.Get(timeOfIssue)) || !in.Get(head.type))
        return kTruncated;
    if (const char* failure = ReadText(in, head.name)) return failure;
    if (const char* failure = ReadText(in, head.unit)) return failure;
    if (!in.Get(head.frequency) || !in.Get(head.quality) || !in.Get(head.misc[0]) || !in.Get(head.misc[1]) ||
        !in.Get(head.misc[2]))
        return kTruncated;
    if (head.bufferSize < 0 || head.vectorSize < 0) return kNegative;
    return nullptr;
}

// A stored name or unit replaces the element's; none empties an existing one
// and leaves a missing one missing.
void Replace(VELDString*& text, const StoredText& stored)
{
    if (stored.length == 0) {
        if (text) *text = "";
        return;
    }
    if (!text) text = new VELDString();
    VELDString copy(stored.length, true);
    std::memcpy(&copy[0], stored.bytes, static_cast<std::size_t>(stored.length));
    *text = copy;
}

// What the payload of a structured element takes in a serialized block:
// its blocks whole, by bufferSize, whatever is in use.
VELDUInt64 WrittenPayload(Layout layout, const void* data, VELDInt64 b)
{
    b = b > 0 ? b : 0;
    auto bytes = [](VELDInt64 n) { return static_cast<VELDUInt64>(n > 0 ? n : 0); };
    switch (layout) {
    case Layout::Matrix: {
        const VELDMatrix* m = static_cast<const VELDMatrix*>(data);
        return VELD::MatrixHeaderSize + 8 * b * ((m->re ? 1 : 0) + (m->im ? 1 : 0));
    }
    case Layout::IplImage: {
        const _IplImage* image = static_cast<const _IplImage*>(data);
        return VELD::IplImageHeaderSize + (image->roi ? VELD::IplROISize : 0) +
               (image->imageData ? bytes(image->imageSize) : 0);
    }
    case Layout::Image: {
        const VELDImage* image = static_cast<const VELDImage*>(data);
        return VELD::VELDImageHeaderSize + (image->imageData ? bytes(image->imageSize) : 0);
    }
    case Layout::Audio: {
        const VELDAudioSignal* audio = static_cast<const VELDAudioSignal*>(data);
        return VELD::AudioSignalHeaderSize + (audio->streamData ? audio->streamSizeInBytes : 0);
    }
    case Layout::Triangles: {
        const VELDTriangles3D* mesh = static_cast<const VELDTriangles3D*>(data);
        return VELD::Triangles3DHeaderSize + b * ((mesh->objects ? VELD::Object3DSize : 0) +
                                                  (mesh->points ? VELD::Point3DSize : 0) +
                                                  (mesh->triangles ? VELD::Triangle3DSize : 0));
    }
    default:
        return 0;
    }
}

// Writes a structured payload: its header, with the addresses that its blocks
// get in the destination, then the blocks. Returns what the result counts,
// from the destination's start: a mesh's last block is written but not
// counted.
VELDUInt64 WriteStructured(Layout layout, const void* data, VELDInt64 b, ByteWriter& out)
{
    switch (layout) {
    case Layout::Matrix: {
        const VELDMatrix* m = static_cast<const VELDMatrix*>(data);
        unsigned char* header = out.Put(data, VELD::MatrixHeaderSize);
        PatchPointer(header, m, &m->re, out.PutBlock(m->re, 8 * b));
        PatchPointer(header, m, &m->im, out.PutBlock(m->im, 8 * b));
        return out.Written();
    }
    case Layout::IplImage: {
        const _IplImage* image = static_cast<const _IplImage*>(data);
        unsigned char* header = out.Put(data, VELD::IplImageHeaderSize);
        PatchPointer(header, image, &image->roi, out.PutBlock(image->roi, VELD::IplROISize));
        PatchPointer(header, image, &image->imageData, out.PutBlock(image->imageData, image->imageSize));
        return out.Written();
    }
    case Layout::Image: {
        const VELDImage* image = static_cast<const VELDImage*>(data);
        unsigned char* header = out.Put(data, VELD::VELDImageHeaderSize);
        PatchPointer(header, image, &image->imageData, out.PutBlock(image->imageData, image->imageSize));
        return out.Written();
    }
    case Layout::Audio: {
        const VELDAudioSignal* audio = static_cast<const VELDAudioSignal*>(data);
        unsigned char* header = out.Put(data, VELD::AudioSignalHeaderSize);
        PatchPointer(header, audio, &audio->streamData, out.PutBlock(audio->streamData, audio->streamSizeInBytes));
        return out.Written();
    }
    case Layout::Triangles: {
        const VELDTriangles3D* mesh = static_cast<const VELDTriangles3D*>(data);
        unsigned char* header = out.Put(data, VELD::Triangles3DHeaderSize);
        PatchPointer(header, mesh, &mesh->objects, out.PutBlock(mesh->objects, VELD::Object3DSize * b));
        PatchPointer(header, mesh, &mesh->points, out.PutBlock(mesh->points, VELD::Point3DSize * b));
        const VELDUInt64 counted = out.Written();
        PatchPointer(header, mesh, &mesh->triangles, out.PutBlock(mesh->triangles, VELD::Triangle3DSize * b));
        return counted;
    }
    default:
        return 0;
    }
}

// Reads a structured payload into the element. With `laidOut` the payload
// was just allocated and the blocks get their places in it; otherwise the
// element keeps its own block pointers (and the other pointers of its
// header) and a block without one is skipped. `storedBuffer` is the stored
// bufferSize, by which a matrix's blocks follow each other in the source.
const char* ReadStructured(VELDIOEltImplementation& elt, Layout layout, ByteReader& in, bool laidOut,
                           VELDInt64 storedBuffer)
{
    unsigned char* data = static_cast<unsigned char*>(elt.data);
    const VELDInt64 b = elt.bufferSize;
    const VELDInt64 v = elt.vectorSize;
    auto fits = [&](VELDInt64 bytes, VELDInt64 capacity) -> const char* {
        return bytes < 0 ? kNegative : bytes > capacity ? kDoesNotFit : nullptr;
    };
    switch (layout) {
    case Layout::Matrix: {
        MatrixRecord stored;
        if (!in.Get(stored)) return kTruncated;
        if (stored.rows < 0 || stored.columns < 0) return kNegative;
        const VELDInt64 cells = static_cast<VELDInt64>(stored.rows) * stored.columns;
        if (cells > storedBuffer) return kDoesNotFit;
        // The element's own header object, with its table and its owner flag.
        VELDMatrix* m = laidOut ? new (data) VELDMatrix() : reinterpret_cast<VELDMatrix*>(data);
        if (laidOut) {
            m->re = stored.re ? reinterpret_cast<double*>(data + VELD::MatrixHeaderSize) : nullptr;
            m->im = stored.im ? reinterpret_cast<double*>(data + VELD::MatrixHeaderSize + 8 * cells) : nullptr;
        }
        m->rows = stored.rows;
        m->columns = stored.columns;
        const VELDUInt64 block = 8 * static_cast<VELDUInt64>(storedBuffer);
        const VELDUInt64 copied = 8 * static_cast<VELDUInt64>(cells);
        return in.Block(stored.re, m->re, block, copied) && in.Block(stored.im, m->im, block, copied) ? nullptr
                                                                                                         : kTruncated;
    }
    case Layout::IplImage: {
        _IplImage stored;
        if (!in.Get(stored)) return kTruncated;
        _IplImage* image = reinterpret_cast<_IplImage*>(data);
        _IplImage result = stored;
        if (laidOut) {
            result.roi = stored.roi ? reinterpret_cast<IplROI*>(data + VELD::IplImageHeaderSize) : nullptr;
            const int pixels = VELD::IplImageHeaderSize + (stored.roi ? VELD::IplROISize : 0);
            result.imageData = stored.imageData ? reinterpret_cast<char*>(data + pixels) : nullptr;
            result.imageDataOrigin = result.imageData;
            result.maskROI = nullptr;
            result.imageId = nullptr;
            result.tileInfo = nullptr;
        } else {
            result.roi = image->roi;
            result.imageData = image->imageData;
            result.imageDataOrigin = image->imageDataOrigin;
            result.maskROI = image->maskROI;
            result.imageId = image->imageId;
            result.tileInfo = image->tileInfo;
        }
        if (result.imageData)
            if (const char* failure = fits(stored.imageSize, b)) return failure;
        *image = result;
        const VELDUInt64 pixels = stored.imageData ? static_cast<VELDUInt64>(stored.imageSize) : 0;
        return in.Block(stored.roi, image->roi, VELD::IplROISize, VELD::IplROISize) &&
                       in.Block(stored.imageData, image->imageData, pixels, pixels)
                   ? nullptr
                   : kTruncated;
    }
    case Layout::Image: {
        VELDImage stored;
        if (!in.Get(stored)) return kTruncated;
        VELDImage* image = reinterpret_cast<VELDImage*>(data);
        unsigned char* pixels = laidOut ? (stored.imageData ? data + VELD::VELDImageHeaderSize : nullptr)
                                        : image->imageData;
        if (pixels)
            if (const char* failure = fits(stored.imageSize, b)) return failure;
        *image = stored;
        image->imageData = pixels;
        const VELDUInt64 n = stored.imageData ? static_cast<VELDUInt64>(stored.imageSize) : 0;
        return in.Block(stored.imageData, pixels, n, n) ? nullptr : kTruncated;
    }
    case Layout::Audio: {
        VELDAudioSignal stored;
        if (!in.Get(stored)) return kTruncated;
        VELDAudioSignal* audio = reinterpret_cast<VELDAudioSignal*>(data);
        unsigned char* samples = laidOut ? (stored.streamData ? data + VELD::AudioSignalHeaderSize : nullptr)
                                         : audio->streamData;
        // Counted in the used size with or without samples.
        if (const char* failure = fits(stored.streamSizeInBytes, b)) return failure;
        *audio = stored;
        audio->streamData = samples;
        return in.Block(stored.streamData, samples, stored.streamSizeInBytes, stored.streamSizeInBytes) ? nullptr
                                                                                                         : kTruncated;
    }
    case Layout::Triangles: {
        VELDTriangles3D stored;
        if (!in.Get(stored)) return kTruncated;
        VELDTriangles3D* mesh = reinterpret_cast<VELDTriangles3D*>(data);
        VELDTriangles3D places = laidOut ? stored : *mesh;
        if (laidOut) {
            unsigned char* blocks = data + VELD::Triangles3DHeaderSize;
            places.objects = stored.objects ? reinterpret_cast<VELDObject3D*>(blocks) : nullptr;
            places.points = stored.points ? reinterpret_cast<VELDPoint3D*>(blocks + VELD::Object3DSize * b) : nullptr;
            places.triangles = stored.triangles ? reinterpret_cast<VELDTriangle3D*>(
                                                      blocks + (VELD::Object3DSize + VELD::Point3DSize) * b)
                                                : nullptr;
        }
        *mesh = stored;
        mesh->objects = places.objects;
        mesh->points = places.points;
        mesh->triangles = places.triangles;
        // The source is read by vectorSize, block after block.
        const VELDUInt64 objects = VELD::Object3DSize * v, points = VELD::Point3DSize * v,
                         triangles = VELD::Triangle3DSize * v;
        return in.Block(stored.objects, mesh->objects, objects, objects) &&
                       in.Block(stored.points, mesh->points, points, points) &&
                       in.Block(stored.triangles, mesh->triangles, triangles, triangles)
                   ? nullptr
                   : kTruncated;
    }
    default:
        return nullptr;
    }
}

}  // namespace

unsigned int VELDIOEltImplementation::Serialize(void* destination, unsigned int capacity)
{
    const SizeRule* rule = data ? RuleFor(type) : nullptr;
    VELDUInt64 used = data ? IOEltUsedSizeInBytes(nullptr) : 0;
    // A type of unknown size has its head written; its payload then fails.
    if (used == kUnknownSize) used = 0;
    auto textBytes = [](const VELDString* text) -> VELDUInt64 {
        return text && text->Length() > 0 ? static_cast<VELDUInt64>(text->Length()) + 1 : 0;
    };
    const VELDUInt64 head = kHeadBeforeTexts + textBytes(type.name) + textBytes(type.unit) + kHeadAfterTexts;
    const VELDUInt64 size = head + used;
    if (!destination) return size < kFailure ? static_cast<unsigned int>(size) : kFailure;
    if (size > capacity) return kFailure;

    ByteWriter out(destination);
    out.Put(kFormatVersion);
    out.Put(bufferSize);
    out.Put(vectorSize);
    out.Put(timestamp);
    out.Put(timeOfIssue);
    out.Put(type.value);
    out.PutText(type.name);
    out.PutText(type.unit);
    out.Put(frequency);
    out.Put(quality);
    out.Put(misc1);
    out.Put(misc2);
    out.Put(misc3);
    if (!data) return static_cast<unsigned int>(head);

    // A matrix or a mesh writes its blocks whole, whatever is in use.
    const bool flat = !rule || IsFlat(rule->layout);
    const VELDUInt64 payload = flat ? used : WrittenPayload(rule->layout, data, bufferSize);
    if (payload > capacity - head) return Refuse(kTooSmall);
    if (!rule) return Refuse(kSerializeUnknown);
    if (rule->layout == Layout::Custom) return Refuse(kSerializeCustom);
    if (flat) {
        out.Put(data, static_cast<std::size_t>(used));
        return static_cast<unsigned int>(head + used);
    }
    return static_cast<unsigned int>(WriteStructured(rule->layout, data, bufferSize, out));
}

unsigned int VELDIOEltImplementation::Deserialize(void* source, bool allocate)
{
    return Deserialize(source, static_cast<std::size_t>(-1), allocate);
}

unsigned int VELDIOEltImplementation::Deserialize(const void* source, std::size_t size, bool allocate)
{
    if (!source) return Refuse(kSourceNull);
    ByteReader in(source, size);
    VELDInt32 version = 0;
    if (!in.Get(version)) return Refuse(kTruncated);
    if (version > kFormatVersion) {
        VELDStreamedString text;
        text << "Wrong binary format version for VELDIOElt, received = " << version << ", current = " << kNamedVersion;
        return Refuse(text);
    }
    if (!data && !allocate) return Refuse(kNotAllocated);
    StoredHead head;
    if (const char* failure = ReadHead(in, version, head)) return Refuse(failure);

    // What the payload in place can take: only a payload of the same kind.
    const SizeRule* former = data ? RuleFor(type) : nullptr;
    const bool formerFlat = !former || IsFlat(former->layout);
    const VELDInt64 capacity = data && formerFlat ? FullBytes(former, bufferSize) : 0;
    if (data) {
        if (head.bufferSize > bufferSize) return Refuse(kBufferBigger);
    } else {
        bufferSize = head.bufferSize;
    }
    if (head.vectorSize > bufferSize) return Refuse(kVectorBigger);

    vectorSize = head.vectorSize;
    timestamp = head.timestamp;
    type.value = head.type;
    Replace(type.name, head.name);
    Replace(type.unit, head.unit);
    frequency = head.frequency;
    quality = head.quality;
    misc1 = head.misc[0];
    misc2 = head.misc[1];
    misc3 = head.misc[2];

    const SizeRule* rule = RuleFor(type);
    if (rule && rule->layout == Layout::Custom) return Refuse(kDeserializeCustom);
    const bool flat = !rule || IsFlat(rule->layout);
    // A payload in place takes only a payload of its own kind, within its
    // buffer: also when the block brings none, the element must hold what
    // its head now says.
    if (data) {
        const bool sameKind = flat ? formerFlat : former && former->layout == rule->layout;
        if (!sameKind || (flat && rule && IOEltUsedSizeInBytes(nullptr) > capacity)) return Refuse(kDoesNotFit);
    }
    bool laidOut = false;
    if (!data) {
        const VELDInt64 needed = FullBytes(rule, bufferSize);
        void* block = VELD::AllocSharedMemory(static_cast<std::size_t>(needed));
        if (!block) return Refuse(kNoMemory);
        // An empty payload until the block fills it: a header without blocks.
        std::memset(block, 0, static_cast<std::size_t>(needed));
        if (rule && rule->layout == Layout::Matrix) new (block) VELDMatrix();
        VELD::FreeSharedMemory(ownedData);
        data = ownedData = block;
        laidOut = true;
    }
    // A head without payload: what an element without data writes.
    if (in.AtEnd()) return 0;
    if (!rule) return kFailure;

    if (flat) {
        const unsigned int used = IOEltUsedSizeInBytes(nullptr);
        const unsigned char* bytes = in.Take(used);
        if (!bytes) return Refuse(kTruncated);
        std::memcpy(data, bytes, used);
        if (rule->layout == Layout::Text && vectorSize < bufferSize) static_cast<char*>(data)[vectorSize] = 0;
        return 0;
    }
    const char* failure = ReadStructured(*this, rule->layout, in, laidOut, head.bufferSize);
    return failure ? Refuse(failure) : 0;
}

// ---------------------------------------------------------------------------
// Static helpers of the interface

bool VELDIOElt::IsDeserializable(void*)
{
    VELD::ReportWarning("VELDIOElt::IsDeserializable not implemented yet. Returns always true.", 0);
    return true;
}

int VELDIOElt::SerializedIOEltSizeInBytes(void* element)
{
    if (!element) return -1;
    const VELDIOEltImplementation& elt = *static_cast<const VELDIOEltImplementation*>(element);
    const void* header = &elt + 1;
    const VELDInt64 v = elt.vectorSize;
    const VELDInt64 b = elt.bufferSize;
    // The size rules in their order, but for real and drawing objects, audio
    // and structures, which count their bufferSize like any type that
    // matches no rule.
    for (const SizeRule& rule : kSizeRules) {
        if (rule.filter == &VELD::FilterRealObjects || rule.filter == &VELD::FilterDrawingObjects ||
            rule.layout == Layout::Audio || rule.layout == Layout::Structure || !VELD::TypeFilter(elt.type, *rule.filter))
            continue;
        switch (rule.layout) {
        case Layout::Items:
        case Layout::Text:  // without its terminating zero
            return static_cast<int>(rule.itemSize * v);
        case Layout::Matrix: {
            const VELDMatrix* m = static_cast<const VELDMatrix*>(header);
            return static_cast<int>(VELD::MatrixHeaderSize + 8 * b * ((m->re ? 1 : 0) + (m->im ? 1 : 0)));
        }
        case Layout::IplImage: {
            const _IplImage* image = static_cast<const _IplImage*>(header);
            return (image->roi ? VELD::IplImageHeaderSize + VELD::IplROISize : VELD::IplImageHeaderSize) +
                   (image->imageData ? image->imageSize : 0);
        }
        case Layout::Image: {
            const ::VELDImage* image = static_cast<const ::VELDImage*>(header);
            return 8 + (image->imageData ? image->imageSize : 0);
        }
        case Layout::Triangles: {
            const VELDTriangles3D* mesh = static_cast<const VELDTriangles3D*>(header);
            return static_cast<int>(VELD::Triangles3DHeaderSize + (mesh->objects ? VELD::Object3DSize * v : 0) +
                                    (mesh->points ? VELD::Point3DSize * v : 0) +
                                    (mesh->triangles ? VELD::Triangle3DSize * v : 0));
        }
        default:
            return -1;
        }
    }
    return static_cast<int>(b);
}
