// The allocation family of an output: the size and layout that each type
// gets, the structured headers laid out in every slot, and the failures.
#include <cstring>

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
    // The distance between the payloads of two neighbouring slots.
    long Stride() { return Data(1) - Data(0); }
};

// ---------------------------------------------------------------------------
// AllocOutputBuffer, flat rows

struct FlatRow {
    VELDTypeInfoValue type;
    int items;
    int bytes;       // per element
    int vectorSize;  // of each element after allocation
    bool zeroed;     // the payload is cleared
};

class FlatRows : public OutputBuffer, public ::testing::WithParamInterface<FlatRow> {};

TEST_P(FlatRows, CarveEveryPayloadOutOfOneBlock)
{
    const FlatRow& row = GetParam();
    Make(row.type | VELD::VectorFlag);
    output->AllocOutputBuffer(row.items, true);
    std::memset(output->sharedMemory, 0xAB, static_cast<size_t>(row.bytes) * kFifoSize);
    // Again on the same block, most likely: the clearing must be seen.
    output->FreeBuffer();
    output->AllocOutputBuffer(row.items, true);

    EXPECT_EQ(output->IOEltSizeBytes(), row.bytes);
    EXPECT_EQ(output->bufferSizeItems, row.items);
    EXPECT_EQ(Stride(), row.bytes);
    std::vector<VELDIOEltImplementation*> elements = Elements();
    for (int i = 0; i < kFifoSize; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(elements[i]->data, output->sharedMemory + i * row.bytes);
        EXPECT_EQ(elements[i]->bufferSize, row.items);
        EXPECT_EQ(elements[i]->vectorSize, row.vectorSize);
        EXPECT_EQ(elements[i]->type.value, row.type | VELD::VectorFlag);
        if (row.zeroed) {
            std::vector<unsigned char> zeros(static_cast<size_t>(row.bytes), 0);
            EXPECT_EQ(std::memcmp(elements[i]->data, zeros.data(), zeros.size()), 0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Types, FlatRows,
    ::testing::Values(FlatRow{VELD::Integer16, 10, 20, 10, true}, FlatRow{VELD::Float64, 3, 24, 3, true},
                      FlatRow{VELD::CANFrame, 10, 240, 10, true}, FlatRow{VELD::CANUniFrame, 10, 960, 10, true},
                      FlatRow{VELD::DrawingObject, 2, 192, 2, true},
                      // An empty text, not a full one.
                      FlatRow{VELD::TextAscii, 100, 100, 0, true}, FlatRow{VELD::Stream8, 100, 100, 100, true},
                      // The buffer of a structure keeps what the allocator gave.
                      FlatRow{VELD::Structure, 100, 100, 100, false}));

TEST_F(OutputBuffer, AVectorWithoutItsFlagIsReportedButAllocated)
{
    Make(VELD::Integer32);
    output->AllocOutputBuffer(10, true);
    EXPECT_TRUE(Reported("Output o is a vector but its vector flag is not set."));
    EXPECT_EQ(Elements()[2]->bufferSize, 10);

    engine.GetConsole().ClearCaptured();
    Make(VELD::Integer32);
    output->AllocOutputBuffer(1, true);  // a single value is no vector
    Make(VELD::TextAscii);
    output->AllocOutputBuffer(100, true);  // a text is no vector either
    Make(VELD::Matrix);
    output->AllocOutputBuffer(4, true);
    EXPECT_FALSE(Reported("vector flag"));
}

// ---------------------------------------------------------------------------
// AllocOutputBuffer, structured rows

TEST_F(OutputBuffer, AMatrixGetsItsHeaderAndTwoClearedBlocksOfGivenDimensions)
{
    Make(VELD::Matrix);
    output->AllocOutputBuffer(6, true);
    EXPECT_EQ(output->IOEltSizeBytes(), 16 * 6 + 40);
    EXPECT_EQ(Stride(), 16 * 6 + 40);
    for (VELDIOEltImplementation* elt : Elements()) {
        VELDMatrix* matrix = static_cast<VELDMatrix*>(elt->data);
        unsigned char* data = static_cast<unsigned char*>(elt->data);
        EXPECT_EQ(matrix->rows, 0);
        EXPECT_EQ(matrix->columns, 0);
        EXPECT_FALSE(matrix->owner);
        EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->re), data + 40);
        EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->im), data + 40 + 48);
        for (int k = 0; k < 6; ++k) EXPECT_EQ(matrix->re[k] + matrix->im[k], 0.0);
    }

    // Of given dimensions.
    Make(VELD::Matrix);
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(-1, 3); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocOutputBufferMatrix:445: m [-1] < 0"));
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(2, -3); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocOutputBufferMatrix:446: n [-3] < 0"));

    output->AllocOutputBufferMatrix(2, 3);
    EXPECT_EQ(output->bufferSizeItems, 6);
    EXPECT_EQ(Stride(), 16 * 6 + 40);
    VELDMatrix* matrix = static_cast<VELDMatrix*>(Elements()[2]->data);
    EXPECT_EQ(matrix->rows, 2);
    EXPECT_EQ(matrix->columns, 3);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(matrix->im), Data(2) + 40 + 48);
    EXPECT_EQ(Elements()[2]->bufferSize, 6);
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(2, 3); }), VELD::ErrorException);
}

TEST_F(OutputBuffer, ImageRowsNeedTwoItemsAtLeastOrGetOnlyHeadersForExternalPixels)
{
    Make(VELD::VELDImage);
    output->AllocOutputBuffer(1, true);
    EXPECT_EQ(output->bufferSizeItems, 0);
    EXPECT_EQ(output->sharedMemory, nullptr);
    EXPECT_EQ(Elements()[0]->data, nullptr);

    output->AllocOutputBuffer(2, true);  // nothing was allocated: this one is allowed
    EXPECT_EQ(output->bufferSizeItems, -1);
    EXPECT_EQ(output->IOEltSizeBytes(), 50);
    EXPECT_EQ(Stride(), 56);  // a header stands on an 8-byte boundary
    VELDImage* image = static_cast<VELDImage*>(Elements()[1]->data);
    EXPECT_EQ(image->bufferSize, 2);
    EXPECT_EQ(image->imageData, Data(1) + 48);
    EXPECT_EQ(std::memcmp(image->imageCoding, "????", 4), 0);

    // With external pixels: only headers.
    Make(VELD::VELDImage);
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferImage(1000, -1, 10, 0, 0, true); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocOutputBufferImage:584: w [-1] < 0"));

    const unsigned int coding = 0x34363248, type = 0x20202020;
    output->AllocOutputBufferImage(1000, 10, 10, coding, type, true);
    EXPECT_EQ(Stride(), 48);
    EXPECT_EQ(output->IOEltSizeBytes(), 1048);  // the size of a full image all the same
    for (int i = 0; i < kFifoSize; ++i) {
        image = static_cast<VELDImage*>(Elements()[i]->data);
        EXPECT_EQ(image->imageId, i);
        EXPECT_EQ(image->imageId2, 57005);
        EXPECT_EQ(image->imageData, nullptr);
        EXPECT_EQ(image->imageSize, 1000);
        EXPECT_EQ(std::memcmp(image->imageCoding, &coding, 4), 0);
        EXPECT_EQ(std::memcmp(image->imageType, &type, 4), 0);
    }

    Make(VELD::VELDImage);
    static_cast<VELDOutput&>(*output).AllocOutputBufferVELDImage(1000, 10, 10, coding, type, false);
    EXPECT_EQ(Stride(), 1048);
    EXPECT_EQ(static_cast<VELDImage*>(Elements()[1]->data)->imageData, Data(1) + 48);
}

TEST_F(OutputBuffer, AnImageOfThePlanarModelGetsItsRegionOfInterestBehindItsHeaderAndAlignedPixels)
{
    Make(VELD::IplImage);
    output->AllocOutputBuffer(100, true);
    EXPECT_EQ(output->IOEltSizeBytes(), 264);
    EXPECT_EQ(Stride(), 264);
    _IplImage* image = static_cast<_IplImage*>(Elements()[2]->data);
    EXPECT_EQ(std::memcmp(image->colorModel, "????", 4), 0);
    EXPECT_EQ(std::memcmp(image->channelSeq, "????", 4), 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(image->roi), Data(2) + 144);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(image->imageData), Data(2) + 164);
    EXPECT_EQ(image->roi->width + image->roi->height + image->roi->coi, 0);
    EXPECT_EQ(image->width, 0);

    // From a model: aligned pixels.
    _IplImage model;
    std::memset(&model, 0, sizeof model);
    model.imageSize = 100;
    model.align = 16;
    model.width = 10;
    model.height = 10;
    Make(VELD::IplImage);
    output->AllocOutputBufferIplImage(model, false);
    EXPECT_EQ(Stride(), 100 + 16 + 164);
    EXPECT_EQ(output->IOEltSizeBytes(), 280);
    for (VELDIOEltImplementation* elt : Elements()) {
        image = static_cast<_IplImage*>(elt->data);
        char* origin = reinterpret_cast<char*>(elt->data) + 164;
        EXPECT_EQ(image->imageDataOrigin, origin);
        EXPECT_GT(image->imageData, origin);
        EXPECT_LE(image->imageData, origin + 16);
        EXPECT_EQ(reinterpret_cast<unsigned long>(image->imageData) % 16, 0u);
        EXPECT_EQ(image->roi->width, 10);
        EXPECT_EQ(image->width, 10);
        EXPECT_EQ(elt->bufferSize, 100);
    }

    Make(VELD::IplImage);
    output->AllocOutputBufferIplImage(model, true);
    EXPECT_EQ(Stride(), 168);  // 164, on an 8-byte boundary
    EXPECT_EQ(static_cast<_IplImage*>(Elements()[0]->data)->imageData, nullptr);
    EXPECT_EQ(output->IOEltSizeBytes(), 280);

    model.imageSize = -1;
    Make(VELD::IplImage);
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferIplImage(model, false); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocOutputBufferIplImage:546: model.imageSize [-1] < 0"));
}

TEST_F(OutputBuffer, AMeshAndASoundGetTheirBlocksBehindTheirHeaders)
{
    Make(VELD::Triangles3D);
    output->AllocOutputBuffer(4, true);
    EXPECT_EQ(output->IOEltSizeBytes(), 56 * 4 + 48);
    VELDTriangles3D* mesh = static_cast<VELDTriangles3D*>(Elements()[1]->data);
    EXPECT_EQ(mesh->nbPoints + mesh->nbTriangles + mesh->nbObjects, 0);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->points), Data(1) + 48);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->triangles), Data(1) + 48 + 24 * 4);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(mesh->objects), Data(1) + 48 + 40 * 4);

    Make(VELD::AudioSignal);
    output->AllocOutputBuffer(50, true);
    EXPECT_EQ(output->IOEltSizeBytes(), 74);
    EXPECT_EQ(output->bufferSizeItems, -1);
    VELDAudioSignal* audio = static_cast<VELDAudioSignal*>(Elements()[1]->data);
    EXPECT_EQ(audio->streamSizeInBytes, 50u);
    EXPECT_EQ(audio->streamData, Data(1) + 24);

    // From a model.
    VELDAudioSignal model = {};
    model.streamSizeInBytes = 64;
    model.channels = 2;
    model.samplesPerSecond = 48000;
    Make(VELD::AudioSignal);
    output->AllocOutputBufferAudioSignal(model);
    EXPECT_EQ(Stride(), 88);
    EXPECT_EQ(output->bufferSizeItems, -1);
    audio = static_cast<VELDAudioSignal*>(Elements()[2]->data);
    EXPECT_EQ(audio->channels, 2);
    EXPECT_EQ(audio->samplesPerSecond, 48000u);
    EXPECT_EQ(audio->streamData, Data(2) + 24);
    EXPECT_EQ(Elements()[2]->bufferSize, 64);
}

// ---------------------------------------------------------------------------
// Limits and repeated allocation

TEST_F(OutputBuffer, NothingToAllocateLeavesTheOutputFreeForALaterCall)
{
    Make(VELD::Integer32 | VELD::VectorFlag);
    output->AllocOutputBuffer(0, true);
    EXPECT_EQ(output->bufferSizeItems, 0);
    EXPECT_EQ(output->sharedMemory, nullptr);
    for (VELDIOEltImplementation* elt : Elements()) EXPECT_EQ(elt->bufferSize, 0);
    output->AllocOutputBuffer(5, true);
    EXPECT_EQ(Elements()[0]->bufferSize, 5);

    EXPECT_EQ(Thrown([&] { output->AllocOutputBuffer(-1, true); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocOutputBuffer:150: isize [-1] < 0"));
}

TEST_F(OutputBuffer, WithoutAllocationTheElementsGetTheirSizeButNoMemory)
{
    Make(VELD::Integer32 | VELD::VectorFlag);
    output->AllocOutputBuffer(10, false);
    EXPECT_EQ(output->sharedMemory, nullptr);
    for (VELDIOEltImplementation* elt : Elements()) {
        EXPECT_EQ(elt->bufferSize, 10);
        EXPECT_EQ(elt->data, nullptr);
    }
    EXPECT_EQ(Thrown([&] { output->AllocOutputBuffer(10, false); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("Output buffer already initialized. Can't initialize an output buffer twice."));
    EXPECT_EQ(Thrown([&] { output->AllocOutputBufferMatrix(1, 1); }), VELD::ErrorException);
    std::vector<veldor::ReportRecord> reports = engine.GetConsole().Captured();
    ASSERT_GE(reports.size(), 2u);
    EXPECT_EQ(reports[reports.size() - 2].verbosity, 1);  // AllocOutputBuffer
    EXPECT_EQ(reports.back().verbosity, 2);               // the rest of the family
}

TEST_F(OutputBuffer, FreeingGivesTheBlockBackAndClearsTheHistory)
{
    Make(VELD::Integer32 | VELD::VectorFlag);
    output->AllocOutputBuffer(4, true);
    output->timestampHistory[3] = 77;
    output->timestampHistory[30] = 78;
    output->FreeBuffer();
    EXPECT_EQ(output->sharedMemory, nullptr);
    EXPECT_EQ(output->bufferSizeItems, 0);
    EXPECT_EQ(output->timestampHistory[3] + output->timestampHistory[30], 0);
    EXPECT_EQ(Elements()[0]->data, nullptr);  // no element points into the freed block
    output->AllocOutputBuffer(8, true);
    EXPECT_EQ(Elements()[0]->bufferSize, 8);
}

TEST_F(OutputBuffer, TheWholeBlockMustBeCountableInSixtyFourBits)
{
    Make(VELD::Structure, 2);
    EXPECT_EQ(Thrown([&] { output->AllocateSharedMemory(std::size_t(1) << 63); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocateSharedMemory:63: Requested buffer size [9223372036854775808] is too big given the "
                         "current FIFO size [2] of output [m.o]. Please reduce the requested output buffer size "
                         "and/or the output FIFO size such that (buffer_size * fifo_size) <= 18446744073709551615 "
                         "(i.e. std::numeric_limits<size_t>::max)"));
    engine.GetConsole().ClearCaptured();
    output->AllocateSharedMemory(0);  // nothing to multiply: never too big
    EXPECT_NE(output->sharedMemory, nullptr);
}

TEST_F(OutputBuffer, ABlockThatTheSystemRefusesIsReported)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators abort on such a request";
#endif
    Make(VELD::Structure, 2);
    // Countable, barely, and far beyond any memory.
    EXPECT_EQ(Thrown([&] { output->AllocateSharedMemory((std::size_t(1) << 63) - 1); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("AllocateSharedMemory:107: Failed to allocate [buffer_size:9223372036854775807 x "
                         "fifo_size:2 = 18446744073709551614] bytes for output [m.o]"));
    EXPECT_EQ(output->sharedMemory, nullptr);
}

TEST_F(OutputBuffer, ANegativeFifoSizeCountsAsAHugeOne)
{
    Make(VELD::Structure, -1);
    EXPECT_EQ(Thrown([&] { output->AllocateSharedMemory(2); }), VELD::ErrorException);
    EXPECT_TRUE(Reported("is too big given the current FIFO size [-1]"));
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
