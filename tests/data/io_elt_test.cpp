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
    IOElt() : engine(Quiet()) {}

    // An element of the type over a cleared payload.
    VELDIOEltImplementation& Make(VELDTypeInfoValue type, int bufferSize, int vectorSize)
    {
        std::memset(payload, 0, sizeof payload);
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

// Sizes of flat payloads, of unknown ones and of texts, and what each says of
// its flatness: -1 when it leaves the flag alone.
TEST_F(IOElt, FlatSizesAreItemsTimesTheItemSize)
{
    const struct {
        VELDTypeInfoValue type;
        int bufferSize, vectorSize;
        unsigned int used, full;
        int flat;
    } rows[] = {{VELD::Integer16, 5, 3, 6, 10, 1}, {VELD::UnsignedInteger64, 5, 3, 24, 40, 1},
                {VELD::Float32, 5, 3, 12, 20, 1}, {VELD::TextUnicode, 5, 3, 6, 10, 1},
                {VELD::CANFDFrame, 5, 3, 240, 400, 1}, {VELD::CANUniFrame, 5, 3, 288, 480, 1},
                {VELD::RealObject, 5, 3, 960, 1600, 1},
                {VELD::Structure, 5, 3, 5, 5, 1},  // a structure is its whole buffer, whatever is in use
                {VELD::Integer32 | VELD::VectorFlag | VELD::QualityFlag, 5, 3, 12, 20, 1},  // flags add nothing
                // A text counts its terminating zero when it fits.
                {VELD::TextAscii, 5, 5, 5, 5, 1}, {VELD::TextAscii, 5, 4, 5, 5, 1}, {VELD::TextAscii, 5, 0, 1, 5, 1},
                {VELD::CustomType, 10, 10, kUnknown, kUnknown, 0},
                // A type that no rule knows: nobody knows what it uses, but its
                // buffer is its bufferSize.
                {VELD::DynamicStructure, 10, 3, kUnknown, 10, -1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.type << std::dec << " " << row.vectorSize);
        Make(row.type, row.bufferSize, row.vectorSize);
        for (bool before : {false, true}) {
            bool flat = before;
            EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), row.used);
            EXPECT_EQ(flat, row.flat < 0 ? before : row.flat == 1);
            flat = before;
            EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), row.full);
            EXPECT_EQ(flat, row.flat < 0 ? before : row.flat == 1);
        }
        EXPECT_EQ(elt.IOEltUsedSizeInBytes(nullptr), row.used);
    }
    Make(VELD::Integer32, 10, 3);  // no payload
    elt.data = nullptr;
    bool flat = false;
    EXPECT_EQ(elt.IOEltUsedSizeInBytes(&flat), 0u);
    EXPECT_EQ(elt.IOEltBufferSizeInBytes(&flat), 0u);
    EXPECT_FALSE(flat);
}

// Structured payloads are never flat: they count their header and the blocks
// that are set.
TEST_F(IOElt, StructuredSizesCountTheHeaderAndTheBlocksThatAreSet)
{
    auto expect = [&](unsigned int used, unsigned int full) {
        bool usedFlat = true, fullFlat = true;
        EXPECT_EQ(elt.IOEltUsedSizeInBytes(&usedFlat), used);
        EXPECT_EQ(elt.IOEltBufferSizeInBytes(&fullFlat), full);
        EXPECT_FALSE(usedFlat || fullFlat);
    };
    Make(VELD::Matrix, 6, 0);
    VELDMatrix* matrix = new (payload) VELDMatrix();
    matrix->rows = 2, matrix->columns = 3;
    expect(40, 16 * 6 + 40);
    matrix->re = reinterpret_cast<double*>(At(40));
    expect(40 + 48, 16 * 6 + 40);
    matrix->im = reinterpret_cast<double*>(At(88));
    expect(40 + 96, 16 * 6 + 40);

    Make(VELD::IplImage, 100, 0);
    _IplImage* ipl = reinterpret_cast<_IplImage*>(payload);
    ipl->imageSize = 100;
    expect(144, 264);
    ipl->roi = reinterpret_cast<IplROI*>(At(144));
    expect(164, 264);
    ipl->imageData = reinterpret_cast<char*>(At(164));
    expect(264, 264);

    Make(VELD::VELDImage, 100, 0);
    VELDImage* image = reinterpret_cast<VELDImage*>(payload);
    image->imageSize = 70;
    expect(48, 148);
    image->imageData = At(48);
    expect(118, 148);

    Make(VELD::AudioSignal, 64, 0);
    reinterpret_cast<VELDAudioSignal*>(payload)->streamSizeInBytes = 30;
    expect(54, 88);

    Make(VELD::Triangles3D, 10, 2);
    VELDTriangles3D* mesh = reinterpret_cast<VELDTriangles3D*>(payload);
    expect(48, 56 * 10 + 48);
    mesh->objects = reinterpret_cast<VELDObject3D*>(At(48));
    expect(48 + 32, 56 * 10 + 48);
    mesh->points = reinterpret_cast<VELDPoint3D*>(At(48));
    expect(48 + 32 + 48, 56 * 10 + 48);
    mesh->triangles = reinterpret_cast<VELDTriangle3D*>(At(48));
    expect(48 + 32 + 48 + 32, 56 * 10 + 48);
}

}  // namespace
