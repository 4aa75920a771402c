// Several processes on one bus: channel claims, and a process that dies
// while it holds the bus. (Traffic across processes is the business of the
// veldor commands' tests: a replay recorded by another process.) This
// program is also the other process (the environment selects the namespace
// and configuration, as for any user of the library); each mode prints
// "ready" once it is in place, then waits:
//   busapi_sim_tests hold CHANNEL     claims it
//   busapi_sim_tests hold-lock BUS    holds its lock
#include <unistd.h>

#include <cstdio>

#include "ChildProcess.h"
#include "sim_test_support.h"

namespace nxsim_test {
namespace {

using ProcessTest = SimTest;

TEST_F(ProcessTest, ChannelOfALiveProcessIsRefusedAndOfADeadOneReleased)
{
    nxtest::ChildProcess holder("/proc/self/exe", {"hold", "NVX-CAN-1"});
    ASSERT_EQ(holder.Line(), "ready");
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    EXPECT_EQ(Register("NVX-CAN-1", &h), NXCAN_ERR_CHANNEL_IN_USE);
    const std::string text = ErrorText(NXCAN_ERR_CHANNEL_IN_USE);
    EXPECT_NE(text.find("channel in use"), std::string::npos) << text;
    EXPECT_NE(text.find(std::to_string(holder.Pid())), std::string::npos) << text;
    EXPECT_EQ(Register("NVX-CAN-2", &h), NXCAN_SUCCESS) << "other channels stay free";

    holder.Kill();  // not reaped yet: a zombie holds nothing either
    NXTCanError rc = NXCAN_ERR_CHANNEL_IN_USE;
    EXPECT_TRUE(veldtest::Eventually([&] { return (rc = Register("NVX-CAN-1", &h)) != NXCAN_ERR_CHANNEL_IN_USE; }, 5));
    EXPECT_EQ(rc, NXCAN_SUCCESS) << ErrorText(rc);
}

TEST_F(ProcessTest, ProcessKilledHoldingTheBusLockDoesNotWedgeIt)
{
    nxtest::ChildProcess locker("/proc/self/exe", {"hold-lock", "CAN1"});
    ASSERT_EQ(locker.Line(), "ready");
    locker.Kill();
    locker.Reap();

    const NXTCanHandle tx = Open("NVX-CAN-1");
    const NXTCanHandle rx = Open("NVX-CAN-2");
    NXSCanMessage m = DataFrame(0x99, 4);
    ASSERT_EQ(NXCAN_TransmitMessages(tx, 1, &m), NXCAN_SUCCESS);
    const auto got = ReadAtLeast(rx, 1);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].ulCanIdentifier, 0x99u);
}

}  // namespace
}  // namespace nxsim_test

namespace {

int RunPeer(const std::string& mode, const char* what)
{
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    if (mode == "hold-lock") {
        nxsim::Simulator& sim = nxsim::Simulator::Instance();
        nxsim::Bus* bus = sim.Ready() == NXCAN_SUCCESS ? sim.FindBus(what) : nullptr;
        std::string error;
        if (bus == nullptr || bus->EnsureAttached(&error) != NXCAN_SUCCESS)
            return std::fprintf(stderr, "bus %s: %s\n", what, error.c_str()), 2;
        bus->SegmentForTests()->Lock();
    } else if (nxsim_test::Register(what, &h) != NXCAN_SUCCESS) {
        return std::fprintf(stderr, "cannot open %s\n", what), 2;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    for (;;) pause();
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if ((mode == "hold" || mode == "hold-lock") && argc == 3) return RunPeer(mode, argv[2]);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
