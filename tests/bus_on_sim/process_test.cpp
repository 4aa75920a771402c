// A channel across processes: a helper program with a wrapper of its own
// (wrapper_peer) on the same simulated bus as this process. Frames across
// processes: busapi_sim/process_test.
#include "ChildProcess.h"
#include "SimBusTest.h"

namespace nxbus_on_sim {
namespace {

using OtherProcess = SimBusTest;

TEST_F(OtherProcess, AChannelEitherSideHoldsIsRefusedToTheOther)
{
    nxtest::ChildProcess holder(NXBUS_WRAPPER_PEER, {"hold", "NVX-CAN-1"});
    ASSERT_EQ(holder.Line(), "ready");
    for (bool replay : {false, true}) {
        auto wrapper = std::make_unique<NxCanApiWrapper>(replay ? Replay("NVX-CAN-1") : Monitoring("NVX-CAN-1"));
        bool highSpeed = false;
        NxBusError refused = wrapper->Initialize(&highSpeed);
        EXPECT_EQ(refused.functionName, replay ? "NXCAN_RegisterReplayChannel" : "NXCAN_RegisterChannel");
        const std::string text = wrapper->GetErrorMessage(refused);
        EXPECT_EQ(text.rfind(refused.functionName + ": channel in use", 0), 0u) << text;
        EXPECT_NE(text.find("NVX-CAN-1"), std::string::npos) << text;
        EXPECT_NE(text.find("process " + std::to_string(holder.Pid())), std::string::npos) << "names the holder: " << text;
    }

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
