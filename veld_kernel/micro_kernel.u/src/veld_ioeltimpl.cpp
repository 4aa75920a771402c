#include "veld_io_elt_impl.h"

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

// What a full structured payload of b items takes.
VELDInt64 FullBytes(Layout layout, VELDInt64 b)
{
    switch (layout) {
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
    default:
        return 0;
    }
}

}  // namespace

VELDIOEltImplementation::VELDIOEltImplementation()
    : data(nullptr), bufferSize(0), vectorSize(0), timestamp(0), timeOfIssue(0), type(), frequency(0), quality(0),
      output(nullptr), fastElt(nullptr), bufferItemSize(0), misc1(0), misc2(0), misc3(0)
{
}

VELDIOEltImplementation::~VELDIOEltImplementation() {}

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
// for the check level directly.
template <class R>
R* VELDIOEltImplementation::Checked(const VELDTypeFilterBase& filter)
{
    if (VELDPrivate::kernel->CheckLevel() >= 1) CheckAccess(filter, false, 0);
    return static_cast<R*>(data);
}

template <class R>
R* VELDIOEltImplementation::CheckedItem(const VELDTypeFilterBase& filter, int index, int itemSize)
{
    if (VELDPrivate::kernel->CheckLevel() >= 1) CheckAccess(filter, true, index);
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
    const VELDInt64 v = used ? vectorSize : b;
    if (!rule) return used ? kUnknownSize : static_cast<unsigned int>(b);

    bool isFlat = true;
    VELDInt64 bytes = 0;
    switch (rule->layout) {
    case Layout::Items:
        bytes = rule->itemSize * v;
        break;
    case Layout::Text:  // the terminating zero counts when it fits
        bytes = used && v < b ? v + 1 : b;
        break;
    case Layout::Structure:  // the whole buffer, whatever is in use
        bytes = b;
        break;
    case Layout::Custom:
        if (flat) *flat = false;
        return kUnknownSize;
    default:
        isFlat = false;
        bytes = used ? UsedBytes(rule->layout, data, v) : FullBytes(rule->layout, b);
        break;
    }
    if (flat) *flat = isFlat;
    return static_cast<unsigned int>(bytes);
}

unsigned int VELDIOEltImplementation::IOEltBufferSizeInBytes(bool* flat) { return SizeInBytes(flat, false); }
unsigned int VELDIOEltImplementation::IOEltUsedSizeInBytes(bool* flat) { return SizeInBytes(flat, true); }

// ---------------------------------------------------------------------------
// Serialized form: not carried by this runtime yet

unsigned int VELDIOEltImplementation::Serialize(void*, unsigned int)
{
    VELDPrivate::Report("VELDIOElt::Serialize is not available in this runtime.", VELD::Error, 1, true);
    return 0;
}

unsigned int VELDIOEltImplementation::Deserialize(void*, bool)
{
    VELDPrivate::Report("VELDIOElt::Deserialize is not available in this runtime.", VELD::Error, 1, true);
    return kUnknownSize;
}
