// The CAN channel wrapper's lifecycle against the recording double: discovery,
// the exact bring-up sequence, bit rates, time, errors and release.
#include <cstring>

#include "bus_test_fixture.h"

namespace {

using Calls = std::vector<std::string>;

const Calls kDiscovery = {"NXCAN_GetAvailableChannelsCount", "NXCAN_GetAvailableChannels"};

Calls BringUp(bool replay, bool eventBased)
{
    Calls calls = {replay ? "NXCAN_RegisterReplayChannel" : "NXCAN_RegisterChannel",
                   "NXCAN_InitChannel",
                   "NXCAN_GetBaudrate",
                   "NXCAN_ConvertBitTimingParametersToBaudrate",
                   "NXCAN_SetAcceptance"};
    if (eventBased) calls.push_back("NXCAN_SetEventNotification");
    for (const char* name : {"NXCAN_ActivateChannel", "NXCAN_FlushReceiveQueue", "NXCAN_FlushTransmitQueue",
                             "NXCAN_GetHardwareTimeResolution", "NXCAN_ConvertBaudrateToBitTimingParameters",
                             "NXCAN_SetBaudrate"})
        calls.push_back(name);
    return calls;
}

const Calls kRelease = {"NXCAN_IsChannelAccessible", "NXCAN_DeactivateChannel", "NXCAN_IsChannelAccessible",
                        "NXCAN_UnregisterChannel"};

using CanWrapper = BusTest;

}  // namespace

TEST_F(CanWrapper, BringsUpMonitoringAndReplayChannelsInTheExactOrder)
{
    for (bool replay : {false, true}) {
        for (bool eventBased : {false, true}) {
            SCOPED_TRACE(testing::Message() << "replay " << replay << ", event based " << eventBased);
            nxtest::ScopedFakeCanLibrary scoped;
            AddChannel();
            NxCanApiWrapperSettings settings = replay ? Replay() : Monitoring();
            settings.SetEventBasedReceive(eventBased);
            settings.SetStandardCanIdentifiersCode(0x100);
            settings.SetStandardCanIdentifiersMask(0x700);
            settings.SetExtendedCanIdentifiersCode(0x1000);
            settings.SetExtendedCanIdentifiersMask(0x1F000);
            auto wrapper = Ready(settings);
            Calls expected = kDiscovery;
            for (const std::string& call : BringUp(replay, eventBased)) expected.push_back(call);
            EXPECT_EQ(Fake().CallNames(), expected);
            EXPECT_TRUE(wrapper->GetIsInitialized());
            EXPECT_EQ(wrapper->GetCanChannelHandle(), 7);
            EXPECT_EQ(Fake().RegisteredIdentifier(), "ch1");

            EXPECT_EQ(Fake().CallsTo("NXCAN_InitChannel")[0].args,
                      (std::vector<std::uint64_t>{7, NXCAN_IDENTIFIER_TYPE_STD_XTD, 32768, 0}));
            EXPECT_EQ(Fake().CallsTo("NXCAN_SetAcceptance")[0].args,
                      (std::vector<std::uint64_t>{7, 0x100, 0x700, 0x1000, 0x1F000}));
            if (eventBased) {
                EXPECT_EQ(Fake().CallsTo("NXCAN_SetEventNotification")[0].args, (std::vector<std::uint64_t>{7, 1}));
                ASSERT_NE(Fake().Event(), nullptr);
                EXPECT_FALSE(Fake().Event()->m_signalled);
            }
            if (replay) {
                EXPECT_EQ(Fake().CallsTo("NXCAN_RegisterReplayChannel")[0].args[1], 0u);
            }
            EXPECT_EQ(NxCanApiWrapper::GetTimeConvCoefficient(), 80u);
            EXPECT_EQ(wrapper->GetInitialBaudRate(), 500000u);

            // A second Initialize does nothing.
            Mark();
            bool highSpeed = false;
            EXPECT_EQ(wrapper->Initialize(&highSpeed).errorCode, 0);
            EXPECT_TRUE(CallsSinceMark().empty());

            wrapper.reset();
            EXPECT_EQ(CallsSinceMark(), kRelease);
        }
    }
}

TEST_F(CanWrapper, AnUnknownIdentifierGivesCode10AndCountsAsInitialised)
{
    AddChannel("ch1");
    auto wrapper = Make(Monitoring("elsewhere"));
    Mark();
    bool highSpeed = true;
    NxBusError result = wrapper->Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 10);
    EXPECT_EQ(result.functionName, "RegisterCanChannel");
    EXPECT_EQ(result.severity, NxBusErrorSeverity::Error);
    EXPECT_TRUE(wrapper->GetIsInitialized());
    EXPECT_EQ(wrapper->GetCanChannelHandle(), -1);
    EXPECT_TRUE(highSpeed);
    wrapper.reset();
    // No handle: the destructor calls nothing.
    EXPECT_TRUE(CallsSinceMark().empty());
}

TEST_F(CanWrapper, AnAddressWithoutChannelsLeavesAnEmptyWrapper)
{
    AddChannel();
    NxCanApiWrapperSettings settings("10.1.2.3", "ch1", false, 0, 500000, true, true);
    auto wrapper = Make(settings);
    EXPECT_EQ(Fake().LastSearchAddress(), "10.1.2.3");
    EXPECT_EQ(Fake().CallNames(), Calls{"NXCAN_GetAvailableChannelsCount"});
    EXPECT_EQ(wrapper->GetCanChannelCount(), 0u);
    EXPECT_EQ(wrapper->GetCanChannelInfo(), nullptr);
    bool highSpeed = false;
    EXPECT_EQ(wrapper->Initialize(&highSpeed).errorCode, 10);
    // No replay buffer either.
    try {
        wrapper->CopyFrame2(VELDCANFrame{});
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Destination buffer is null!");
    }
}

TEST_F(CanWrapper, OnlyCode1LeavesTheWrapperUninitialised)
{
    AddChannel();
    Fake().ScriptResults("NXCAN_InitChannel", {1});
    auto wrapper = Make(Monitoring());
    bool highSpeed = false;
    NxBusError result = wrapper->Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 1);
    EXPECT_EQ(result.functionName, "NXCAN_InitChannel");
    EXPECT_FALSE(wrapper->GetIsInitialized());
    EXPECT_THROW(wrapper->ReadReceiveQueue(), std::runtime_error);

    // Not initialised, so the whole sequence runs again, registration included.
    Mark();
    EXPECT_EQ(wrapper->Initialize(&highSpeed).errorCode, 0);
    EXPECT_EQ(CallsSinceMark(), BringUp(false, false));
    EXPECT_TRUE(wrapper->GetIsInitialized());
}

TEST_F(CanWrapper, AFailedStepStopsTheSequenceAndTheDestructorCleansUp)
{
    AddChannel();
    Fake().SetResult("NXCAN_ActivateChannel", 5);
    auto wrapper = Make(Monitoring());
    Mark();
    bool highSpeed = false;
    NxBusError result = wrapper->Initialize(&highSpeed);
    EXPECT_EQ(result.errorCode, 5);
    EXPECT_EQ(result.functionName, "NXCAN_ActivateChannel");
    Calls expected = BringUp(false, false);
    expected.resize(6);  // up to the activation
    EXPECT_EQ(CallsSinceMark(), expected);
    EXPECT_TRUE(wrapper->GetIsInitialized());
    Mark();
    wrapper.reset();
    EXPECT_EQ(CallsSinceMark(), kRelease);
}

TEST_F(CanWrapper, AnUninitialisedChannelIsOnlyUnregistered)
{
    AddChannel();
    Fake().SetResult("NXCAN_GetBaudrate", 1);
    auto wrapper = Make(Monitoring());
    bool highSpeed = false;
    EXPECT_EQ(wrapper->Initialize(&highSpeed).errorCode, 1);
    Mark();
    wrapper.reset();
    EXPECT_EQ(CallsSinceMark(), (Calls{"NXCAN_IsChannelAccessible", "NXCAN_UnregisterChannel"}));
}

TEST_F(CanWrapper, AnInaccessibleChannelIsLeftAlone)
{
    for (bool failQuestion : {false, true}) {
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel();
        auto wrapper = Ready(Monitoring());
        if (failQuestion)
            Fake().SetResult("NXCAN_IsChannelAccessible", 3);
        else
            Fake().SetAccessible(false);
        Mark();
        wrapper.reset();
        EXPECT_EQ(CallsSinceMark(), (Calls{"NXCAN_IsChannelAccessible", "NXCAN_IsChannelAccessible"}));
    }
}

TEST_F(CanWrapper, HighSpeedNeedsTheHardwareAndTheSettings)
{
    struct Case {
        std::uint32_t capabilities;
        bool asked;
        bool passed;
    };
    for (Case c : {Case{0x100, true, true}, Case{0x100, false, false}, Case{0, true, false}, Case{0xFF, true, false}}) {
        SCOPED_TRACE(testing::Message() << "capabilities " << c.capabilities << ", asked " << c.asked);
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel("ch1", c.capabilities);
        NxCanApiWrapperSettings settings = Replay();
        settings.SetIsHighSpeedChannel(c.asked);
        auto wrapper = Make(settings);
        bool supported = !(c.capabilities & 0x100);
        wrapper->Initialize(&supported);
        EXPECT_EQ(supported, (c.capabilities & 0x100) != 0);
        EXPECT_EQ(Fake().CallsTo("NXCAN_RegisterReplayChannel")[0].args,
                  (std::vector<std::uint64_t>{c.passed, 0}));
    }

    // A monitoring channel leaves the output alone.
    nxtest::ScopedFakeCanLibrary scoped;
    AddChannel("ch1", 0x100);
    auto wrapper = Make(Monitoring());
    bool untouched = false;
    wrapper->Initialize(&untouched);
    EXPECT_FALSE(untouched);
}

TEST_F(CanWrapper, AVirtualFirstChannelSkipsEveryBitRateCall)
{
    // Virtual is judged by the first channel listed, not by the one in use.
    AddChannel("v1", 0, "Virtual");
    AddChannel("ch1");
    auto wrapper = Ready(Monitoring("ch1"));
    Calls expected = kDiscovery;
    for (const std::string& call : BringUp(false, false))
        if (call.find("Baudrate") == std::string::npos) expected.push_back(call);
    EXPECT_EQ(Fake().CallNames(), expected);
    EXPECT_EQ(Fake().RegisteredIdentifier(), "ch1");
    EXPECT_EQ(wrapper->GetInitialBaudRate(), 0u);
    std::uint32_t rate = 1234;
    EXPECT_EQ(wrapper->GetBaudRate(&rate).errorCode, 0);
    EXPECT_EQ(rate, 1234u);
}

TEST_F(CanWrapper, ClassicBitRate)
{
    AddChannel();
    auto wrapper = Ready(Monitoring("ch1", false));
    EXPECT_EQ(Fake().CallsTo("NXCAN_ConvertBaudrateToBitTimingParameters")[0].args,
              (std::vector<std::uint64_t>{8000000, 500000}));
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetBaudrate")[0].args, (std::vector<std::uint64_t>{7, 8000000}));
    EXPECT_EQ(Fake().LastArbitrationTiming().ulTSEG1, 500u);
    NXSCanBitTimingParameters data = Fake().LastDataTiming();
    EXPECT_EQ(data.ulSJW + data.ulBRP + data.ulSAM + data.ulTSEG1 + data.ulTSEG2, 0u);

    Fake().SetResult("NXCAN_ConvertBaudrateToBitTimingParameters", 2);
    Mark();
    NxBusError failed = wrapper->SetBaudRate();
    EXPECT_EQ(failed.errorCode, 2);
    EXPECT_EQ(failed.functionName, "NXCAN_ConvertBaudrateToBitTimingParameters");
    EXPECT_EQ(failed.severity, NxBusErrorSeverity::Error);
    EXPECT_EQ(CallsSinceMark(), Calls{"NXCAN_ConvertBaudrateToBitTimingParameters"});

    // A rate that cannot be set is a warning, and the channel is still up.
    Fake().SetResult("NXCAN_ConvertBaudrateToBitTimingParameters", 0);
    Fake().SetResult("NXCAN_SetBaudrate", 9);
    NxBusError warning = wrapper->SetBaudRate();
    EXPECT_EQ(warning.errorCode, 9);
    EXPECT_EQ(warning.functionName, "NXCAN_SetBaudrate");
    EXPECT_EQ(warning.severity, NxBusErrorSeverity::Warning);
}

TEST_F(CanWrapper, CanFdSetsTheRatesOnlyWhenBothConversionsFail)
{
    struct Case {
        std::vector<NXTCanError> conversions;
        std::size_t conversionCalls;
        bool setCalled;
    };
    for (Case c : {Case{{0, 0}, 1, false}, Case{{4, 0}, 2, false}, Case{{4, 5}, 2, true}}) {
        SCOPED_TRACE(testing::Message() << "first conversion " << c.conversions[0]);
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel();
        Fake().ScriptResults("NXCAN_ConvertBaudrateToBitTimingParameters", c.conversions);
        auto wrapper = Make(Monitoring("ch1", true));
        bool highSpeed = false;
        NxBusError result = wrapper->Initialize(&highSpeed);
        std::vector<nxtest::FakeCall> conversions = Fake().CallsTo("NXCAN_ConvertBaudrateToBitTimingParameters");
        ASSERT_EQ(conversions.size(), c.conversionCalls);
        EXPECT_EQ(conversions[0].args, (std::vector<std::uint64_t>{80000000, 2000000}));
        if (c.conversionCalls > 1) {
            EXPECT_EQ(conversions[1].args, (std::vector<std::uint64_t>{80000000, 500000}));
        }
        EXPECT_EQ(Fake().CallsTo("NXCAN_SetBaudrate").size(), c.setCalled ? 1u : 0u);
        EXPECT_EQ(Fake().CallsTo("NXCAN_InitChannel")[0].args[3], 1u);
        if (c.setCalled) {
            EXPECT_EQ(Fake().CallsTo("NXCAN_SetBaudrate")[0].args[1], 80000000u);
            EXPECT_EQ(Fake().LastArbitrationTiming().ulTSEG1, 2000u);
            EXPECT_EQ(Fake().LastDataTiming().ulTSEG1, 500u);
            EXPECT_EQ(result.functionName, "NXCAN_SetBaudrate");
        } else {
            EXPECT_EQ(result.errorCode, 0);
            EXPECT_EQ(result.functionName, "NXCAN_ConvertBaudrateToBitTimingParameters");
        }
        EXPECT_TRUE(wrapper->GetIsInitialized());
    }
}

TEST_F(CanWrapper, OperationsNameTheirLibraryCall)
{
    AddChannel();
    auto wrapper = Ready(Monitoring());

    Fake().SetResult("NXCAN_GetBaudrate", 3);
    Mark();
    std::uint32_t rate = 77;
    NxBusError baud = wrapper->GetBaudRate(&rate);
    EXPECT_EQ(baud.functionName, "NXCAN_GetBaudrate");
    EXPECT_EQ(rate, 77u);
    EXPECT_EQ(CallsSinceMark(), Calls{"NXCAN_GetBaudrate"});

    NxBusError acceptance = wrapper->SetAcceptance(1, 2, 3, 4);
    EXPECT_EQ(acceptance.errorCode, 0);
    EXPECT_EQ(acceptance.functionName, "NXCAN_CanSetAcceptance");
    EXPECT_EQ(acceptance.severity, NxBusErrorSeverity::Error);
}

TEST_F(CanWrapper, HardwareTimeUsesTheSharedCoefficient)
{
    AddChannel();
    Fake().SetResolution(25000000);
    auto wrapper = Ready(Monitoring());
    EXPECT_EQ(NxCanApiWrapper::GetTimeConvCoefficient(), 25u);
    Fake().SetHardwareTicks(25 * 1234567);
    std::uint64_t now = 0;
    NxBusError ok = wrapper->GetHardwareTime(&now);
    EXPECT_EQ(ok.errorCode, 0);
    EXPECT_EQ(ok.functionName, "");
    EXPECT_EQ(ok.severity, NxBusErrorSeverity::NotDefined);
    EXPECT_EQ(now, 1234567u);

    Fake().SetResult("NXCAN_GetHardwareTime", 8);
    now = 5;
    NxBusError failed = wrapper->GetHardwareTime(&now);
    EXPECT_EQ(failed.functionName, "NXCAN_GetHardwareTime");
    EXPECT_EQ(now, 5u);

    // A later wrapper's resolution is everybody's; below one tick per
    // microsecond time cannot be converted.
    wrapper.reset();
    nxtest::ScopedFakeCanLibrary scoped;
    AddChannel();
    Fake().SetResolution(999999);
    auto slow = Ready(Monitoring());
    EXPECT_EQ(NxCanApiWrapper::GetTimeConvCoefficient(), 0u);
    EXPECT_THROW(slow->GetHardwareTime(&now), std::runtime_error);
}

TEST_F(CanWrapper, ReplayTimesGoOutInTicks)
{
    AddChannel();
    auto wrapper = Ready(Replay());  // 80 ticks per microsecond

    NxBusError log = wrapper->SetLogStartTime(1000);
    EXPECT_EQ(wrapper->GetLogStartTime(), 1000u);
    EXPECT_EQ(log.severity, NxBusErrorSeverity::NotDefined);
    EXPECT_EQ(log.functionName, "NXCAN_SetReplayStartTime");
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStartTime").back().args,
              (std::vector<std::uint64_t>{7, 0, 80000, NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0}));
    Fake().SetResult("NXCAN_SetReplayStartTime", -1);
    EXPECT_EQ(wrapper->SetLogStartTime(5).severity, NxBusErrorSeverity::Warning);
    Fake().SetResult("NXCAN_SetReplayStartTime", 2);
    EXPECT_EQ(wrapper->SetLogStartTime(5).severity, NxBusErrorSeverity::Error);
    Fake().SetResult("NXCAN_SetReplayStartTime", 0);

    EXPECT_EQ(wrapper->SetReplayStartTime(300, 200).functionName, "NXCAN_SetReplayStartTime");
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStartTime").back().args,
              (std::vector<std::uint64_t>{7, 24000, 16000, NXCAN_REPLAY_OPTION_NONE, 0}));
    EXPECT_EQ(wrapper->SetReplayStopTime(10).functionName, "NXCAN_SetReplayStopTime");
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStopTime").back().args, (std::vector<std::uint64_t>{7, 800}));

    wrapper->SetReplayEofTime(42);
    EXPECT_EQ(wrapper->GetReplayEofTime(), 42u);
}

TEST_F(CanWrapper, ReplayStateIsCopiedWithTheStateCutTo8Bits)
{
    AddChannel();
    auto wrapper = Ready(Replay());
    NXSCanReplayStatusInfo status = {};
    status.tReplayState = static_cast<NXECanReplayState>(0x104);
    status.ui64Timestamp = 1;
    status.ui64SentFrames = 2;
    status.ui64ErrorData = 3;
    status.ui64SendFailed = 4;
    status.ui64Dropped = 5;
    Fake().SetReplayStatus(status);
    NxBusReplayStateInfo info = {};
    NxBusError ok = wrapper->GetReplayStateInfo(&info);
    EXPECT_EQ(ok.functionName, "");
    EXPECT_EQ(info.tReplayState, 4);
    EXPECT_EQ(info.ui64Timestamp + info.ui64SentFrames * 10 + info.ui64ErrorData * 100 + info.ui64SendFailed * 1000 +
                  info.ui64Dropped * 10000,
              54321u);
    Fake().SetResult("NXCAN_GetReplayStateInfo", 6);
    EXPECT_EQ(wrapper->GetReplayStateInfo(&info).functionName, "NXCAN_GetReplayStateInfo");
}

TEST_F(CanWrapper, DiscoveryListsFiltersAndDescribes)
{
    AddChannel("n1", 0x100);
    AddChannel("v1", 0, "Virtual");
    AddChannel("o1", 0, "USB", "Other");
    auto all = NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false);
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(Fake().CallsTo("NXCAN_GetAvailableChannelsCount")[0].args,
              (std::vector<std::uint64_t>{1, NXCAN_SEARCH_ARRTIBUTE_TYPE_IP_V4_ADDRESS}));
    auto hardware = NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", true);
    ASSERT_EQ(hardware.size(), 1u);
    EXPECT_STREQ(NxCanApiWrapper::GetChannelId(hardware[0]), "n1");
    EXPECT_TRUE(NxCanApiWrapper::IsHighSpeedChannel(hardware[0]));
    EXPECT_FALSE(NxCanApiWrapper::IsHighSpeedChannel(all[1]));

    EXPECT_STREQ(NxCanApiWrapper::GetChannelDescription(all[0], "n1"), "Vendor: Norvex; Interface: PCIe; Serial number: SN-n1");
    EXPECT_STREQ(NxCanApiWrapper::GetChannelDescription(all[0], "v1"), "");
    std::memset(all[2].szInterfaceSerialNumber, 0, sizeof all[2].szInterfaceSerialNumber);
    EXPECT_STREQ(NxCanApiWrapper::GetChannelDescription(all[2], "o1"), "Vendor: Other; Interface: USB");

    // The listing fails quietly, the count does not.
    Fake().SetResult("NXCAN_GetAvailableChannels", 3);
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).empty());
    Fake().SetResult("NXCAN_GetAvailableChannelsCount", 4);
    try {
        NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false);
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "NXCAN_GetAvailableChannelsCount: library text of 4");
    }
}

// ---------------------------------------------------------------------------
// Error texts

TEST_F(CanWrapper, ErrorMessagesTakeTheVendorBranchOnlyWithAChannel)
{
    AddChannel();
    auto wrapper = Make(Monitoring());
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError()), "");
    EXPECT_TRUE(Fake().CallsTo("NXCAN_GetErrorText").empty());

    // No channel yet: -1 is just a code with a text.
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError(-1, "NXCAN_X", NxBusErrorSeverity::Error)),
              "NXCAN_X: library text of -1");
    EXPECT_TRUE(Fake().CallsTo("NXCAN_GetLastVendorSpecificError").empty());

    wrapper.reset();
    wrapper = Ready(Monitoring());
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError(12, "NXCAN_Y", NxBusErrorSeverity::Warning)),
              "NXCAN_Y: library text of 12");
    Fake().SetVendorError(77, "vendor says no");
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError(-1, "NXCAN_Z", NxBusErrorSeverity::Error)),
              "NXCAN_Z: vendor says no");

    // 128 only asks for a flush.
    Fake().SetVendorError(128, "flush me");
    Mark();
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError(-1, "NXCAN_Z", NxBusErrorSeverity::Error)), "");
    EXPECT_EQ(CallsSinceMark(),
              (Calls{"NXCAN_GetErrorText", "NXCAN_GetLastVendorSpecificError", "NXCAN_FlushReceiveQueue"}));
    EXPECT_EQ(Fake().CallsTo("NXCAN_FlushReceiveQueue").back().args[0], 7u);
}

TEST_F(CanWrapper, RetrieveErrMessageThrowsWhatGetErrorMessageWouldShow)
{
    ASSERT_EQ(LoadCanLibrary(), 0);
    EXPECT_NO_THROW(NxCanApiWrapper::RetrieveErrMessage("NXCAN_A", 0, 7));
    Fake().SetVendorError(128, "");
    Mark();
    EXPECT_NO_THROW(NxCanApiWrapper::RetrieveErrMessage("NXCAN_A", -1, 7));
    EXPECT_EQ(CallsSinceMark().back(), "NXCAN_FlushReceiveQueue");

    auto message = [](const std::string& name, NXTCanError code, NXTCanHandle handle) {
        try {
            NxCanApiWrapper::RetrieveErrMessage(name, code, handle);
        } catch (const std::runtime_error& e) {
            return std::string(e.what());
        }
        return std::string("no exception");
    };
    EXPECT_EQ(message("NXCAN_A", -1, -1), "NXCAN_A: library text of -1");
    EXPECT_EQ(message("NXCAN_B", 3, 7), "NXCAN_B: library text of 3");
    Fake().SetVendorError(5, "vendor five");
    EXPECT_EQ(message("NXCAN_C", -1, 7), "NXCAN_C: vendor five");
}

TEST_F(CanWrapper, ErrorMessagesNeedNoBoundTable)
{
    NxCanApiWrapperSettings settings = Monitoring();
    bus.Object().missing = {"NXCAN_GetErrorText"};
    auto wrapper = Make(settings);
    EXPECT_EQ(wrapper->GetErrorMessage(NxBusError(10, "RegisterCanChannel", NxBusErrorSeverity::Error)),
              "RegisterCanChannel: ");
}

TEST(StringFormat, GrowsUntilTheTextFits)
{
    EXPECT_EQ(NxCanApiWrapper::StringFormat(""), "");
    EXPECT_EQ(NxCanApiWrapper::StringFormat("plain"), "plain");
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%s", ""), "");
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%d", 12), "12");   // exactly the first size, one short
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%d", 123), "123"); // one more than the first size
    std::string big(5000, 'x');
    EXPECT_EQ(NxCanApiWrapper::StringFormat("<%s|%s>", big.c_str(), "y"), "<" + big + "|y>");
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%s: %s", "NXCAN_A", "text"), "NXCAN_A: text");
}

// ---------------------------------------------------------------------------
// Settings

TEST(CanSettings, TheConstructorLeavesTheSetterMembersAtRest)
{
    EXPECT_EQ(NxCanApiWrapperSettings().GetLogFilename(), ".asc");
    NxCanApiWrapperSettings s("1.2.3.4", "a b/c", true, 2000000, 500000, true, true);
    EXPECT_EQ(s.GetLogFilename(), "a b/c.asc");
    EXPECT_FALSE(s.GetIsHighSpeedChannel());
    EXPECT_FALSE(s.GetEventBasedReceive());
    s.SetStandardCanIdentifiersMask(0x7FF);
    s.SetExtendedCanIdentifiersCode(0x10);
    s.AcceptAll();
    EXPECT_EQ(s.GetStandardCanIdentifiersMask() | s.GetExtendedCanIdentifiersCode(), 0u);
}
