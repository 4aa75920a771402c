// What the writers write reads back identical, in both formats; what they
// refuse; flushing, closing and a failing disk.
#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>

#include "CaptureTestSupport.h"
#include "LogTestSupport.h"

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

    for (const char* name : {"t.pcap", "t.pcapng"}) {
        Interface can = Named("can0", kLinkTypeSocketCan);
        Interface eth = Named("eth0");
        eth.snapLength = 100;
        std::vector<Interface> interfaces = {eth};
        if (std::string(name) == "t.pcapng") interfaces.push_back(can);
        std::unique_ptr<PacketWriter> writer = OpenPacketWriter(dir.File(name), interfaces, error);
        ASSERT_TRUE(writer) << error;
        const std::uint8_t bytes[200] = {};
        const auto packet = [&](std::uint32_t interface, std::int64_t time, std::uint32_t captured,
                                std::uint32_t original) {
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
        const struct {
            std::function<WriteResult()> write;
            const char* error;
        } cases[] = {
            {[&] { return writer->Write(packet(7, 1, 60, 60)); }, "no interface 7 in the file"},
            {[&] { return writer->Write(packet(0, -1, 60, 60)); }, "time -1 ns is outside what the file holds"},
            {[&] { return writer->Write(packet(0, 1, 101, 101)); }, "101 bytes, above the snap length 100"},
            {[&] { return writer->Write(packet(0, 1, 60, 50)); }, "captured length above the original length"},
            {[&] { return writer->Write(0, CanFrame()); }, "interface 0 is no CAN interface"},
            {[&] { return writer->Write(1, tooLong); },
             std::string(name) == "t.pcap" ? "no interface 1" : "classic frame longer than 8 bytes"},
        };
        for (const auto& c : cases) {
            EXPECT_EQ(c.write(), WriteResult::Refused) << name << " " << c.error;
            EXPECT_NE(writer->Error().find(c.error), std::string::npos) << writer->Error();
        }
        if (std::string(name) == "t.pcap") {
            EXPECT_EQ(writer->Write(packet(0, 0x100000000ll * 1000000000, 60, 60)), WriteResult::Refused);
        }
        EXPECT_EQ(writer->Write(packet(0, 5, 60, 0)), WriteResult::Written);
        EXPECT_TRUE(writer->Close());
        EXPECT_EQ(writer->Write(packet(0, 6, 60, 60)), WriteResult::Failed);
        EXPECT_EQ(writer->PacketsWritten(), 1u);
        const ReadOutcome r = ReadAll(dir.File(name));
        ASSERT_EQ(r.packets.size(), 1u);
        EXPECT_EQ(r.packets[0].originalLength, 60u);  // 0 stands for the captured length
    }
}

TEST(CaptureWriting, FlushCloseAndAFullDisk)
{
    canlog_test::ScratchDir dir;
    const Drive d = MakeDrive(true, 300);
    for (const char* name : {"f.pcap", "f.pcapng"}) {
        const std::string path = dir.File(name);
        std::vector<Interface> interfaces = d.interfaces;
        if (std::string(name) == "f.pcap") interfaces.resize(1);
        std::string error;
        std::unique_ptr<PacketWriter> writer = OpenPacketWriter(path, interfaces, error);
        ASSERT_TRUE(writer) << error;
        Drive part;
        for (std::size_t i = 0; i < d.packets.size(); ++i) {
            if (d.packets[i].interface >= interfaces.size()) continue;
            part.packets.push_back(d.packets[i]);
            part.data.push_back(d.data[i]);
        }
        WriteDrive(*writer, part);
        // A flushed file holds every packet while the writer goes on.
        ASSERT_TRUE(writer->Flush());
        EXPECT_EQ(ReadAll(path).packets.size(), part.packets.size()) << name;
        WriteDrive(*writer, part);
        writer.reset();  // closes
        EXPECT_EQ(ReadAll(path).packets.size(), 2 * part.packets.size()) << name;
    }

    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    const std::string full = dir.File("full.pcapng");
    ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
    std::string error;
    std::unique_ptr<PacketWriter> writer = OpenPacketWriter(full, d.interfaces, error);
    ASSERT_TRUE(writer) << error;
    Drive few = d;
    few.packets.resize(10);
    WriteDrive(*writer, few);
    EXPECT_FALSE(writer->Flush());
    EXPECT_EQ(writer->Error(), "write failed: No space left on device");
    EXPECT_EQ(writer->Write(Packet()), WriteResult::Failed);
    EXPECT_FALSE(writer->Close());
}
