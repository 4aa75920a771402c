// The allocation family of an output: the size and layout that each type
// gets, the structured headers laid out in every slot, and the failures.
#include <cstring>
#include <tuple>

#include "output_fixture.h"
#include "veld_io_records.h"

namespace {

const int kFifoSize = 3;

class OutputBuffer : public OutputTest {
protected:
    VELDOutputImplementation& Make(VELDTypeInfoValue type, int fifoSize = kFifoSize)
    {
        return OutputTest::Make(fifoSize, 1, type, false);
    }
    unsigned char* Data(int slot) { return static_cast<unsigned char*>(Elements()[slot]->data); }
    template <class Header>
    Header* At(int slot)
    {
        return static_cast<Header*>(Elements()[slot]->data);
    }
    // The bytes of an element, the distance between the payloads of two
    // neighbouring slots, and the items of the buffer.
    std::tuple<int, long, int> Layout()
    {
        return {output->IOEltSizeBytes(), Data(1) - Data(0), output->bufferSizeItems};
    }
    void ExpectError(const std::function<void()>& call, const char* text)
    {
        EXPECT_EQ(Thrown(call), VELD::ErrorException) << text;
        EXPECT_TRUE(Reported(text)) << text;
    }
};

TEST_F(OutputBuffer, FlatRowsCarveEveryPayloadOutOfOneBlock)
{
    const struct {
        VELDTypeInfoValue type;
        int items, bytes, vectorSize;  // bytes per element; vectorSize after allocation
        bool zeroed;
    } rows[] = {{VELD::Integer16, 10, 20, 10, true},  {VELD::Float64, 3, 24, 3, true},
                {VELD::CANFrame, 10, 240, 10, true},  {VELD::CANUniFrame, 10, 960, 10, true},
                {VELD::DrawingObject, 2, 192, 2, true},
                {VELD::TextAscii, 100, 100, 0, true},  // an empty text, not a full one
                {VELD::Stream8, 100, 100, 100, true},
                {VELD::Structure, 100, 100, 100, false}};  // a structure keeps what the allocator gave
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        Make(row.type | VELD::VectorFlag);
        output->AllocOutputBuffer(row.items, true);
        std::memset(output->sharedMemory, 0xAB, static_cast<size_t>(row.bytes) * kFifoSize);
        output->FreeBuffer();  // and again on the same block, most likely: the clearing must be seen
        output->AllocOutputBuffer(row.items, true);
        EXPECT_EQ(Layout(), std::make_tuple(row.bytes, long(row.bytes), row.items));
        const std::vector<unsigned char> zeros(static_cast<size_t>(row.bytes), 0);
        for (int i = 0; i < kFifoSize; ++i) {
            VELDIOEltImplementation& e = *Elements()[i];
            EXPECT_EQ(e.data, output->sharedMemory + i * row.bytes);
            EXPECT_EQ(std::make_tuple(e.bufferSize, e.vectorSize, e.type.value),
                      std::make_tuple(row.items, row.vectorSize, row.type | VELD::VectorFlag));
            if (row.zeroed) {
                EXPECT_EQ(std::memcmp(e.data, zeros.data(), zeros.size()), 0);
            }
        }
    }
}

TEST_F(OutputBuffer, AVectorWithoutItsFlagIsReportedButAllocated)
{
    Make(VELD::Integer32).AllocOutputBuffer(10, true);
    EXPECT_TRUE(Reported("Output o is a vector but its vector flag is not set."));
    EXPECT_EQ(Elements()[2]->bufferSize, 10);
    engine.GetConsole().ClearCaptured();
    // A single value, a text and a matrix are no vectors.
    for (const auto& [type, items] : {std::make_pair(VELD::Integer32, 1), {VELD::TextAscii, 100}, {VELD::Matrix, 4}})
        Make(type).AllocOutputBuffer(items, true);
    EXPECT_FALSE(Reported("vector flag"));
}

TEST_F(OutputBuffer, StructuredRowsPutTheirHeadersOnEightByteBoundaries)
{
    const struct {
        VELDTypeInfoValue type;
        int items, bytes;
        long stride;
        int bufferSizeItems;  // -1: the capacity counts bytes
    } rows[] = {{VELD::Matrix, 6, 16 * 6 + 40, 136, 6},     {VELD::IplImage, 100, 264, 264, -1},
                {VELD::VELDImage, 2, 50, 56, -1},           {VELD::Triangles3D, 4, 56 * 4 + 48, 272, 4},
                {VELD::AudioSignal, 50, 74, 80, -1}};
    for (const auto& row : rows) {
        Make(row.type).AllocOutputBuffer(row.items, true);
        EXPECT_EQ(Layout(), std::make_tuple(row.bytes, row.stride, row.bufferSizeItems)) << row.type;
    }
}

TEST_F(OutputBuffer, AMatrixGetsItsHeaderAndTwoClearedBlocksOfGivenDimensions)
{
    Make(VELD::Matrix).AllocOutputBuffer(6, true);
    for (int i = 0; i < kFifoSize; ++i) {
        VELDMatrix* matrix = At<VELDMatrix>(i);
        EXPECT_EQ(std::make_tuple(matrix->rows, matrix->columns, matrix->owner), std::make_tuple(0, 0, false));
        EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->re), Data(i) + 40);
        EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->im), Data(i) + 40 + 48);
        for (int k = 0; k < 6; ++k) EXPECT_EQ(matrix->re[k] + matrix->im[k], 0.0);
    }

    Make(VELD::Matrix);
    ExpectError([&] { output->AllocOutputBufferMatrix(-1, 3); }, "AllocOutputBufferMatrix:445: m [-1] < 0");
    ExpectError([&] { output->AllocOutputBufferMatrix(2, -3); }, "AllocOutputBufferMatrix:446: n [-3] < 0");
    output->AllocOutputBufferMatrix(2, 3);
    EXPECT_EQ(Layout(), std::make_tuple(16 * 6 + 40, 16L * 6 + 40, 6));
    VELDMatrix* matrix = At<VELDMatrix>(2);
    EXPECT_EQ(std::make_tuple(matrix->rows, matrix->columns, Elements()[2]->bufferSize), std::make_tuple(2, 3, 6));
    EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->im), Data(2) + 40 + 48);
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(2, 3); }), VELD::ErrorException);
}

TEST_F(OutputBuffer, ImageRowsNeedTwoItemsAtLeastOrGetOnlyHeadersForExternalPixels)
{
    Make(VELD::VELDImage).AllocOutputBuffer(1, true);
    EXPECT_EQ(std::make_tuple(output->bufferSizeItems, output->sharedMemory, Elements()[0]->data),
              std::make_tuple(0, nullptr, nullptr));
    output->AllocOutputBuffer(2, true);  // nothing was allocated: this one is allowed
    VELDImage* image = At<VELDImage>(1);
    EXPECT_EQ(image->bufferSize, 2);
    EXPECT_EQ(image->imageData, Data(1) + 48);
    EXPECT_EQ(std::memcmp(image->imageCoding, "????", 4), 0);

    // With external pixels: only headers, which count as a full image.
    Make(VELD::VELDImage);
    ExpectError([&] { output->AllocOutputBufferImage(1000, -1, 10, 0, 0, true); },
                "AllocOutputBufferImage:584: w [-1] < 0");
    const unsigned int coding = 0x34363248, type = 0x20202020;
    output->AllocOutputBufferImage(1000, 10, 10, coding, type, true);
    EXPECT_EQ(Layout(), std::make_tuple(1048, 48L, -1));
    for (int i = 0; i < kFifoSize; ++i) {
        image = At<VELDImage>(i);
        EXPECT_EQ(std::make_tuple(image->imageId, image->imageId2, image->imageData, image->imageSize),
                  std::make_tuple(i, 57005, nullptr, 1000));
        EXPECT_EQ(std::memcmp(image->imageCoding, &coding, 4), 0);
        EXPECT_EQ(std::memcmp(image->imageType, &type, 4), 0);
    }
    Make(VELD::VELDImage);
    static_cast<VELDOutput&>(*output).AllocOutputBufferVELDImage(1000, 10, 10, coding, type, false);
    EXPECT_EQ(Data(1) - Data(0), 1048);
    EXPECT_EQ(At<VELDImage>(1)->imageData, Data(1) + 48);
}

TEST_F(OutputBuffer, AnImageOfThePlanarModelGetsItsRegionOfInterestBehindItsHeaderAndAlignedPixels)
{
    Make(VELD::IplImage).AllocOutputBuffer(100, true);
    _IplImage* image = At<_IplImage>(2);
    EXPECT_EQ(std::memcmp(image->colorModel, "????", 4), 0);
    EXPECT_EQ(std::memcmp(image->channelSeq, "????", 4), 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(image->roi), Data(2) + 144);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(image->imageData), Data(2) + 164);
    EXPECT_EQ(image->roi->width + image->roi->height + image->roi->coi, 0);
    EXPECT_EQ(image->width, 0);

    // From a model: aligned pixels.
    _IplImage model = {};
    model.imageSize = 100, model.align = 16, model.width = 10, model.height = 10;
    Make(VELD::IplImage).AllocOutputBufferIplImage(model, false);
    EXPECT_EQ(Layout(), std::make_tuple(280, 100L + 16 + 164, -1));
    for (VELDIOEltImplementation* elt : Elements()) {
        image = static_cast<_IplImage*>(elt->data);
        char* origin = reinterpret_cast<char*>(elt->data) + 164;
        EXPECT_EQ(image->imageDataOrigin, origin);
        EXPECT_GT(image->imageData, origin);
        EXPECT_LE(image->imageData, origin + 16);
        EXPECT_EQ(reinterpret_cast<unsigned long>(image->imageData) % 16, 0u);
        EXPECT_EQ(std::make_tuple(image->roi->width, image->width, elt->bufferSize), std::make_tuple(10, 10, 100));
    }
    Make(VELD::IplImage).AllocOutputBufferIplImage(model, true);
    EXPECT_EQ(Layout(), std::make_tuple(280, 168L, -1));  // 164, on an 8-byte boundary
    EXPECT_EQ(At<_IplImage>(0)->imageData, nullptr);

    model.imageSize = -1;
    Make(VELD::IplImage);
    ExpectError([&] { output->AllocOutputBufferIplImage(model, false); },
                "AllocOutputBufferIplImage:546: model.imageSize [-1] < 0");
}

TEST_F(OutputBuffer, AMeshAndASoundGetTheirBlocksBehindTheirHeaders)
{
    Make(VELD::Triangles3D).AllocOutputBuffer(4, true);
    VELDTriangles3D* mesh = At<VELDTriangles3D>(1);
    EXPECT_EQ(mesh->nbPoints + mesh->nbTriangles + mesh->nbObjects, 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->points), Data(1) + 48);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->triangles), Data(1) + 48 + 24 * 4);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->objects), Data(1) + 48 + 40 * 4);

    Make(VELD::AudioSignal).AllocOutputBuffer(50, true);
    EXPECT_EQ(At<VELDAudioSignal>(1)->streamSizeInBytes, 50u);
    EXPECT_EQ(At<VELDAudioSignal>(1)->streamData, Data(1) + 24);

    VELDAudioSignal model = {};  // from a model
    model.streamSizeInBytes = 64, model.channels = 2, model.samplesPerSecond = 48000;
    Make(VELD::AudioSignal).AllocOutputBufferAudioSignal(model);
    EXPECT_EQ(std::make_tuple(Data(1) - Data(0), output->bufferSizeItems), std::make_tuple(88L, -1));
    VELDAudioSignal* audio = At<VELDAudioSignal>(2);
    EXPECT_EQ(std::make_tuple(audio->channels, audio->samplesPerSecond, Elements()[2]->bufferSize),
              std::make_tuple(2, 48000u, 64));
    EXPECT_EQ(audio->streamData, Data(2) + 24);
}

TEST_F(OutputBuffer, NothingAllocatedLeavesTheOutputFreeForALaterCall)
{
    Make(VELD::Integer32 | VELD::VectorFlag).AllocOutputBuffer(0, true);
    EXPECT_EQ(std::make_tuple(output->bufferSizeItems, output->sharedMemory), std::make_tuple(0, nullptr));
    for (VELDIOEltImplementation* elt : Elements()) EXPECT_EQ(elt->bufferSize, 0);
    output->AllocOutputBuffer(5, true);
    EXPECT_EQ(Elements()[0]->bufferSize, 5);
    ExpectError([&] { output->AllocOutputBuffer(-1, true); }, "AllocOutputBuffer:150: isize [-1] < 0");

    // Without allocation the elements get their size but no memory.
    Make(VELD::Integer32 | VELD::VectorFlag).AllocOutputBuffer(10, false);
    EXPECT_EQ(output->sharedMemory, nullptr);
    for (VELDIOEltImplementation* elt : Elements())
        EXPECT_EQ(std::make_tuple(elt->bufferSize, elt->data), std::make_tuple(10, nullptr));
    ExpectError([&] { output->AllocOutputBuffer(10, false); },
                "Output buffer already initialized. Can't initialize an output buffer twice.");
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(1, 1); }), VELD::ErrorException);
    std::vector<veldor::ReportRecord> reports = engine.GetConsole().Captured();
    ASSERT_GE(reports.size(), 2u);
    EXPECT_EQ(reports[reports.size() - 2].verbosity, 1);  // AllocOutputBuffer
    EXPECT_EQ(reports.back().verbosity, 2);               // the rest of the family
}

TEST_F(OutputBuffer, FreeingGivesTheBlockBackAndClearsTheHistory)
{
    Make(VELD::Integer32 | VELD::VectorFlag).AllocOutputBuffer(4, true);
    output->timestampHistory[3] = 77;
    output->timestampHistory[30] = 78;
    output->FreeBuffer();
    EXPECT_EQ(std::make_tuple(output->sharedMemory, output->bufferSizeItems), std::make_tuple(nullptr, 0));
    EXPECT_EQ(output->timestampHistory[3] + output->timestampHistory[30], 0);
    EXPECT_EQ(Elements()[0]->data, nullptr);  // no element points into the freed block
    output->AllocOutputBuffer(8, true);
    EXPECT_EQ(Elements()[0]->bufferSize, 8);
}

TEST_F(OutputBuffer, TheWholeBlockMustBeCountableInSixtyFourBits)
{
    Make(VELD::Structure, 2);
    ExpectError([&] { output->AllocateSharedMemory(std::size_t(1) << 63); },
                "AllocateSharedMemory:63: Requested buffer size [9223372036854775808] is too big given the current "
                "FIFO size [2] of output [m.o]. Please reduce the requested output buffer size and/or the output FIFO "
                "size such that (buffer_size * fifo_size) <= 18446744073709551615 (i.e. "
                "std::numeric_limits<size_t>::max)");
    engine.GetConsole().ClearCaptured();
    output->AllocateSharedMemory(0);  // nothing to multiply: never too big
    EXPECT_NE(output->sharedMemory, nullptr);
    Make(VELD::Structure, -1);  // a negative FIFO size counts as a huge one
    ExpectError([&] { output->AllocateSharedMemory(2); }, "is too big given the current FIFO size [-1]");
}

TEST_F(OutputBuffer, ABlockThatTheSystemRefusesIsReported)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators abort on such a request";
#endif
    Make(VELD::Structure, 2);
    // Countable, barely, and far beyond any memory.
    ExpectError([&] { output->AllocateSharedMemory((std::size_t(1) << 63) - 1); },
                "AllocateSharedMemory:107: Failed to allocate [buffer_size:9223372036854775807 x fifo_size:2 = "
                "18446744073709551614] bytes for output [m.o]");
    EXPECT_EQ(output->sharedMemory, nullptr);
}

TEST_F(OutputBuffer, RenamingReplacesTheModulePartOnly)
{
    Make(VELD::Integer32);
    output->Rename("x", "y");
    EXPECT_STREQ(output->Name(), "m.o");
    output->Rename("m", "module2");
    EXPECT_STREQ(output->Name(), "module2.o");
    output->name = "a.b.c";
    output->Rename("a", "z");
    EXPECT_STREQ(output->Name(), "z.b.c");
}

}  // namespace
