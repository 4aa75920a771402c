// The one concrete element. It lives inside a ring slot of an output's FIFO
// for the whole life of the ring; the output's allocation prepares it once,
// and every StartWriting reuses it. The payload memory is the output's.
#ifndef VELD_IO_ELT_IMPL_H
#define VELD_IO_ELT_IMPL_H

#include <cstddef>

#include "veld_io_elt.h"
#include "veld_object_types.h"

class VELDOutput;
template <class T>
class VELDFastIOElt;

class VELDIOEltImplementation : public VELDIOElt {
public:
    VELDIOEltImplementation();
    VELDIOEltImplementation(const VELDIOEltImplementation&) = delete;
    VELDIOEltImplementation& operator=(const VELDIOEltImplementation&) = delete;
    ~VELDIOEltImplementation() override;

    void*& Data() override { return data; }
    VELDTimestamp& TimeOfIssue() override { return timeOfIssue; }
    VELDTimestamp& Timestamp() override { return timestamp; }
    int& VectorSize() override { return vectorSize; }
    int& BufferSize() override { return bufferSize; }
    VELDInt64& Frequency() override { return frequency; }
    VELDInt32& Quality() override { return quality; }
    VELDTypeInfo& Type() override { return type; }
    int& BufferItemSize() override { return bufferItemSize; }
    VELDInt32* Integer32(int i) override;
    VELDInt64* Integer64(int i) override;
    VELDFloat64* Float64(int i) override;
    VELDFloat32* Float32(int i) override;
    char* Text() override;
    char* TextAscii() override;
    VELDUInt16* TextUnicode() override;
    _IplImage* IplImage() override;
    ::VELDImage* VELDImage() override;
    VELDCANFrame* CANFrame(int i) override;
    VELDMatrix* Matrix() override;
    VELDRealObject* RealObject(int i) override;
    VELDDrawingObject* DrawingObject(int i) override;
    VELDTriangles3D* Triangles3D() override;
    VELDUInt8* Stream8() override;
    VELDUInt16* Stream16() override;
    VELDUInt32* Stream32() override;
    VELDAudioSignal* AudioSignal() override;
    VELDInt32& Misc1() override { return misc1; }
    VELDInt32& Misc2() override { return misc2; }
    VELDInt32& Misc3() override { return misc3; }
    unsigned int IOEltBufferSizeInBytes(bool* flat) override;
    unsigned int IOEltUsedSizeInBytes(bool* flat) override;
    unsigned int Serialize(void* destination, unsigned int capacity) override;
    // Reads a block whose end nobody knows: the block is trusted to hold the
    // element that its head describes.
    unsigned int Deserialize(void* source, bool allocate) override;
    // The same from a block of `size` bytes: nothing is read past it, and a
    // block that ends where its head ends is an element without payload.
    unsigned int Deserialize(const void* source, std::size_t size, bool allocate);

    // The access check, for code that holds an element of unknown origin: a
    // null element, a type that the filter refuses, an index at or past
    // bufferSize each report and throw VELD::ErrorException. Below check
    // level 1 nothing is tested.
    static void Check(VELDIOElt* element, const VELDTypeFilterBase& filter);
    static void Check(VELDIOElt* element, const VELDTypeFilterBase& filter, int index);

    void* data;
    VELDInt32 bufferSize;  // in items
    VELDInt32 vectorSize;  // items in use
    VELDTimestamp timestamp;
    VELDTimestamp timeOfIssue;
    VELDTypeInfo type;
    VELDInt64 frequency;
    VELDInt32 quality;
    VELDOutput* output;
    VELDFastIOElt<VELDIOEltImplementation>* fastElt;  // the ring slot
    VELDInt32 bufferItemSize;
    VELDInt32 misc1;
    VELDInt32 misc2;
    VELDInt32 misc3;
    // A payload that Deserialize allocated: the element's own, freed with it.
    void* ownedData;

private:
    // The accessors' test, once the check level asks for it: typing, then
    // the index of the indexed ones. A negative index is not tested.
    void CheckAccess(const VELDTypeFilterBase& filter, bool indexed, int index);
    template <class R>
    R* Checked(const VELDTypeFilterBase& filter);
    template <class R>
    R* CheckedItem(const VELDTypeFilterBase& filter, int index, int itemSize);
    unsigned int SizeInBytes(bool* flat, bool used);
};

#endif
