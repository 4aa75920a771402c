// I/O elements: the access check by check level, the item size of each
// indexed accessor, and the used and full payload sizes of every type.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "Engine.h"
#include "test_output.h"
#include "veld_containers.h"
#include "veld_io_elt_impl.h"
#include "veld_io_records.h"

namespace {

const unsigned int kUnknown = 4294967295u;

class IOElt : public ::testing::Test {
protected:
    IOElt() : engine(Quiet()) { std::memset(payload, 0, sizeof payload); }

    VELDIOEltImplementation& Make(VELDTypeInfoValue type, int bufferSize, int vectorSize)
    {
        elt.type.value = type;
        elt.data = payload;
        elt.bufferSize = bufferSize;
        elt.vectorSize = vectorSize;
        return elt;
    }
    unsigned char* At(int offset) { return payload + offset; }
    size_t Checks() { return engine.GetConsole().CountContaining("Check error", VELD::Error); }
    bool Reported(const char* text) { return engine.GetConsole().Contains(text, VELD::Error); }

    veldor::Engine engine;
    VELDIOEltImplementation elt;
    alignas(16) unsigned char payload[4096];
};

// ---------------------------------------------------------------------------
// The access check

TEST_F(IOElt, AtCheckLevelOneTheIndexIsBoundedByTheBufferAndTheTypeIsChecked)
{
    engine.SetCheckLevel(1);
    Make(VELD::Integer32 | VELD::VectorFlag, 4, 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.Integer32(3)), At(12));  // the buffer, not the vector
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.Integer(3)), At(12));
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.Integer32(-1)), At(-4));  // a negative index isn't tested
    EXPECT_EQ(Checks(), 0u);
    EXPECT_THROW(elt.Integer32(4), int);
    EXPECT_TRUE(Reported("Check error : Bad vector index during I/O element access."));

    Make(VELD::TextUnicode, 8, 0);
    EXPECT_THROW(elt.Text(), int);
    EXPECT_THROW(elt.TextAscii(), int);
    EXPECT_THROW(elt.Integer32(0), int);
    EXPECT_EQ(engine.GetConsole().CountContaining("Check error : Incorrect typing during I/O element access."), 3u);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.TextUnicode()), At(0));
    Make(VELD::TextAscii, 8, 0);
    EXPECT_EQ(elt.Text(), reinterpret_cast<char*>(At(0)));
    EXPECT_EQ(elt.TextAscii(), reinterpret_cast<char*>(At(0)));
}

TEST_F(IOElt, TheStaticChecksRefuseANullElementAndAtLevelZeroNothingIsChecked)
{
    engine.SetCheckLevel(1);
    Make(VELD::Integer32, 4, 0);
    EXPECT_THROW(VELDIOEltImplementation::Check(nullptr, VELD::FilterIntegers32), int);
    EXPECT_TRUE(Reported("Check error : A NULL I/O Element was disregarded by a component (probably due a detachment "
                         "not taken into account)."));
    EXPECT_THROW(VELDIOEltImplementation::Check(nullptr, VELD::FilterIntegers32, 0), int);
    EXPECT_THROW(VELDIOEltImplementation::Check(&elt, VELD::FilterFloats64), int);
    EXPECT_THROW(VELDIOEltImplementation::Check(&elt, VELD::FilterIntegers32, 4), int);
    VELDIOEltImplementation::Check(&elt, VELD::FilterIntegers32, 3);
    EXPECT_EQ(Checks(), 4u);

    engine.SetCheckLevel(0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.Integer32(4)), At(16));  // past the payload, silently
    EXPECT_EQ(reinterpret_cast<unsigned char*>(elt.Float64(1)), At(8));     // wrong type, silently
    VELDIOEltImplementation::Check(nullptr, VELD::FilterIntegers32);
    VELDIOEltImplementation::Check(&elt, VELD::FilterFloats64, 9);
    EXPECT_EQ(Checks(), 4u);
}

TEST_F(IOElt, EachIndexedAccessorStepsByItsItemSize)
{
    engine.SetCheckLevel(1);
    const struct {
        VELDTypeInfoValue type;
        void* (*third)(VELDIOEltImplementation&);
        int offset;
    } cases[] = {
        {VELD::Integer64, [](VELDIOEltImplementation& e) -> void* { return e.Integer64(3); }, 24},
        {VELD::Float32, [](VELDIOEltImplementation& e) -> void* { return e.Float32(3); }, 12},
        {VELD::Float64, [](VELDIOEltImplementation& e) -> void* { return e.Float64(3); }, 24},
        {VELD::CANFrame, [](VELDIOEltImplementation& e) -> void* { return e.CANFrame(3); }, 72},
        {VELD::DrawingObject, [](VELDIOEltImplementation& e) -> void* { return e.DrawingObject(3); }, 288},
        {VELD::RealObject, [](VELDIOEltImplementation& e) -> void* { return e.RealObject(3); }, 960},
    };
    for (const auto& c : cases) EXPECT_EQ(c.third(Make(c.type, 4, 4)), At(c.offset)) << c.offset;
    EXPECT_EQ(Checks(), 0u);
}

// ---------------------------------------------------------------------------
// Sizes of flat payloads: vectorSize 3, bufferSize 5

struct FlatSize {
    VELDTypeInfoValue type;
    unsigned int used;
    unsigned int full;
};

class FlatSizes : public IOElt, public ::testing::WithParamInterface<FlatSize> {};

TEST_P(FlatSizes, AreItemsTimesTheItemSize)
{
    Make(GetParam().type, 5, 3);
    bool flat = false;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), GetParam().used);
    EXPECT_TRUE(flat);
    flat = false;
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), GetParam().full);
    EXPECT_TRUE(flat);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), GetParam().used);
}

INSTANTIATE_TEST_SUITE_P(
    EveryType, FlatSizes,
    ::testing::Values(FlatSize{VELD::Integer16, 6, 10}, FlatSize{VELD::UnsignedInteger64, 24, 40},
                      FlatSize{VELD::Float32, 12, 20}, FlatSize{VELD::TextUnicode, 6, 10},
                      FlatSize{VELD::CANFDFrame, 240, 400}, FlatSize{VELD::CANUniFrame, 288, 480},
                      FlatSize{VELD::RealObject, 960, 1600},
                      // A structure is its whole buffer, whatever is in use.
                      FlatSize{VELD::Structure, 5, 5},
                      // Flags don't change the size.
                      FlatSize{VELD::Integer32 | VELD::VectorFlag | VELD::QualityFlag, 12, 20}));

TEST_F(IOElt, TextCountsItsTerminatingZeroWhenItFits)
{
    Make(VELD::TextAscii, 5, 5);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 5u);
    Make(VELD::TextAscii, 5, 4);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 5u);
    Make(VELD::TextAscii, 5, 0);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 1u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(nullptr), 5u);
}

// ---------------------------------------------------------------------------
// Sizes of structured payloads: the header and what it points at

TEST_F(IOElt, AMatrixCountsTheBlocksThatAreSet)
{
    Make(VELD::Matrix, 6, 0);
    VELDMatrix* matrix = new (payload) VELDMatrix();
    matrix->rows = 2;
    matrix->columns = 3;
    bool flat = true;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), 40u);
    EXPECT_FALSE(flat);
    matrix->re = reinterpret_cast<double*>(At(40));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 40u + 48u);
    matrix->im = reinterpret_cast<double*>(At(88));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 40u + 96u);
    flat = true;
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), 16u * 6 + 40);
    EXPECT_FALSE(flat);
}

TEST_F(IOElt, ImagesCountTheirHeadersAndThePixelsThatAreSet)
{
    Make(VELD::IplImage, 100, 0);
    _IplImage* ipl = reinterpret_cast<_IplImage*>(payload);
    ipl->imageSize = 100;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 144u);
    ipl->roi = reinterpret_cast<IplROI*>(At(144));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 164u);
    ipl->imageData = reinterpret_cast<char*>(At(164));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 264u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(nullptr), 264u);

    std::memset(payload, 0, sizeof payload);
    Make(VELD::VELDImage, 100, 0);
    VELDImage* image = reinterpret_cast<VELDImage*>(payload);
    image->imageSize = 70;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 48u);
    image->imageData = At(48);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 118u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(nullptr), 148u);
}

TEST_F(IOElt, AudioAndMeshesCountTheirHeaders)
{
    Make(VELD::AudioSignal, 64, 0);
    reinterpret_cast<VELDAudioSignal*>(payload)->streamSizeInBytes = 30;
    bool flat = true;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), 54u);
    EXPECT_FALSE(flat);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(nullptr), 88u);

    std::memset(payload, 0, sizeof payload);
    Make(VELD::Triangles3D, 10, 2);
    VELDTriangles3D* mesh = reinterpret_cast<VELDTriangles3D*>(payload);
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 48u);
    mesh->objects = reinterpret_cast<VELDObject3D*>(At(48));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 48u + 32u);
    mesh->points = reinterpret_cast<VELDPoint3D*>(At(48));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 48u + 32u + 48u);
    mesh->triangles = reinterpret_cast<VELDTriangle3D*>(At(48));
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), 48u + 32u + 48u + 32u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(nullptr), 56u * 10 + 48);
}

TEST_F(IOElt, UnknownSizesAndMissingPayloads)
{
    Make(VELD::CustomType, 10, 10);
    bool flat = true;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), kUnknown);
    EXPECT_FALSE(flat);
    flat = true;
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), kUnknown);
    EXPECT_FALSE(flat);

    // A type that no rule knows: nobody knows what it uses, but its buffer
    // is its bufferSize; the flag is left alone.
    Make(VELD::DynamicStructure, 10, 3);
    flat = true;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), kUnknown);
    EXPECT_TRUE(flat);
    flat = false;
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), 10u);
    EXPECT_FALSE(flat);

    Make(VELD::Integer32, 10, 3);
    elt.data = nullptr;
    flat = false;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), 0u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), 0u);
    EXPECT_FALSE(flat);
}

}  // namespace
