// Against independent tools on the same link: what the library sends,
// tcpdump captures; what scapy and tcpreplay send, the library reads.
#include <sys/wait.h>
#include <unistd.h>

#include "ChildProcess.h"
#include "eth_test_support.h"
#include "pcap_file.h"

namespace eth_test {
namespace {

bool Installed(const char* path)
{
    return access(path, X_OK) == 0;
}

int Shell(const std::string& command)
{
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::vector<Bytes> Payloads(const std::vector<Frame>& frames)
{
    std::vector<Bytes> payloads;
    for (const Frame& f : frames) payloads.push_back(Payload(f));
    return payloads;
}

TEST(EthTools, TcpdumpCapturesWhatTheLibrarySends)
{
    if (!Installed("/usr/bin/tcpdump")) GTEST_SKIP() << "tcpdump is not installed";
    veldtest::ScratchDir folder;
    const std::vector<Bytes> frames = Frames({60, 64, 128, 600, 1514, 61});
    nxtest::ChildProcess tcpdump("/bin/sh", {"-c", "exec /usr/bin/tcpdump -i nvxeth2 -p -U -Z root -c " +
                                                       std::to_string(frames.size()) + " -w " + (folder / "got.pcap") +
                                                       " 2>&1"});
    const std::string said = tcpdump.Line();
    if (said.find("Couldn't change") != std::string::npos)
        GTEST_SKIP() << "tcpdump cannot give up root in this user namespace: " << said;
    ASSERT_NE(said.find("listening on nvxeth2"), std::string::npos) << said;
    const NXTEthHandle tx = Open("NVX-ETH-1");
    Bytes block = RawBlock(frames, NXETH_FRAME_TYPE_ETHERNET_FRAME);
    uint32_t sent = 0;
    ASSERT_EQ(Lib().TransmitFrames(tx, static_cast<uint32_t>(frames.size()), block.data(), &sent), NXETH_SUCCESS);
    EXPECT_TRUE(tcpdump.ExitedCleanly());
    EXPECT_EQ(ReadPcap(folder / "got.pcap"), frames);
    Close({tx});
}

TEST(EthTools, TheLibraryReadsWhatScapyAndTcpreplaySend)
{
    veldtest::ScratchDir folder;
    const NXTEthHandle rx = Open("NVX-ETH-2-RAW");
    if (Shell("/usr/bin/python3 -c 'import scapy' 2>/dev/null") == 0) {
        // scapy builds its own frames and keeps a copy of what it sent.
        const std::string script =
            "from scapy.all import Ether, Raw, sendp, wrpcap\n"
            "frames = [Ether(dst='02:4e:58:45:00:02', src='02:4e:58:45:00:01', type=0x88b5) / "
            "Raw(bytes((i * 31 + n) % 256 for i in range(n))) for n in (46, 50, 300, 1000, 1500)]\n"
            "wrpcap('" + (folder / "scapy.pcap") + "', frames)\n"
            "sendp(frames, iface='nvxeth1', verbose=False)\n";
        ASSERT_EQ(Shell("/usr/bin/python3 -c \"" + script + "\""), 0);
        const std::vector<Bytes> sent = ReadPcap(folder / "scapy.pcap");
        ASSERT_EQ(sent.size(), 5u);
        EXPECT_EQ(Payloads(Receive(rx, sent.size())), sent);
    }
    if (Installed("/usr/bin/tcpreplay")) {
        const std::vector<Bytes> frames = Frames({60, 64, 128, 600, 1514, 61});
        std::vector<CapturedFrame> capture;
        for (const Bytes& f : frames) capture.push_back({0, f});
        ASSERT_TRUE(WritePcap(folder / "ours.pcap", capture));
        ASSERT_EQ(Shell("/usr/bin/tcpreplay -q -t -i nvxeth1 " + (folder / "ours.pcap") + " >/dev/null 2>&1"), 0);
        EXPECT_EQ(Payloads(Receive(rx, frames.size())), frames);
    }
    Close({rx});
}

}  // namespace
}  // namespace eth_test
