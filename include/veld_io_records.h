// The header records that start the payload of the structured element types.
// An element of one of these types points at its header; the blocks that the
// header points at follow it inside the same payload, carved out when the
// output's buffer is allocated. The layouts are a format (the serialized
// element follows them), so every field stays where it is, gaps included.
// A matrix's header is VELDMatrix (veld_containers.h, 40 bytes).
#ifndef VELD_IO_RECORDS_H
#define VELD_IO_RECORDS_H

#include "veld_types.h"

// The region of interest of an image.
struct IplROI {
    int coi;
    int xOffset;
    int yOffset;
    int width;
    int height;
};

// An image header of the planar image model. In a ring element the ROI record
// follows it (at +144) and the pixels follow the ROI (from +164).
struct _IplImage {
    int nSize;
    int ID;
    int nChannels;
    int alphaChannel;
    int depth;
    char colorModel[4];
    char channelSeq[4];
    int dataOrder;
    int origin;
    int align;
    int width;
    int height;
    IplROI* roi;
    _IplImage* maskROI;
    void* imageId;
    void* tileInfo;
    int imageSize;
    char* imageData;
    int widthStep;
    int BorderMode[4];
    int BorderConst[4];
    char* imageDataOrigin;
};

// The framework's own image header; the pixels follow it (from +48).
// imageId2 holds 57005 in every image carved out of a ring, which tells such
// an image from one made elsewhere.
class VELDImage {
public:
    VELDInt32 width;
    VELDInt32 height;
    VELDInt32 imageSize;
    VELDInt32 bufferSize;
    VELDInt64 imageId;
    VELDInt64 imageId2;
    unsigned char* imageData;
    char imageCoding[4];
    char imageType[4];
};

// A block of sound samples; the samples follow the header (from +24).
class VELDAudioSignal {
public:
    VELDUInt32 dataType;
    VELDUInt16 channels;
    VELDUInt16 bitsPerSample;
    VELDUInt32 samplesPerSecond;
    VELDUInt32 streamSizeInBytes;
    unsigned char* streamData;
};

// A mesh: points of three coordinates, triangles of three point indices and
// an object index, objects of two indices into the triangles and two words of
// attributes. In a ring element of capacity n the points follow the header,
// then the triangles (at +48 + 24n), then the objects (at +48 + 40n).
struct VELDPoint3D {
    VELDFloat64 x, y, z;
};
struct VELDTriangle3D {
    VELDInt32 p1, p2, p3, object;
};
struct VELDObject3D {
    VELDInt32 firstTriangle, nbTriangles, color, flags;
};

class VELDTriangles3D {
public:
    VELDInt32 nbObjects;
    VELDObject3D* objects;
    VELDInt32 nbPoints;
    VELDPoint3D* points;
    VELDInt32 nbTriangles;
    VELDTriangle3D* triangles;
};

namespace VELD {
// Sizes of the headers and of one item of their blocks, in bytes.
const int MatrixHeaderSize = 40;
const int IplImageHeaderSize = 144;
const int IplROISize = 20;
const int VELDImageHeaderSize = 48;
const int AudioSignalHeaderSize = 24;
const int Triangles3DHeaderSize = 48;
const int Point3DSize = 24;
const int Triangle3DSize = 16;
const int Object3DSize = 16;
// The opaque records of the real and drawing object types.
const int RealObjectSize = 320;
const int DrawingObjectSize = 96;
// The mark of an image carved out of a ring.
const VELDInt64 RingImageMark = 57005;
}  // namespace VELD

static_assert(sizeof(IplROI) == 20, "IplROI is a 20-byte record");
static_assert(sizeof(_IplImage) == 144, "the image header is a 144-byte record");
static_assert(sizeof(VELDImage) == 48, "VELDImage is a 48-byte record");
static_assert(sizeof(VELDAudioSignal) == 24, "VELDAudioSignal is a 24-byte record");
static_assert(sizeof(VELDTriangles3D) == 48, "VELDTriangles3D is a 48-byte record");
static_assert(sizeof(VELDPoint3D) == 24 && sizeof(VELDTriangle3D) == 16 && sizeof(VELDObject3D) == 16,
              "mesh items keep their sizes");

#endif
