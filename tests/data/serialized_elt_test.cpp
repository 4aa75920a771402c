// Elements as flat blocks of bytes: every type there and back, with and
// without allocation; blocks made by hand in the older head; what is refused
// and with which words.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>

#include "output_fixture.h"
#include "veld_containers.h"
#include "veld_io_records.h"

namespace {

using Bytes = std::vector<unsigned char>;

const unsigned int kFailure = 4294967295u;
#define IMPOSSIBLE "VELDIOElt deserialization impossible : "
const char* const kTruncated = IMPOSSIBLE "the source ends before the element does.";

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

// What an element says: written again into one place, so that the
// addresses of its blocks are the same each time, without the time of issue
// (not carried), the other addresses of an image header, which each element
// keeps as its own, and the padding behind a matrix header's owner flag.
Bytes Content(VELDIOEltImplementation& e)
{
    static unsigned char place[8192];
    std::memset(place, 0, sizeof place);
    const std::size_t head = e.Serialize(nullptr, 0) - e.IOEltUsedSizeInBytes(nullptr);
    if (e.Serialize(place, sizeof place) == kFailure) return Bytes();
    Bytes out(place, place + head + e.IOEltBufferSizeInBytes(nullptr));
    std::memset(out.data() + 20, 0, 8);
    if (e.type.value & VELD::IplImage) std::memset(out.data() + head + offsetof(_IplImage, imageDataOrigin), 0, 8);
    if (e.type.value & VELD::Matrix) std::memset(out.data() + head + 33, 0, 7);
    return out;
}

class SerializedElt : public OutputTest {
protected:
    VELDOutputImplementation& MakeOutput(VELDTypeInfoValue type) { return Make(2, 1, type, false); }
    VELDIOEltImplementation& Slot(int i) { return *Elements()[i]; }
    // A block with room for the element's full buffer.
    static Bytes Serialized(VELDIOEltImplementation& e, unsigned int* result = nullptr)
    {
        Bytes block(e.Serialize(nullptr, 0) + e.IOEltBufferSizeInBytes(nullptr));
        const unsigned int n = e.Serialize(block.data(), static_cast<unsigned int>(block.size()));
        if (result) *result = n;
        return block;
    }
    size_t Errors() { return engine.GetConsole().CountContaining("", VELD::Error); }
};

// Round trips

struct TypeCase {
    const char* name;
    VELDTypeInfoValue type;
    int header;  // bytes of a structured payload's header record; 0 for a flat one
};

class EveryType : public SerializedElt, public ::testing::WithParamInterface<TypeCase> {
protected:
    // The first slot of an output of the type, its head set and its payload
    // filled: the items in use, or every block behind the header. The second
    // slot is prepared alike. A mesh is full: the writer takes its blocks by
    // bufferSize, the reader by vectorSize.
    VELDIOEltImplementation& Source()
    {
        const VELDTypeInfoValue type = GetParam().type;
        VELDOutputImplementation& o = MakeOutput(type | VELD::VectorFlag);
        _IplImage ipl = {};
        ipl.nSize = 144, ipl.width = 8, ipl.height = 4, ipl.imageSize = 32;
        const VELDAudioSignal audio = {1, 2, 16, 48000, 40, nullptr};
        if (type == VELD::Matrix) o.AllocOutputBufferMatrix(3, 4);
        else if (type == VELD::IplImage) o.AllocOutputBufferIplImage(ipl, false);
        else if (type == VELD::VELDImage) o.AllocOutputBufferVELDImage(64, 8, 8, 1, 2, false);
        else if (type == VELD::AudioSignal) o.AllocOutputBufferAudioSignal(audio);
        else o.AllocOutputBuffer(6, true);
        VELDIOEltImplementation& e = Slot(0);
        e.timestamp = 1700000000123456, e.timeOfIssue = 99, e.frequency = 50, e.quality = 7;
        e.misc1 = 1, e.misc2 = -2, e.misc3 = 3;
        e.type.SetName("probe");
        e.type.SetUnit("mV");
        unsigned char* data = static_cast<unsigned char*>(e.data);
        const int header = GetParam().header;
        if (!header) e.vectorSize = 5;
        const std::size_t end = header ? e.IOEltBufferSizeInBytes(nullptr) : e.IOEltUsedSizeInBytes(nullptr);
        Pattern(data + header, end - header, static_cast<int>(type % 251));
        if (type == VELD::TextAscii) data[e.vectorSize] = 0;
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
    const unsigned int uncounted = GetParam().type == VELD::Triangles3D ? 16 * source.bufferSize : 0;
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
    ::testing::Values(TypeCase{"Int8", VELD::Integer8, 0}, TypeCase{"Int16", VELD::Integer16, 0},
                      TypeCase{"Int32", VELD::Integer32, 0}, TypeCase{"Int64", VELD::Integer64, 0},
                      TypeCase{"UInt8", VELD::UnsignedInteger8, 0}, TypeCase{"UInt16", VELD::UnsignedInteger16, 0},
                      TypeCase{"UInt32", VELD::UnsignedInteger32, 0}, TypeCase{"UInt64", VELD::UnsignedInteger64, 0},
                      TypeCase{"Float32", VELD::Float32, 0}, TypeCase{"Float64", VELD::Float64, 0},
                      TypeCase{"Text", VELD::TextAscii, 0}, TypeCase{"Unicode", VELD::TextUnicode, 0},
                      TypeCase{"CAN", VELD::CANFrame, 0}, TypeCase{"CANFD", VELD::CANFDFrame, 0},
                      TypeCase{"CANUni", VELD::CANUniFrame, 0}, TypeCase{"RealObject", VELD::RealObject, 0},
                      TypeCase{"DrawingObject", VELD::DrawingObject, 0}, TypeCase{"Structure", VELD::Structure, 0},
                      TypeCase{"Matrix", VELD::Matrix, 40}, TypeCase{"IplImage", VELD::IplImage, 144},
                      TypeCase{"VELDImage", VELD::VELDImage, 48}, TypeCase{"Audio", VELD::AudioSignal, 24},
                      TypeCase{"Triangles", VELD::Triangles3D, 48}),
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

// Heads made by hand: the older one has no time of issue

class Versions : public SerializedElt, public ::testing::WithParamInterface<VELDInt32> {};

TEST_P(Versions, AreReadWithTheirHeadOrRefused)
{
    const VELDInt32 version = GetParam();
    Bytes block;
    auto put = [&](auto value) { Append(block, &value, sizeof value); };
    put(version), put(VELDInt32(4)), put(VELDInt32(3)), put(VELDInt64(1234567));
    if (version > 100) put(VELDInt64(42));
    put(VELDTypeInfoValue(VELD::Integer32 | VELD::VectorFlag)), put(VELDInt32(3)), Append(block, "abc", 4);
    put(VELDInt32(0)), put(VELDInt64(25)), put(VELDInt32(9)), put(VELDInt32(-1)), put(VELDInt32(-2)), put(VELDInt32(-3));
    for (VELDInt32 i : {10, 20, 30}) put(i);
    KeepSeed("version" + std::to_string(version), block.data(), block.size());

    VELDIOEltImplementation e;
    e.type.SetUnit("old");
    const unsigned int result = e.Deserialize(block.data(), block.size(), true);
    if (version > 102) {
        EXPECT_EQ(result, kFailure);
        EXPECT_TRUE(Reported("Wrong binary format version for VELDIOElt, received = 103, current = 101"));
        return;
    }
    ASSERT_EQ(result, 0u) << engine.GetConsole().LastError();
    EXPECT_EQ(std::vector<VELDInt64>({e.bufferSize, e.vectorSize, e.timestamp, e.timeOfIssue, e.frequency, e.quality,
                                      e.misc1, e.misc2, e.misc3, *e.Integer32(0), *e.Integer32(2)}),
              std::vector<VELDInt64>({4, 3, 1234567, 0, 25, 9, -1, -2, -3, 10, 30}));
    EXPECT_EQ(e.type.value, VELD::Integer32 | VELD::VectorFlag);
    EXPECT_STREQ(e.type.Name(), "abc");
    EXPECT_STREQ(e.type.Unit(), "");  // emptied, not removed
}

INSTANTIATE_TEST_SUITE_P(Heads, Versions, ::testing::Values(99, 100, 101, 102, 103));

// Sizes, and what is refused

TEST_F(SerializedElt, AHeadAloneComesBackWithABufferAndOneByteShortFailsWithoutAWord)
{
    VELDIOEltImplementation e;
    e.type.value = VELD::Float64;
    e.bufferSize = 8;
    e.timestamp = 77;
    e.type.SetName("x");
    ASSERT_EQ(e.Serialize(nullptr, 0), 70u);  // 68 and the name with its zero
    Bytes block(70, 0xEE);
    EXPECT_EQ(e.Serialize(block.data(), 69), kFailure);
    EXPECT_EQ(block, Bytes(70, 0xEE));
    ASSERT_EQ(e.Serialize(block.data(), 70), 70u);
    KeepSeed("head_only", block.data(), block.size());
    EXPECT_EQ(Errors(), 0u);
    VELDIOEltImplementation back;
    ASSERT_EQ(back.Deserialize(block.data(), block.size(), true), 0u);
    EXPECT_NE(back.data, nullptr);
    EXPECT_EQ(std::make_tuple(back.bufferSize, back.timestamp), std::make_tuple(8, 77));
}

TEST_F(SerializedElt, WritingIsRefusedAfterTheHeadForATypeOfUnknownSizeOrTooLittleRoom)
{
    const struct {
        VELDTypeInfoValue type;
        const char* message;
    } cases[] = {{VELD::CustomType, "VELDIOElt serialization not supported for custom types."},
                 {VELD::DynamicStructure, "VELDIOElt serialization impossible : unknown type for VELDIOElt."},
                 // A partly filled matrix writes its whole buffer: 2 cells more than its size says.
                 {VELD::Matrix, "VELDIOElt serialization is not possible : destination memory is too small."}};
    for (const auto& c : cases) {
        VELDIOEltImplementation e;
        alignas(16) unsigned char payload[256] = {};
        e.type.value = c.type;
        e.data = payload;
        e.bufferSize = 4;
        VELDMatrix* m = new (payload) VELDMatrix();
        m->rows = 1, m->columns = 2;
        m->re = reinterpret_cast<double*>(payload + 40);
        Bytes block(e.Serialize(nullptr, 0));
        EXPECT_EQ(e.Serialize(block.data(), static_cast<unsigned int>(block.size())), kFailure);
        EXPECT_TRUE(Reported(c.message)) << c.message;
        EXPECT_EQ(block[0], 102);
        e.data = nullptr;
    }
}

TEST_F(SerializedElt, ReadRefusalsAreToldInTheirWords)
{
    const char* const doesNotFit = IMPOSSIBLE "deserialized data do not fit the allocated buffer.";
    const char* const negative = IMPOSSIBLE "negative size or length in the source.";
    const struct {
        std::size_t offset;  // of the 32-bit field changed, in a block of Int32 x 4 with 3 in use
        VELDInt32 value;
        VELDTypeInfoValue type;  // of the reading element, which has a buffer of 4
        const char* message;
    } cases[] = {
        {4, 5, VELD::Integer32, IMPOSSIBLE "deserialized buffer size is bigger than allocated buffer size."},
        {8, 5, VELD::Integer32, IMPOSSIBLE "deserialized vector size is bigger than allocated buffer size."},
        {8, -1, VELD::Integer32, negative}, {36, -1, VELD::Integer32, negative},
        {28, VELD::CustomType, VELD::Integer32, "VELDIOElt deserialization not supported for custom types."},
        {28, VELD::Float64, VELD::Integer32, doesNotFit},
        {28, VELD::AudioSignal, VELD::Integer32, doesNotFit},  // a header into items
        {28, VELD::Integer8, VELD::VELDImage, doesNotFit}};    // items into a header
    for (const auto& c : cases) {
        MakeOutput(VELD::Integer32 | VELD::VectorFlag).AllocOutputBuffer(4, true);
        Slot(0).vectorSize = 3;
        Bytes block = Serialized(Slot(0));
        std::memcpy(block.data() + c.offset, &c.value, 4);
        VELDIOEltImplementation& reader = Slot(1);
        reader.type.value = c.type;
        engine.GetConsole().ClearCaptured();
        EXPECT_EQ(reader.Deserialize(block.data(), block.size(), false), kFailure) << c.message;
        EXPECT_TRUE(Reported(c.message)) << c.offset << ": " << engine.GetConsole().LastError();
    }
}

TEST_F(SerializedElt, NoSourceOrNoPlaceIsRefused)
{
    VELDIOEltImplementation e;
    EXPECT_EQ(e.Deserialize(nullptr, true), kFailure);
    EXPECT_TRUE(Reported(IMPOSSIBLE "source pointer is NULL"));
    VELDInt32 version = 102;
    EXPECT_EQ(e.Deserialize(&version, false), kFailure);
    EXPECT_TRUE(Reported(IMPOSSIBLE "destination is not allocated properly."));
}

// The static helpers

TEST_F(SerializedElt, SerializedSizesCountThePayloadBehindTheElement)
{
    struct alignas(16) Block {
        VELDIOEltImplementation elt;
        unsigned char header[160] = {};
    };
    // vectorSize 3, bufferSize 5; a matrix with both blocks, an image of 100 bytes.
    const std::pair<VELDTypeInfoValue, int> cases[] = {
        {VELD::Integer16, 6},    {VELD::TextAscii, 3},    {VELD::CANUniFrame, 288}, {VELD::Matrix, 40 + 2 * 8 * 5},
        {VELD::VELDImage, 108},  {VELD::Triangles3D, 48}, {VELD::RealObject, 5},    {VELD::AudioSignal, 5},
        {VELD::CustomType, -1}};
    for (const auto& c : cases) {
        Block block;
        block.elt.type.value = c.first;
        block.elt.vectorSize = 3;
        block.elt.bufferSize = 5;
        VELDMatrix* m = c.first == VELD::Matrix ? new (block.header) VELDMatrix() : nullptr;
        if (m) m->re = m->im = reinterpret_cast<double*>(block.header);
        VELDImage* image = reinterpret_cast<VELDImage*>(block.header);
        if (c.first == VELD::VELDImage) image->imageSize = 100, image->imageData = block.header;
        EXPECT_EQ(VELDIOElt::SerializedIOEltSizeInBytes(&block.elt), c.second) << c.first;
    }
    EXPECT_EQ(VELDIOElt::SerializedIOEltSizeInBytes(nullptr), -1);
}

}  // namespace
