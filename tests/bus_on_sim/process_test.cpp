// The bus across processes: a helper program with a wrapper of its own
// (wrapper_peer) on the same simulated bus as this process.
#include "ChildProcess.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

using OtherProcess = SimBusTest;

TEST_F(OtherProcess, ReceivesInOrderWhatItTransmits)
{
    auto rx = Open(Monitoring("NVX-CAN-2"));
    ASSERT_TRUE(rx);
    const std::vector<FrameFields> sent = MixedTraffic();
    const std::uint64_t before = Now(*rx);
    nxtest::ChildProcess peer(NXBUS_WRAPPER_PEER, {"transmit", "NVX-CAN-1"});
    ASSERT_TRUE(peer.Started());
    ASSERT_EQ(peer.Line(), "sent " + std::to_string(sent.size()));
    const std::vector<NXSCanMessage> got = Receive(*rx, sent.size());
    const std::uint64_t after = Now(*rx);
    peer.CloseInput();
    EXPECT_TRUE(peer.ExitedCleanly());
    ExpectTraffic(sent, got, before, after);
}

TEST_F(OtherProcess, AChannelEitherSideHoldsIsRefusedToTheOther)
{
    nxtest::ChildProcess holder(NXBUS_WRAPPER_PEER, {"hold", "NVX-CAN-1"});
    ASSERT_EQ(holder.Line(), "ready");
    auto wrapper = std::make_unique<NxCanApiWrapper>(Monitoring("NVX-CAN-1"));
    bool highSpeed = false;
    NxBusError refused = wrapper->Initialize(&highSpeed);
    const std::string text = wrapper->GetErrorMessage(refused);
    EXPECT_EQ(text.rfind("NXCAN_RegisterChannel: channel in use", 0), 0u) << text;
    EXPECT_NE(text.find("process " + std::to_string(holder.Pid())), std::string::npos) << "names the holder: " << text;

    // Once the holder has let go, the channel can be had.
    holder.CloseInput();
    EXPECT_TRUE(holder.ExitedCleanly());
    auto mine = Open(Monitoring("NVX-CAN-1"));
    ASSERT_TRUE(mine);

    nxtest::ChildProcess refusedPeer(NXBUS_WRAPPER_PEER, {"hold", "NVX-CAN-1"});
    const std::string line = refusedPeer.Line();
    EXPECT_EQ(line.rfind("refused: NXCAN_RegisterChannel: channel in use", 0), 0u) << line;
    EXPECT_NE(line.find("process " + std::to_string(getpid())), std::string::npos) << line;
    EXPECT_TRUE(refusedPeer.ExitedCleanly());
}

}  // namespace
}  // namespace nxbus_on_sim
