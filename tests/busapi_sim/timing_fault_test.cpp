// Bit timing, frame lengths, the hardware clock, and injected faults.
#include <ctime>

#include "deadline_pacer.h"
#include "hardware_clock.h"
#include "sim_frame.h"
#include "sim_test_support.h"

namespace nxsim_test {
namespace {

using TimingTest = SimTest;
using FaultTest = SimTest;

nxsim::FrameShape Shape(unsigned length, bool extended = false, bool fd = false, bool brs = false, bool remote = false)
{
    return {extended, fd, brs, remote, length};
}

TEST(FrameArithmetic, WorstCaseBitCountsAndDlcLengths)
{
    EXPECT_EQ(nxsim::CountFrameBits(Shape(8)).nominal, 135u);
    EXPECT_EQ(nxsim::CountFrameBits(Shape(8, true)).nominal, 160u);
    EXPECT_EQ(nxsim::CountFrameBits(Shape(8, false, false, false, true)).nominal, nxsim::CountFrameBits(Shape(0)).nominal);
    EXPECT_EQ(nxsim::FrameDurationNs(Shape(8), 500000, 2000000), 270000);
    // CAN FD, 64 bytes: the data phase dominates, and BRS shortens it.
    const nxsim::FrameBits bits = nxsim::CountFrameBits(Shape(64, false, true));
    EXPECT_GT(bits.data, 8u * 64);
    EXPECT_LT(bits.nominal, 40u);
    EXPECT_EQ(nxsim::FrameDurationNs(Shape(64, false, true), 500000, 2000000), (bits.nominal + bits.data) * 2000);
    EXPECT_EQ(nxsim::FrameDurationNs(Shape(64, false, true, true), 500000, 2000000), bits.nominal * 2000 + bits.data * 500);

    const int lengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64, -1};
    for (unsigned dlc = 0; dlc <= 16; ++dlc) EXPECT_EQ(nxsim::DlcToLength(dlc), lengths[dlc]) << dlc;
}

TEST(BitTiming, RatesTheComponentsOfferConvertBothWays)
{
    struct Case {
        uint32_t clock;
        uint32_t rate;
    } cases[] = {{8000000, 1000000}, {8000000, 500000}, {8000000, 250000}, {8000000, 125000}, {8000000, 100000},
                 {8000000, 50000},   {8000000, 20000},  {8000000, 10000},  {80000000, 8000000}, {80000000, 4000000},
                 {80000000, 2000000}, {80000000, 1000000}, {80000000, 500000}, {80000000, 10000}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::to_string(c.clock) + " Hz, " + std::to_string(c.rate) + " bit/s");
        NXSCanBitTimingParameters t{};
        ASSERT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(c.clock, c.rate, &t), NXCAN_SUCCESS);
        const uint32_t quanta = 1 + t.ulTSEG1 + t.ulTSEG2;
        EXPECT_EQ(static_cast<uint64_t>(c.clock), static_cast<uint64_t>(c.rate) * t.ulBRP * quanta);
        EXPECT_GE(quanta, 8u);
        EXPECT_LE(quanta, 25u);
        const double samplePoint = static_cast<double>(1 + t.ulTSEG1) / quanta;
        EXPECT_GE(samplePoint, 0.7);
        EXPECT_LE(samplePoint, 0.9);
        EXPECT_GE(t.ulSJW, 1u);
        EXPECT_LE(t.ulSJW, t.ulTSEG2);
        uint32_t back = 0;
        ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(c.clock, &t, &back), NXCAN_SUCCESS);
        EXPECT_EQ(back, c.rate);
    }
}

TEST(BitTiming, UnreachableRatesAndInvalidParametersAreRefused)
{
    NXSCanBitTimingParameters t{};
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 8000000, &t), NXCAN_ERR_BITRATE_NOT_REACHABLE);
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 4000000, &t), NXCAN_ERR_BITRATE_NOT_REACHABLE);
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 300000, &t), NXCAN_ERR_BITRATE_NOT_REACHABLE);
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(80000000, 3000000, &t), NXCAN_ERR_BITRATE_NOT_REACHABLE);
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 0, &t), NXCAN_ERR_INVALID_ARGUMENT);
    EXPECT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 500000, nullptr), NXCAN_ERR_INVALID_ARGUMENT);

    uint32_t rate = 0;
    NXSCanBitTimingParameters zero{};
    EXPECT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(8000000, &zero, &rate), NXCAN_ERR_INVALID_ARGUMENT);
    NXSCanBitTimingParameters sjwTooLarge{5, 1, 0, 12, 3};
    EXPECT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(8000000, &sjwTooLarge, &rate), NXCAN_ERR_INVALID_ARGUMENT);
    NXSCanBitTimingParameters uneven{1, 1, 0, 12, 2};  // 8 MHz / 15 quanta
    EXPECT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(8000000, &uneven, &rate), NXCAN_ERR_BITRATE_NOT_REACHABLE);
    NXSCanBitTimingParameters fine{1, 1, 0, 12, 3};
    ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(8000000, &fine, &rate), NXCAN_SUCCESS);
    EXPECT_EQ(rate, 500000u);
}

TEST_F(TimingTest, ChannelKeepsTheRatesItWasGiven)
{
    const NXTCanHandle fd = Open("NVX-CAN-1", true);
    uint32_t clock = 0, rate = 0;
    NXSCanBitTimingParameters arbitration{}, data{};
    bool isFd = false;
    ASSERT_EQ(NXCAN_GetBaudrate(fd, &clock, &arbitration, &isFd, &data), NXCAN_SUCCESS);
    EXPECT_EQ(clock, 80000000u);
    EXPECT_TRUE(isFd);
    ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(clock, &data, &rate), NXCAN_SUCCESS);
    EXPECT_EQ(rate, 2000000u);
    ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(clock, &arbitration, &rate), NXCAN_SUCCESS);
    EXPECT_EQ(rate, 500000u);

    const NXTCanHandle classic = Open("NVX-CAN-2", false);
    NXSCanBitTimingParameters fast{}, zero{};
    ASSERT_EQ(NXCAN_ConvertBaudrateToBitTimingParameters(8000000, 1000000, &fast), NXCAN_SUCCESS);
    EXPECT_EQ(NXCAN_SetBaudrate(classic, 8000000, &fast, &zero), NXCAN_ERR_BITRATE_MISMATCH);
    ASSERT_EQ(NXCAN_GetBaudrate(classic, &clock, &arbitration, &isFd, &data), NXCAN_SUCCESS);
    ASSERT_EQ(NXCAN_ConvertBitTimingParametersToBaudrate(clock, &arbitration, &rate), NXCAN_SUCCESS);
    EXPECT_EQ(rate, 1000000u) << "stored although it differs from the bus";
    EXPECT_FALSE(isFd);
    EXPECT_EQ(NXCAN_SetBaudrate(classic, 8000000, &zero, &zero), NXCAN_ERR_INVALID_ARGUMENT);
}

TEST_F(TimingTest, HardwareClockFollowsTheMonotonicClockWithItsResolutionAndOffset)
{
    const struct {
        const char* config;
        uint64_t ticksPerUs, offsetUs;
    } cases[] = {{"", 80, 0}, {"clock_resolution_hz = 1000000\nclock_offset_ns = 3000000000\n", 1, 3000000}};
    for (const auto& c : cases) {
        UseConfig(c.config);
        const NXTCanHandle h = Open("NVX-CAN-1");
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        const uint64_t expected =
            (static_cast<uint64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec) * c.ticksPerUs / 1000 + c.offsetUs * c.ticksPerUs;
        const uint64_t ticks = HardwareTime(h);
        EXPECT_EQ(TicksPerMicrosecond(h), c.ticksPerUs);
        EXPECT_GE(ticks, expected);
        EXPECT_LT(ticks, expected + 100000 * c.ticksPerUs) << "generous: 100 ms";
        NXCAN_UnregisterChannel(h);
    }
}

// The pacer's lead, on a made-up timeline of wake-ups 2 ms apart: how long
// before a deadline it would stop sleeping, given the wake-ups so far.
TEST(DeadlinePacer, TheLeadCoversAllButTheRarestLateWakeUpsWithinItsBound)
{
    using nxsim::DeadlinePacer;
    DeadlinePacer pacer;
    const int64_t ms = 1000000, us = 1000;
    int64_t now = nxsim::MonotonicNs();
    const auto lead = [&] { return 20 * ms - (pacer.WakeFor(now + 20 * ms, now) - now); };
    const auto wakeUps = [&](int count, int everyNth, int64_t usualLate, int64_t rareLate) {
        for (int i = 1; i <= count; ++i, now += 2 * ms)
            pacer.NoteWake(now, now + (i % everyNth == 0 ? rareLate : usualLate));
    };
    EXPECT_EQ(lead(), DeadlinePacer::kFirstLeadNs) << "before the first deadline";
    pacer.SpinUntil(0);

    wakeUps(1000, 50, 20 * us, 200 * us);   // one in fifty 200 us late
    now += 1000 * ms;                       // a late one's own raise is long gone
    EXPECT_GE(lead(), 200 * us);
    EXPECT_LE(lead(), 250 * us);

    wakeUps(2000, 100000, 20 * us, 0);      // then only prompt ones: the late ones fade
    now += 1000 * ms;
    EXPECT_GE(lead(), 20 * us);
    EXPECT_LE(lead(), 50 * us);

    wakeUps(1000, 1, 0, 5 * ms);            // a machine that always wakes 5 ms late
    now += 1000 * ms;
    EXPECT_EQ(lead(), DeadlinePacer::kMaxLeadNs) << "the bound";
}

TEST_F(FaultTest, OperationFailsAfterNCallsForMTimes)
{
    UseConfig("[fault NXCAN_TransmitMessages]\ncode = 7\nafter = 2\ntimes = 2\n");
    const NXTCanHandle h = Open("NVX-VIRT-1");
    NXSCanMessage m = DataFrame(1, 1);
    std::vector<NXTCanError> results;
    for (int i = 0; i < 5; ++i) results.push_back(NXCAN_TransmitMessages(h, 1, &m));
    EXPECT_EQ(results, (std::vector<NXTCanError>{0, 0, 7, 7, 0}));
}

TEST_F(FaultTest, VendorSpecificReadFailureAsThePackageSeesIt)
{
    UseConfig("[fault NXCAN_ReadReceiveQueue]\ncode = -1\nvendor_code = 128\ntext = receive queue overflow\n"
              "channel = NVX-CAN-2\ntimes = 1\n");
    const NXTCanHandle other = Open("NVX-CAN-1");
    const NXTCanHandle h = Open("NVX-CAN-2");
    NXSCanMessage out[4];
    uint32_t count = 4;
    EXPECT_EQ(NXCAN_ReadReceiveQueue(other, &count, out), NXCAN_SUCCESS) << "only the named channel";
    count = 4;
    EXPECT_EQ(NXCAN_ReadReceiveQueue(h, &count, out), NXCAN_ERR_VENDOR_SPECIFIC);
    EXPECT_EQ(count, 0u);
    int32_t code = 0;
    EXPECT_EQ(VendorText(h, &code), "receive queue overflow");
    EXPECT_EQ(code, 128);
    count = 4;
    EXPECT_EQ(NXCAN_ReadReceiveQueue(h, &count, out), NXCAN_SUCCESS);
}

TEST_F(FaultTest, FailureWithoutAHandleUsesTheProcessWideVendorError)
{
    UseConfig("[fault NXCAN_RegisterChannel]\ncode = -1\nvendor_code = 77\ntext = licence missing\n"
              "[fault NXCAN_ActivateChannel]\ncode = 6\ntext = interface asleep\n");
    NXTCanHandle h = NXCAN_INVALID_HANDLE;
    EXPECT_EQ(Register("NVX-CAN-1", &h), NXCAN_ERR_VENDOR_SPECIFIC);
    EXPECT_EQ(h, NXCAN_INVALID_HANDLE);
    int32_t code = 0;
    EXPECT_EQ(VendorText(NXCAN_INVALID_HANDLE, &code), "licence missing");
    EXPECT_EQ(code, 77);

    ASSERT_EQ(Register("NVX-CAN-2", &h), NXCAN_ERR_VENDOR_SPECIFIC) << "every call, without 'times'";
    UseConfig("[fault NXCAN_ActivateChannel]\ncode = 6\ntext = interface asleep\n");
    ASSERT_EQ(Register("NVX-CAN-2", &h), NXCAN_SUCCESS);
    bool fd = false;
    ASSERT_EQ(NXCAN_InitChannel(h, NXCAN_IDENTIFIER_TYPE_STD_XTD, 16, false, &fd), NXCAN_SUCCESS);
    EXPECT_EQ(NXCAN_ActivateChannel(h), NXCAN_ERR_WRONG_STATE);
    EXPECT_NE(ErrorText(NXCAN_ERR_WRONG_STATE).find("interface asleep"), std::string::npos);
}

}  // namespace
}  // namespace nxsim_test
