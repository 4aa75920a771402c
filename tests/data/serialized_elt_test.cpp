// Elements as flat blocks of bytes: every type there and back, with and
// without allocation; blocks made by hand in the older head; what is refused
// and with which words.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Engine.h"
#include "test_module.h"
#include "test_output.h"
#include "veld_containers.h"
#include "veld_io_records.h"
#include "veld_output_impl.h"

namespace {

using Bytes = std::vector<unsigned char>;

const unsigned int kFailure = 4294967295u;
const char* const kTruncated = "VELDIOElt deserialization impossible : the source ends before the element does.";

void Pattern(void* to, std::size_t n, int seed)
{
    unsigned char* p = static_cast<unsigned char*>(to);
    for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<unsigned char>(seed * 31 + i * 7 + 1);
}

// The blocks of these tests are the seeds of the fuzz target:
// VELDOR_ELT_SEEDS=tests/fuzz/corpus/serialized_elt data_tests writes them.
void KeepSeed(const std::string& name, const unsigned char* block, std::size_t size)
{
    const char* folder = std::getenv("VELDOR_ELT_SEEDS");
    if (!folder) return;
    std::FILE* file = std::fopen((std::string(folder) + "/" + name).c_str(), "wb");
    ASSERT_NE(file, nullptr) << folder;
    std::fwrite(block, 1, size, file);
    std::fclose(file);
}

void Append(Bytes& out, const void* p, std::size_t n)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(p);
    out.insert(out.end(), bytes, bytes + n);
}

// What an element says, its pointers left out: the head fields that travel
// and the payload as its type reads it.
Bytes Content(VELDIOEltImplementation& e)
{
    Bytes out;
    Append(out, &e.vectorSize, 4);
    Append(out, &e.timestamp, 8);
    Append(out, &e.type.value, 8);
    for (const char* text : {e.type.Name(), e.type.Unit()}) out.push_back('|'), Append(out, text, std::strlen(text));
    for (const void* field : {static_cast<void*>(&e.frequency), static_cast<void*>(&e.quality),
                              static_cast<void*>(&e.misc1), static_cast<void*>(&e.misc2), static_cast<void*>(&e.misc3)})
        Append(out, field, field == &e.frequency ? 8 : 4);
    const unsigned char* data = static_cast<unsigned char*>(e.data);
    const std::size_t v = static_cast<std::size_t>(e.vectorSize);
    if (VELD::TypeFilter(e.type, VELD::FilterMatrix)) {
        const VELDMatrix& m = *e.Matrix();
        const std::size_t cells = static_cast<std::size_t>(m.rows * m.columns);
        Append(out, &m.rows, 8);
        Append(out, m.re, 8 * cells);
        Append(out, m.im, 8 * cells);
    } else if (VELD::TypeFilter(e.type, VELD::FilterIplImage)) {
        const _IplImage& image = *e.IplImage();
        _IplImage header = image;
        header.roi = nullptr, header.maskROI = nullptr, header.imageId = nullptr, header.tileInfo = nullptr;
        header.imageData = header.imageDataOrigin = nullptr;
        Append(out, &header, sizeof header);
        Append(out, image.roi, sizeof(IplROI));
        Append(out, image.imageData, static_cast<std::size_t>(image.imageSize));
    } else if (VELD::TypeFilter(e.type, VELD::FilterVELDImage)) {
        const VELDImage& image = *e.VELDImage();
        VELDImage header = image;
        header.imageData = nullptr;
        Append(out, &header, sizeof header);
        Append(out, image.imageData, static_cast<std::size_t>(image.imageSize));
    } else if (VELD::TypeFilter(e.type, VELD::FilterAudioSignal)) {
        const VELDAudioSignal& audio = *e.AudioSignal();
        VELDAudioSignal header = audio;
        header.streamData = nullptr;
        Append(out, &header, sizeof header);
        Append(out, audio.streamData, audio.streamSizeInBytes);
    } else if (VELD::TypeFilter(e.type, VELD::FilterTriangles3D)) {
        const VELDTriangles3D& mesh = *e.Triangles3D();
        VELDTriangles3D header = mesh;
        header.objects = nullptr, header.points = nullptr, header.triangles = nullptr;
        Append(out, &header, sizeof header);
        Append(out, mesh.objects, 16 * v);
        Append(out, mesh.points, 24 * v);
        Append(out, mesh.triangles, 16 * v);
    } else {
        Append(out, data, e.IOEltUsedSizeInBytes(nullptr));
    }
    return out;
}

class SerializedElt : public ::testing::Test {
protected:
    SerializedElt() : engine(QuietEngine()) {}

    VELDOutputImplementation& MakeOutput(VELDTypeInfoValue type)
    {
        output.reset(new VELDOutputImplementation("m.o", OutputDefinition(type, 1, 2), &module.death));
        return *output;
    }
    VELDIOEltImplementation& Slot(int i)
    {
        VELDIOMonitor& monitor = *output->Monitor();
        VELDListIterator it = monitor.InitBegin();
        while (i-- > 0) monitor.InitNext(it);
        return static_cast<VELDIOEltImplementation&>(monitor[it]);
    }
    // A block with room for the element's full buffer.
    static Bytes Serialized(VELDIOEltImplementation& e, unsigned int* result = nullptr)
    {
        Bytes block(e.Serialize(nullptr, 0) + e.IOEltBufferSizeInBytes(nullptr));
        const unsigned int n = e.Serialize(block.data(), static_cast<unsigned int>(block.size()));
        if (result) *result = n;
        return block;
    }
    size_t Errors() { return engine.GetConsole().CountContaining("", VELD::Error); }
    bool Reported(const std::string& text) { return engine.GetConsole().Contains(text, VELD::Error); }

    veldor::Engine engine;
    TestModule module;
    std::unique_ptr<VELDOutputImplementation> output;
};

// ---------------------------------------------------------------------------
// Round trips

enum class Shape { Flat, Text, Matrix, IplImage, Image, Audio, Triangles };

struct TypeCase {
    const char* name;
    VELDTypeInfoValue type;
    Shape shape;
};

class EveryType : public SerializedElt, public ::testing::WithParamInterface<TypeCase> {
protected:
    // The first slot of an output of the type, filled; the second slot
    // prepared alike.
    VELDIOEltImplementation& Source()
    {
        const TypeCase& c = GetParam();
        VELDOutputImplementation& o = MakeOutput(c.type | VELD::VectorFlag);
        const int items = 6;
        switch (c.shape) {
        case Shape::Matrix: o.AllocOutputBufferMatrix(3, 4); break;
        case Shape::IplImage: {
            _IplImage model = {};
            model.nSize = 144, model.nChannels = 1, model.depth = 8, model.width = 8, model.height = 4;
            model.imageSize = 32, model.widthStep = 8;
            o.AllocOutputBufferIplImage(model, false);
            break;
        }
        case Shape::Image: o.AllocOutputBufferVELDImage(64, 8, 8, 1, 2, false); break;
        case Shape::Audio: {
            VELDAudioSignal model = {1, 2, 16, 48000, 40, nullptr};
            o.AllocOutputBufferAudioSignal(model);
            break;
        }
        default: o.AllocOutputBuffer(items, true);
        }
        VELDIOEltImplementation& e = Slot(0);
        e.timestamp = 1700000000123456;
        e.timeOfIssue = 99;
        e.frequency = 50;
        e.quality = 7;
        e.misc1 = 1, e.misc2 = -2, e.misc3 = 3;
        e.type.SetName("probe");
        e.type.SetUnit("mV");
        unsigned char* data = static_cast<unsigned char*>(e.data);
        switch (c.shape) {
        case Shape::Flat:
            e.vectorSize = items - 1;
            Pattern(data, e.IOEltUsedSizeInBytes(nullptr), 1);
            break;
        case Shape::Text:
            e.vectorSize = 4;
            std::memcpy(data, "abcd", 5);
            break;
        case Shape::Matrix:
            Pattern(e.Matrix()->re, 8 * 12, 2);
            Pattern(e.Matrix()->im, 8 * 12, 3);
            break;
        case Shape::IplImage:
            Pattern(e.IplImage()->roi, sizeof(IplROI), 4);
            Pattern(e.IplImage()->imageData, 32, 5);
            break;
        case Shape::Image: Pattern(e.VELDImage()->imageData, 64, 6); break;
        case Shape::Audio: Pattern(e.AudioSignal()->streamData, 40, 7); break;
        case Shape::Triangles: {
            // The reader takes a mesh by vectorSize, the writer by bufferSize:
            // a full mesh reads back.
            VELDTriangles3D& mesh = *e.Triangles3D();
            e.vectorSize = items;
            mesh.nbObjects = 1, mesh.nbPoints = items, mesh.nbTriangles = 2;
            Pattern(mesh.objects, 16 * items, 8);
            Pattern(mesh.points, 24 * items, 9);
            Pattern(mesh.triangles, 16 * items, 10);
            break;
        }
        }
        return e;
    }
};

TEST_P(EveryType, GoesThereAndBackIntoARingSlotAndIntoANewBuffer)
{
    VELDIOEltImplementation& source = Source();
    const unsigned int size = source.Serialize(nullptr, 0);
    unsigned int result = 0;
    Bytes block = Serialized(source, &result);
    // A mesh's last block is written but not counted.
    const unsigned int uncounted = GetParam().shape == Shape::Triangles ? 16 * source.bufferSize : 0;
    EXPECT_EQ(result, size - uncounted);
    KeepSeed(GetParam().name, block.data(), size);
    const Bytes expected = Content(source);

    VELDIOEltImplementation& slot = Slot(1);
    slot.timeOfIssue = 5;
    void* const payload = slot.data;
    VELDIOElt& asInterface = slot;
    ASSERT_EQ(asInterface.Deserialize(block.data(), false), 0u);
    EXPECT_EQ(Content(slot), expected);
    EXPECT_EQ(slot.data, payload);
    EXPECT_EQ(slot.timeOfIssue, 5);  // not carried

    VELDIOEltImplementation fresh;
    ASSERT_EQ(fresh.Deserialize(block.data(), true), 0u);
    EXPECT_EQ(Content(fresh), expected);
    EXPECT_EQ(fresh.bufferSize, source.bufferSize);
    // Written again, the new element gives the same block, but for the
    // addresses of its blocks.
    EXPECT_EQ(fresh.Serialize(nullptr, 0), size);
    EXPECT_EQ(Errors(), 0u) << engine.GetConsole().LastError();
}

INSTANTIATE_TEST_SUITE_P(
    Types, EveryType,
    ::testing::Values(TypeCase{"Int8", VELD::Integer8, Shape::Flat}, TypeCase{"Int16", VELD::Integer16, Shape::Flat},
                      TypeCase{"Int32", VELD::Integer32, Shape::Flat}, TypeCase{"Int64", VELD::Integer64, Shape::Flat},
                      TypeCase{"UInt8", VELD::UnsignedInteger8, Shape::Flat},
                      TypeCase{"UInt16", VELD::UnsignedInteger16, Shape::Flat},
                      TypeCase{"UInt32", VELD::UnsignedInteger32, Shape::Flat},
                      TypeCase{"UInt64", VELD::UnsignedInteger64, Shape::Flat},
                      TypeCase{"Float32", VELD::Float32, Shape::Flat}, TypeCase{"Float64", VELD::Float64, Shape::Flat},
                      TypeCase{"Text", VELD::TextAscii, Shape::Text},
                      TypeCase{"Unicode", VELD::TextUnicode, Shape::Flat},
                      TypeCase{"CAN", VELD::CANFrame, Shape::Flat}, TypeCase{"CANFD", VELD::CANFDFrame, Shape::Flat},
                      TypeCase{"CANUni", VELD::CANUniFrame, Shape::Flat},
                      TypeCase{"RealObject", VELD::RealObject, Shape::Flat},
                      TypeCase{"DrawingObject", VELD::DrawingObject, Shape::Flat},
                      TypeCase{"Structure", VELD::Structure, Shape::Flat},
                      TypeCase{"Matrix", VELD::Matrix, Shape::Matrix},
                      TypeCase{"IplImage", VELD::IplImage, Shape::IplImage},
                      TypeCase{"VELDImage", VELD::VELDImage, Shape::Image},
                      TypeCase{"Audio", VELD::AudioSignal, Shape::Audio},
                      TypeCase{"Triangles", VELD::Triangles3D, Shape::Triangles}),
    [](const ::testing::TestParamInfo<TypeCase>& info) { return std::string(info.param.name); });

TEST_P(EveryType, RefusesEveryShorterBlockWithoutReadingPastIt)
{
    VELDIOEltImplementation& source = Source();
    const Bytes block = Serialized(source);
    const std::size_t size = source.Serialize(nullptr, 0);
    const std::size_t head = size - source.IOEltUsedSizeInBytes(nullptr);
    for (std::size_t cut = 1; cut < size; ++cut) {
        Bytes shorter(block.begin(), block.begin() + static_cast<long>(cut));  // exactly `cut` bytes
        VELDIOEltImplementation fresh;
        engine.GetConsole().ClearCaptured();
        const unsigned int result = fresh.Deserialize(shorter.data(), shorter.size(), true);
        // A block that ends with its head is an element without payload.
        if (cut == head) {
            EXPECT_EQ(result, 0u);
            continue;
        }
        EXPECT_EQ(result, kFailure) << cut;
        EXPECT_TRUE(Reported(kTruncated)) << cut;
    }
}

// ---------------------------------------------------------------------------
// Heads made by hand: the older one has no time of issue

struct VersionCase {
    VELDInt32 version;
    bool timeOfIssue;
    bool accepted;
};

class Versions : public SerializedElt, public ::testing::WithParamInterface<VersionCase> {};

TEST_P(Versions, AreReadWithTheirHeadOrRefused)
{
    const VersionCase& c = GetParam();
    Bytes block;
    auto put = [&](auto value) { Append(block, &value, sizeof value); };
    put(c.version), put(VELDInt32(4)), put(VELDInt32(3)), put(VELDInt64(1234567));
    if (c.timeOfIssue) put(VELDInt64(42));
    put(VELDTypeInfoValue(VELD::Integer32 | VELD::VectorFlag));
    put(VELDInt32(3)), Append(block, "abc", 4);  // name
    put(VELDInt32(0));                           // no unit
    put(VELDInt64(25)), put(VELDInt32(9)), put(VELDInt32(-1)), put(VELDInt32(-2)), put(VELDInt32(-3));
    for (VELDInt32 i : {10, 20, 30}) put(i);

    KeepSeed("version" + std::to_string(c.version), block.data(), block.size());
    VELDIOEltImplementation e;
    e.type.SetUnit("old");
    const unsigned int result = e.Deserialize(block.data(), block.size(), true);
    if (!c.accepted) {
        EXPECT_EQ(result, kFailure);
        EXPECT_TRUE(Reported("Wrong binary format version for VELDIOElt, received = " + std::to_string(c.version) +
                             ", current = 101"));
        return;
    }
    ASSERT_EQ(result, 0u) << engine.GetConsole().LastError();
    EXPECT_EQ(e.bufferSize, 4);
    EXPECT_EQ(e.vectorSize, 3);
    EXPECT_EQ(e.timestamp, 1234567);
    EXPECT_EQ(e.timeOfIssue, 0);
    EXPECT_EQ(e.type.value, VELD::Integer32 | VELD::VectorFlag);
    EXPECT_STREQ(e.type.Name(), "abc");
    EXPECT_STREQ(e.type.Unit(), "");  // emptied, not removed
    EXPECT_EQ(e.frequency, 25);
    EXPECT_EQ(e.quality, 9);
    EXPECT_EQ(e.misc1 * 100 + e.misc2 * 10 + e.misc3, -123);
    EXPECT_EQ(*e.Integer32(0) + *e.Integer32(1) + *e.Integer32(2), 60);
}

INSTANTIATE_TEST_SUITE_P(Heads, Versions,
                         ::testing::Values(VersionCase{99, false, true}, VersionCase{100, false, true},
                                           VersionCase{101, true, true}, VersionCase{102, true, true},
                                           VersionCase{103, true, false}));

// ---------------------------------------------------------------------------
// Writing: sizes and refusals

TEST_F(SerializedElt, AnElementWithoutPayloadWritesItsHeadAndComesBackWithABuffer)
{
    VELDIOEltImplementation e;
    e.type.value = VELD::Float64;
    e.bufferSize = 8;
    e.timestamp = 77;
    e.type.SetName("x");
    EXPECT_EQ(e.Serialize(nullptr, 0), 68u + 2u);
    Bytes block(70);
    ASSERT_EQ(e.Serialize(block.data(), 70), 70u);
    KeepSeed("head_only", block.data(), block.size());
    VELDIOEltImplementation back;
    ASSERT_EQ(back.Deserialize(block.data(), block.size(), true), 0u);
    EXPECT_NE(back.data, nullptr);
    EXPECT_EQ(back.bufferSize, 8);
    EXPECT_EQ(back.timestamp, 77);
    EXPECT_STREQ(back.type.Name(), "x");
}

TEST_F(SerializedElt, OneByteShortFailsWithoutAWord)
{
    MakeOutput(VELD::CANFrame | VELD::VectorFlag).AllocOutputBuffer(4, true);
    VELDIOEltImplementation& e = Slot(0);
    e.vectorSize = 3;
    const unsigned int size = e.Serialize(nullptr, 0);
    EXPECT_EQ(size, 68u + 72u);
    Bytes block(size, 0xEE);
    EXPECT_EQ(e.Serialize(block.data(), size - 1), kFailure);
    EXPECT_EQ(block, Bytes(size, 0xEE));
    EXPECT_EQ(e.Serialize(block.data(), size), size);
    EXPECT_EQ(Errors(), 0u);
}

struct WriteRefusal {
    VELDTypeInfoValue type;
    const char* message;
};

class WriteRefusals : public SerializedElt, public ::testing::WithParamInterface<WriteRefusal> {};

TEST_P(WriteRefusals, AreToldAfterTheHead)
{
    VELDIOEltImplementation e;
    alignas(16) unsigned char payload[256] = {};
    e.type.value = GetParam().type;
    e.data = payload;
    e.bufferSize = 4;
    VELDMatrix* m = new (payload) VELDMatrix();
    m->rows = 1, m->columns = 2;
    m->re = reinterpret_cast<double*>(payload + 40);
    Bytes block(e.Serialize(nullptr, 0));  // a matrix needs room for its whole buffer, 2 cells more
    EXPECT_EQ(e.Serialize(block.data(), static_cast<unsigned int>(block.size())), kFailure);
    EXPECT_TRUE(Reported(GetParam().message));
    VELDInt32 version = 0;
    std::memcpy(&version, block.data(), 4);
    EXPECT_EQ(version, 102);
}

INSTANTIATE_TEST_SUITE_P(
    Types, WriteRefusals,
    ::testing::Values(
        WriteRefusal{VELD::CustomType, "VELDIOElt serialization not supported for custom types."},
        WriteRefusal{VELD::DynamicStructure, "VELDIOElt serialization impossible : unknown type for VELDIOElt."},
        WriteRefusal{VELD::Matrix, "VELDIOElt serialization is not possible : destination memory is too small."}));

// ---------------------------------------------------------------------------
// Reading: refusals

struct ReadRefusal {
    const char* what;
    std::size_t offset;  // of the 32-bit field changed, in a block of Int32 x 4 with 3 in use
    VELDInt32 value;
    VELDTypeInfoValue type;  // of the reading element, which has a buffer of 4
    const char* message;
};

class ReadRefusals : public SerializedElt, public ::testing::WithParamInterface<ReadRefusal> {};

TEST_P(ReadRefusals, AreToldInTheirWords)
{
    const ReadRefusal& c = GetParam();
    MakeOutput(VELD::Integer32 | VELD::VectorFlag).AllocOutputBuffer(4, true);
    Slot(0).vectorSize = 3;
    Bytes block = Serialized(Slot(0));
    std::memcpy(block.data() + c.offset, &c.value, 4);
    VELDIOEltImplementation& reader = Slot(1);
    reader.type.value = c.type;
    EXPECT_EQ(reader.Deserialize(block.data(), block.size(), false), kFailure);
    EXPECT_TRUE(Reported(c.message)) << c.what << ": " << engine.GetConsole().LastError();
}

INSTANTIATE_TEST_SUITE_P(
    Fields, ReadRefusals,
    ::testing::Values(
        ReadRefusal{"bigger buffer", 4, 5, VELD::Integer32,
                    "VELDIOElt deserialization impossible : deserialized buffer size is bigger than allocated buffer "
                    "size."},
        ReadRefusal{"bigger vector", 8, 5, VELD::Integer32,
                    "VELDIOElt deserialization impossible : deserialized vector size is bigger than allocated buffer "
                    "size."},
        ReadRefusal{"negative vector", 8, -1, VELD::Integer32,
                    "VELDIOElt deserialization impossible : negative size or length in the source."},
        ReadRefusal{"negative name", 36, -1, VELD::Integer32,
                    "VELDIOElt deserialization impossible : negative size or length in the source."},
        ReadRefusal{"custom type", 28, static_cast<VELDInt32>(VELD::CustomType), VELD::Integer32,
                    "VELDIOElt deserialization not supported for custom types."},
        ReadRefusal{"wider items", 28, static_cast<VELDInt32>(VELD::Float64), VELD::Integer32,
                    "VELDIOElt deserialization impossible : deserialized data do not fit the allocated buffer."},
        ReadRefusal{"header into flat", 28, static_cast<VELDInt32>(VELD::AudioSignal), VELD::Integer32,
                    "VELDIOElt deserialization impossible : deserialized data do not fit the allocated buffer."},
        ReadRefusal{"flat into header", 28, static_cast<VELDInt32>(VELD::Integer8), VELD::VELDImage,
                    "VELDIOElt deserialization impossible : deserialized data do not fit the allocated buffer."}));

TEST_F(SerializedElt, NoSourceOrNoPlaceIsRefused)
{
    VELDIOEltImplementation e;
    EXPECT_EQ(e.Deserialize(nullptr, true), kFailure);
    EXPECT_TRUE(Reported("VELDIOElt deserialization impossible : source pointer is NULL"));
    VELDInt32 version = 102;
    EXPECT_EQ(e.Deserialize(&version, false), kFailure);
    EXPECT_TRUE(Reported("VELDIOElt deserialization impossible : destination is not allocated properly."));
}

// ---------------------------------------------------------------------------
// The static helpers

TEST_F(SerializedElt, IsDeserializableSaysItDoesNotKnow)
{
    EXPECT_TRUE(VELDIOElt::IsDeserializable(nullptr));
    EXPECT_TRUE(engine.GetConsole().Contains(
        "External : VELDIOElt::IsDeserializable not implemented yet. Returns always true."));
}

struct CountCase {
    VELDTypeInfoValue type;
    int expected;  // vectorSize 3, bufferSize 5
};

class SerializedSizes : public SerializedElt, public ::testing::WithParamInterface<CountCase> {};

TEST_P(SerializedSizes, CountThePayloadBehindTheElement)
{
    struct alignas(16) Block {
        VELDIOEltImplementation elt;
        unsigned char header[160];
    };
    Block block;
    std::memset(block.header, 0, sizeof block.header);
    block.elt.type.value = GetParam().type;
    block.elt.vectorSize = 3;
    block.elt.bufferSize = 5;
    if (GetParam().type == VELD::Matrix) {
        VELDMatrix* m = new (block.header) VELDMatrix();
        m->re = m->im = reinterpret_cast<double*>(block.header);
    }
    if (GetParam().type == VELD::VELDImage) {
        VELDImage* image = reinterpret_cast<VELDImage*>(block.header);
        image->imageSize = 100;
        image->imageData = block.header;
    }
    EXPECT_EQ(VELDIOElt::SerializedIOEltSizeInBytes(&block.elt), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Types, SerializedSizes,
    ::testing::Values(CountCase{VELD::Integer16, 6}, CountCase{VELD::TextAscii, 3}, CountCase{VELD::CANUniFrame, 288},
                      CountCase{VELD::Matrix, 40 + 2 * 8 * 5}, CountCase{VELD::VELDImage, 8 + 100},
                      CountCase{VELD::Triangles3D, 48}, CountCase{VELD::RealObject, 5},
                      CountCase{VELD::AudioSignal, 5}, CountCase{VELD::CustomType, -1}));

TEST_F(SerializedElt, SerializedSizeOfNothingIsMinusOne) { EXPECT_EQ(VELDIOElt::SerializedIOEltSizeInBytes(nullptr), -1); }

}  // namespace
