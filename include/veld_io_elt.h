// The element that a component writes or reads: one slot of an output's
// FIFO, seen through its operations only. Every field accessor returns a
// writable reference (there are no setters); the typed payload accessors
// check the element's type, and the index, when the kernel's check level asks
// for it.
//
// The engine and other packages reach elements by the position of these
// operations in the virtual table: never reorder them.
#ifndef VELD_IO_ELT_H
#define VELD_IO_ELT_H

#include "veld_types.h"

class VELDMatrix;
class VELDImage;
class VELDAudioSignal;
class VELDTriangles3D;
class VELDTypeInfo;
struct _IplImage;
struct VELDCANFrame;
struct VELDRealObject;
struct VELDDrawingObject;

class VELDIOElt {
public:
    virtual void*& Data() = 0;
    virtual VELDTimestamp& TimeOfIssue() = 0;
    virtual VELDTimestamp& Timestamp() = 0;
    virtual int& VectorSize() = 0;
    virtual int& BufferSize() = 0;
    virtual VELDInt64& Frequency() = 0;
    virtual VELDInt32& Quality() = 0;
    virtual VELDTypeInfo& Type() = 0;
    virtual int& BufferItemSize() = 0;
    // The same as Integer32.
    virtual VELDInt32* Integer(int i) { return Integer32(i); }
    virtual VELDInt32* Integer32(int i) = 0;
    virtual VELDInt64* Integer64(int i) = 0;
    virtual VELDFloat64* Float64(int i) = 0;
    virtual VELDFloat32* Float32(int i) = 0;
    virtual char* Text() = 0;
    virtual char* TextAscii() = 0;
    virtual VELDUInt16* TextUnicode() = 0;
    virtual _IplImage* IplImage() = 0;
    virtual ::VELDImage* VELDImage() = 0;
    // CAN FD and universal frames have no accessor: cast Data().
    virtual VELDCANFrame* CANFrame(int i) = 0;
    virtual VELDMatrix* Matrix() = 0;
    virtual VELDRealObject* RealObject(int i) = 0;
    virtual VELDDrawingObject* DrawingObject(int i) = 0;
    virtual VELDTriangles3D* Triangles3D() = 0;
    virtual VELDUInt8* Stream8() = 0;
    virtual VELDUInt16* Stream16() = 0;
    virtual VELDUInt32* Stream32() = 0;
    virtual VELDAudioSignal* AudioSignal() = 0;
    virtual VELDInt32& Misc1() = 0;
    virtual VELDInt32& Misc2() = 0;
    virtual VELDInt32& Misc3() = 0;
    // What a full payload takes, and what the present one uses, in bytes; 0
    // without payload, 4294967295 for a type whose size nobody knows. `flat`,
    // when given, tells whether one copy moves the whole payload.
    virtual unsigned int IOEltBufferSizeInBytes(bool* flat) = 0;
    virtual unsigned int IOEltUsedSizeInBytes(bool* flat) = 0;
    // The element, head and payload, as one flat block of bytes in the
    // machine's own byte order, and back. Serialize with a null destination
    // gives the size that it needs; both give 4294967295 on failure and
    // Deserialize 0 on success. A partly filled matrix or mesh writes its
    // blocks whole: give such an element room for its full buffer.
    virtual unsigned int Serialize(void* destination, unsigned int capacity) = 0;
    virtual unsigned int Deserialize(void* source, bool allocate) = 0;
    virtual ~VELDIOElt() {}

    // Whether a block can be read back; not decided by anything yet: says so
    // and answers true.
    static bool IsDeserializable(void* source);
    // The payload size of `element`, an element that is followed in memory,
    // at its end, by the header record of its payload; -1 for null.
    static int SerializedIOEltSizeInBytes(void* element);
};

#endif
