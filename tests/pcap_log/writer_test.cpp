// What the writers write reads back identical, in both formats; what they
// refuse; flushing, closing and a failing disk.
#include <gtest/gtest.h>

#include <unistd.h>

#include "CaptureTestSupport.h"

using namespace veldor::pcaplog;
using namespace pcaplog_test;
using veldor::canlog::CanFrame;
using veldor::canlog::Direction;

class WriterRoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(WriterRoundTrip, EveryPacketReadsBackExactly)
{
    const std::string kind = GetParam();
    const bool pcapng = kind == "pcapng";
    const bool nano = kind != "pcap micro";
    canlog_test::ScratchDir dir;
    const std::string path = dir.File(pcapng ? "drive.pcapng" : "drive.pcap");
    const Drive d = MakeDrive(pcapng, 5000);
    WriterOptions options;
    options.pcapNanoseconds = nano;
    WriteDriveFile(path, d, options);

    const ReadOutcome r = ReadAll(path);
    ASSERT_EQ(r.openError, "");
    ASSERT_EQ(r.packets.size(), d.packets.size()) << r.lines.front();
    for (std::size_t i = 0; i < d.packets.size(); ++i) {
        const Packet& want = d.packets[i];
        const Packet& got = r.packets[i];
        ASSERT_EQ(got.interface, want.interface) << i;
        ASSERT_EQ(got.time, nano ? want.time : want.time / 1000 * 1000) << i;
        // pcap holds no direction.
        ASSERT_EQ(got.direction, pcapng ? want.direction : Direction::Rx) << i;
        if (r.interfaces[got.interface].Kind() == LinkKind::Can) {
            ASSERT_EQ(got.canFrame, want.canFrame) << i;
        } else {
            ASSERT_EQ(r.data[i], d.data[i]) << i;
            ASSERT_EQ(got.originalLength, want.originalLength) << i;
        }
    }
    for (std::size_t i = 0; i < d.interfaces.size(); ++i) {
        EXPECT_EQ(r.interfaces[i].name, pcapng ? d.interfaces[i].name : "");
        EXPECT_EQ(r.interfaces[i].linkType, d.interfaces[i].linkType);
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, WriterRoundTrip, ::testing::Values("pcapng", "pcap micro", "pcap nano"));

TEST(CaptureWriting, RefusedPacketsAndFiles)
{
    canlog_test::ScratchDir dir;
    std::string error;
    const struct {
        std::string path;
        std::vector<Interface> interfaces;
        const char* error;
    } files[] = {
        {dir.File("a.cap"), {Named("e")}, "the extension is neither .pcap nor .pcapng"},
        {dir.File("a.pcap"), {Named("e"), Named("f")}, "a pcap file holds one interface, not 2"},
        {dir.File("a.pcapng"), {Named("w", 105)}, "cannot write link type 105"},
        {dir.File("a.pcapng"), {}, "no interface to write"},
        {dir.File("no/a.pcapng"), {Named("e")}, "No such file or directory"},
    };
    for (const auto& f : files) {
        EXPECT_FALSE(OpenPacketWriter(f.path, f.interfaces, error));
        EXPECT_NE(error.find(f.error), std::string::npos) << error;
    }

    // The checks are the same for both formats; pcap's seconds end in 2106.
    Interface eth = Named("eth0");
    eth.snapLength = 100;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(dir.File("t.pcapng"), {eth, Named("c", 227)}, error);
    std::unique_ptr<PacketWriter> pcap = OpenPacketWriter(dir.File("t.pcap"), {eth}, error);
    ASSERT_TRUE(writer && pcap) << error;
    const std::uint8_t bytes[200] = {};
    const auto packet = [&](std::uint32_t interface, std::int64_t time, std::uint32_t captured, std::uint32_t original) {
        Packet p;
        p.interface = interface;
        p.time = time;
        p.capturedLength = captured;
        p.originalLength = original;
        p.data = bytes;
        return p;
    };
    CanFrame tooLong;
    tooLong.length = 9;
    const auto refused = [](WriteResult result, const PacketWriter& by, const char* why) {
        EXPECT_EQ(result, WriteResult::Refused) << why;
        EXPECT_NE(by.Error().find(why), std::string::npos) << by.Error();
    };
    refused(writer->Write(packet(7, 1, 60, 60)), *writer, "no interface 7 in the file");
    refused(writer->Write(packet(0, -1, 60, 60)), *writer, "time -1 ns is outside what the file holds");
    refused(writer->Write(packet(0, 1, 101, 101)), *writer, "101 bytes, above the snap length 100");
    refused(writer->Write(packet(0, 1, 60, 50)), *writer, "captured length above the original length");
    refused(writer->Write(0, CanFrame()), *writer, "interface 0 is no CAN interface");
    refused(writer->Write(1, tooLong), *writer, "classic frame longer than 8 bytes");
    refused(pcap->Write(packet(0, 0x100000000ll * 1000000000, 60, 60)), *pcap, "time 4294967296000000000 ns");
    EXPECT_EQ(writer->Write(packet(0, 5, 60, 0)), WriteResult::Written);
    EXPECT_TRUE(writer->Close());
    EXPECT_EQ(writer->Write(packet(0, 6, 60, 60)), WriteResult::Failed);
    EXPECT_EQ(writer->PacketsWritten(), 1u);
    const ReadOutcome r = ReadAll(dir.File("t.pcapng"));
    ASSERT_EQ(r.packets.size(), 1u);
    EXPECT_EQ(r.packets[0].originalLength, 60u);  // 0 stands for the captured length
}

TEST(CaptureWriting, CanErrorFramesAreReadBackWhenAskedForAndCountedElse)
{
    canlog_test::ScratchDir dir;
    const CanFrame frame = canlog_test::Classic(1700000000123456, 0x123, {0, 0, 0x08, 0x02, 0, 0, 0, 0});
    CanFrame error = canlog_test::AsError(frame);
    error.id = 0x24;  // bus error, protocol violation
    for (const char* name : {"e.pcap", "e.pcapng"}) {
        const std::string path = dir.File(name);
        std::string why;
        std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, {Named("can0", kLinkTypeSocketCan)}, why);
        ASSERT_TRUE(writer) << why;
        for (const CanFrame& f : {frame, error, frame}) ASSERT_EQ(writer->Write(0, f), WriteResult::Written) << writer->Error();
        ASSERT_TRUE(writer->Close());
        ReaderOptions options;
        options.errorFrames = true;
        const ReadOutcome all = ReadAll(path, options);
        ASSERT_EQ(all.packets.size(), 3u) << name;
        EXPECT_EQ(all.packets[1].canFrame, error) << name;
        const ReadOutcome counted = ReadAll(path);
        EXPECT_EQ(counted.packets.size(), 2u) << name;
        EXPECT_EQ(counted.errorFrames, 1u) << name;
    }
}

TEST(CaptureWriting, FlushCloseAndAFullDisk)
{
    canlog_test::ScratchDir dir;
    for (const char* name : {"f.pcap", "f.pcapng"}) {
        const std::string path = dir.File(name);
        const Drive d = MakeDrive(path.back() == 'g', 300);
        std::string error;
        std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, d.interfaces, error);
        ASSERT_TRUE(writer) << error;
        WriteDrive(*writer, d);
        // A flushed file holds every packet while the writer goes on.
        ASSERT_TRUE(writer->Flush());
        EXPECT_EQ(ReadAll(path).packets.size(), d.packets.size()) << name;
        WriteDrive(*writer, d);
        writer.reset();  // closes
        EXPECT_EQ(ReadAll(path).packets.size(), 2 * d.packets.size()) << name;
    }

    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    const std::string full = dir.File("full.pcapng");
    ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
    std::string error;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(full, {Named("eth0")}, error);
    ASSERT_TRUE(writer) << error;
    WriteDrive(*writer, MakeDrive(false, 10));
    EXPECT_FALSE(writer->Flush());
    EXPECT_EQ(writer->Error(), "write failed: No space left on device");
    EXPECT_EQ(writer->Write(Packet()), WriteResult::Failed);
    EXPECT_FALSE(writer->Close());
}
