// The CAN channel wrapper's lifecycle against the recording double:
// discovery, bring-up, bit rates, time, errors and release.
#include <cstring>

#include "bus_test_fixture.h"

namespace {

// What the closed library depends on: a channel registered, then
// initialised, filtered and notified, then activated; deactivated before it
// is unregistered.
Calls BringUpOrder(bool replay, bool eventBased)
{
    Calls order = {replay ? "NXCAN_RegisterReplayChannel" : "NXCAN_RegisterChannel", "NXCAN_InitChannel",
                   "NXCAN_SetAcceptance"};
    if (eventBased) order.push_back("NXCAN_SetEventNotification");
    order.push_back("NXCAN_ActivateChannel");
    return order;
}
const Calls kRelease = {"NXCAN_IsChannelAccessible", "NXCAN_DeactivateChannel", "NXCAN_IsChannelAccessible",
                        "NXCAN_UnregisterChannel"};

using CanWrapper = BusTest;

}  // namespace

TEST_F(CanWrapper, BringsUpMonitoringAndReplayChannelsInTheLibrarysOrder)
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
            ExpectInOrder(Fake().CallNames(), BringUpOrder(replay, eventBased));
            EXPECT_TRUE(wrapper->GetIsInitialized());
            EXPECT_EQ(wrapper->GetCanChannelHandle(), 7);
            EXPECT_EQ(Fake().RegisteredIdentifier(), "ch1");
            EXPECT_EQ(Fake().CallsTo("NXCAN_InitChannel")[0].args, (Args{7, NXCAN_IDENTIFIER_TYPE_STD_XTD, 32768, 0}));
            EXPECT_EQ(Fake().CallsTo("NXCAN_SetAcceptance")[0].args, (Args{7, 0x100, 0x700, 0x1000, 0x1F000}));
            EXPECT_EQ(Fake().CallsTo("NXCAN_FlushReceiveQueue").size() + Fake().CallsTo("NXCAN_FlushTransmitQueue").size(), 2u);
            EXPECT_EQ(Fake().CallsTo("NXCAN_SetEventNotification").size(), eventBased ? 1u : 0u);
            if (eventBased) {
                EXPECT_EQ(Fake().CallsTo("NXCAN_SetEventNotification")[0].args, (Args{7, 1}));
                ASSERT_NE(Fake().Event(), nullptr);
                EXPECT_FALSE(Fake().Event()->m_signalled);
            }
            EXPECT_EQ(wrapper->GetInitialBaudRate(), 500000u);  // as the library converts the channel's timing
            EXPECT_TRUE(CallsDuring([&] { EXPECT_EQ(Init(*wrapper).errorCode, 0); }).empty()) << "once is enough";
            EXPECT_EQ(CallsDuring([&] { wrapper.reset(); }), kRelease);
        }
    }
}

TEST_F(CanWrapper, AChannelThatIsNotThereGivesCode10AndCountsAsInitialised)
{
    struct Case {
        NxCanApiWrapperSettings settings;
        Calls discovery;  // an address without channels is not listed
    };
    for (const Case& c : {Case{Monitoring("elsewhere"), {"NXCAN_GetAvailableChannelsCount", "NXCAN_GetAvailableChannels"}},
                          Case{NxCanApiWrapperSettings("10.1.2.3", "ch1", false, 0, 500000, true, true),
                               {"NXCAN_GetAvailableChannelsCount"}}}) {
        SCOPED_TRACE(c.settings.GetIp());
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel("ch1");
        auto wrapper = Make(c.settings);
        EXPECT_EQ(Fake().LastSearchAddress(), c.settings.GetIp());
        EXPECT_EQ(Fake().CallNames(), c.discovery);
        bool highSpeed = true;
        EXPECT_TRUE(CallsDuring([&] {
                        EXPECT_EQ(Init(*wrapper, &highSpeed), NxBusError(10, "RegisterCanChannel", kError));
                    }).empty());
        EXPECT_TRUE(wrapper->GetIsInitialized());
        EXPECT_EQ(wrapper->GetCanChannelHandle(), -1);
        EXPECT_TRUE(highSpeed);
        if (c.discovery.size() == 1) {
            EXPECT_EQ(wrapper->GetCanChannelCount(), 0u);
            EXPECT_EQ(wrapper->GetCanChannelInfo(), nullptr);
            EXPECT_EQ(Thrown([&] { wrapper->CopyFrame2(VELDCANFrame{}); }), "Destination buffer is null!");
        }
        EXPECT_TRUE(CallsDuring([&] { wrapper.reset(); }).empty()) << "no handle: the destructor calls nothing";
    }
}

TEST_F(CanWrapper, AFailedStepStopsTheBringUpAndOnlyCode1LeavesItUninitialised)
{
    const Calls kUnregister = {"NXCAN_IsChannelAccessible", "NXCAN_UnregisterChannel"};
    struct Case {
        const char* symbol;
        std::int32_t code;
        bool initialised;
        Calls release;  // an uninitialised channel is only unregistered
    } const cases[] = {
        {"NXCAN_InitChannel", 1, false, kUnregister},
        {"NXCAN_GetBaudrate", 1, false, kUnregister},
        {"NXCAN_ActivateChannel", 5, true, kRelease},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.symbol);
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel();
        Fake().ScriptResults(c.symbol, {c.code});
        auto wrapper = Make(Monitoring());
        EXPECT_EQ(Init(*wrapper), NxBusError(c.code, c.symbol, kError));
        EXPECT_EQ(Fake().CallNames().back(), c.symbol) << "nothing after the failed step";
        EXPECT_EQ(wrapper->GetIsInitialized(), c.initialised);
        if (!c.initialised) {
            EXPECT_THROW(wrapper->ReadReceiveQueue(), std::runtime_error);
        }
        EXPECT_EQ(CallsDuring([&] { wrapper.reset(); }), c.release);
    }

    // Not initialised, the whole bring-up runs again, registration included.
    AddChannel();
    Fake().ScriptResults("NXCAN_InitChannel", {1});
    auto wrapper = Make(Monitoring());
    EXPECT_EQ(Init(*wrapper).errorCode, 1);
    ExpectInOrder(CallsDuring([&] { EXPECT_EQ(Init(*wrapper).errorCode, 0); }), BringUpOrder(false, false));
    EXPECT_TRUE(wrapper->GetIsInitialized());
}

TEST_F(CanWrapper, AnInaccessibleChannelIsLeftAlone)
{
    for (bool failQuestion : {false, true}) {
        nxtest::ScopedFakeCanLibrary scoped;
        AddChannel();
        auto wrapper = Ready(Monitoring());
        failQuestion ? Fake().SetResult("NXCAN_IsChannelAccessible", 3) : Fake().SetAccessible(false);
        EXPECT_EQ(CallsDuring([&] { wrapper.reset(); }), (Calls{"NXCAN_IsChannelAccessible", "NXCAN_IsChannelAccessible"}));
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
        bool supported = !(c.capabilities & 0x100);
        Init(*Make(settings), &supported);
        EXPECT_EQ(supported, (c.capabilities & 0x100) != 0);
        EXPECT_EQ(Fake().CallsTo("NXCAN_RegisterReplayChannel")[0].args, (Args{c.passed, 0}));
    }
    // A monitoring channel leaves the output alone.
    nxtest::ScopedFakeCanLibrary scoped;
    AddChannel("ch1", 0x100);
    bool untouched = false;
    Init(*Make(Monitoring()), &untouched);
    EXPECT_FALSE(untouched);
}

TEST_F(CanWrapper, AVirtualFirstChannelSkipsEveryBitRateCall)
{
    // Virtual is judged by the first channel listed, not by the one in use.
    AddChannel("v1", 0, "Virtual");
    AddChannel("ch1");
    auto wrapper = Ready(Monitoring("ch1"));
    for (const std::string& call : Fake().CallNames()) EXPECT_EQ(call.find("Baudrate"), std::string::npos) << call;
    ExpectInOrder(Fake().CallNames(), BringUpOrder(false, false));
    EXPECT_EQ(Fake().RegisteredIdentifier(), "ch1");
    EXPECT_EQ(wrapper->GetInitialBaudRate(), 0u);
    std::uint32_t rate = 1234;
    EXPECT_EQ(wrapper->GetBaudRate(&rate).errorCode, 0);
    EXPECT_EQ(rate, 1234u);
}

// The rate that reaches the bus is checked by the simulated bus, which
// refuses a rate other than its own; here the clock, which it does not
// tell, and the failures: a rate that cannot be converted is an error and
// nothing is set; one that cannot be set is a warning, the channel still up.
TEST_F(CanWrapper, ClassicBitRate)
{
    AddChannel();
    auto wrapper = Ready(Monitoring("ch1", false));
    EXPECT_EQ(Fake().CallsTo("NXCAN_ConvertBaudrateToBitTimingParameters")[0].args, (Args{8000000, 500000}));
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetBaudrate")[0].args, (Args{7, 8000000}));
    NXSCanBitTimingParameters data = Fake().LastDataTiming();  // a classic channel has no data phase
    EXPECT_EQ(data.ulSJW + data.ulBRP + data.ulSAM + data.ulTSEG1 + data.ulTSEG2, 0u);
    for (const NxBusError& failure : {NxBusError(2, "NXCAN_ConvertBaudrateToBitTimingParameters", kError),
                                      NxBusError(9, "NXCAN_SetBaudrate", kWarning)}) {
        Fake().ScriptResults(failure.functionName, {failure.errorCode});
        const std::size_t sets = Fake().CallsTo("NXCAN_SetBaudrate").size();
        EXPECT_EQ(wrapper->SetBaudRate(), failure);
        EXPECT_EQ(Fake().CallsTo("NXCAN_SetBaudrate").size(), sets + (failure.errorCode == 2 ? 0 : 1));
    }
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
        NxBusError result = Init(*wrapper);
        std::vector<nxtest::FakeCall> conversions = Fake().CallsTo("NXCAN_ConvertBaudrateToBitTimingParameters");
        ASSERT_EQ(conversions.size(), c.conversionCalls);
        EXPECT_EQ(conversions[0].args, (Args{80000000, 2000000}));
        if (c.conversionCalls > 1) {
            EXPECT_EQ(conversions[1].args, (Args{80000000, 500000}));
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
    std::uint32_t rate = 77;
    EXPECT_EQ(CallsDuring([&] { EXPECT_EQ(wrapper->GetBaudRate(&rate).functionName, "NXCAN_GetBaudrate"); }),
              Calls{"NXCAN_GetBaudrate"});
    EXPECT_EQ(rate, 77u);
    EXPECT_EQ(wrapper->SetAcceptance(1, 2, 3, 4), NxBusError(0, "NXCAN_CanSetAcceptance", kError));
}

TEST_F(CanWrapper, HardwareTimeUsesTheSharedCoefficient)
{
    AddChannel();
    Fake().SetResolution(25000000);
    auto wrapper = Ready(Monitoring());
    EXPECT_EQ(NxCanApiWrapper::GetTimeConvCoefficient(), 25u);
    Fake().SetTicks(25 * 1234567);
    std::uint64_t now = 0;
    EXPECT_EQ(wrapper->GetHardwareTime(&now), NxBusError());
    EXPECT_EQ(now, 1234567u);
    Fake().SetResult("NXCAN_GetHardwareTime", 8);
    now = 5;
    EXPECT_EQ(wrapper->GetHardwareTime(&now).functionName, "NXCAN_GetHardwareTime");
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
    EXPECT_EQ(wrapper->SetLogStartTime(1000), NxBusError(0, "NXCAN_SetReplayStartTime", kNotDefined));
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStartTime").back().args,
              (Args{7, 0, 80000, NXCAN_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0}));
    Fake().ScriptResults("NXCAN_SetReplayStartTime", {-1, 2});
    EXPECT_EQ(wrapper->SetLogStartTime(5).severity, kWarning);
    EXPECT_EQ(wrapper->SetLogStartTime(5).severity, kError);

    EXPECT_EQ(wrapper->SetReplayStartTime(300, 200).functionName, "NXCAN_SetReplayStartTime");
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStartTime").back().args,
              (Args{7, 24000, 16000, NXCAN_REPLAY_OPTION_NONE, 0}));
    EXPECT_EQ(wrapper->SetReplayStopTime(10).functionName, "NXCAN_SetReplayStopTime");
    EXPECT_EQ(Fake().CallsTo("NXCAN_SetReplayStopTime").back().args, (Args{7, 800}));
}

TEST_F(CanWrapper, ReplayStateIsCopiedWithTheStateCutTo8Bits)
{
    AddChannel();
    auto wrapper = Ready(Replay());
    Fake().SetReplayStatus({0, static_cast<NXECanReplayState>(0x104), 1, 2, 3, 4, 5, {}});
    NxBusReplayStateInfo info = {};
    EXPECT_EQ(wrapper->GetReplayStateInfo(&info).functionName, "");
    EXPECT_EQ(info.tReplayState, 4);
    EXPECT_EQ(info.ui64Timestamp + info.ui64SentFrames * 10 + info.ui64ErrorData * 100 + info.ui64SendFailed * 1000 +
                  info.ui64Dropped * 10000,
              54321u);
    Fake().SetResult("NXCAN_GetReplayStateInfo", 6);
    EXPECT_EQ(wrapper->GetReplayStateInfo(&info).functionName, "NXCAN_GetReplayStateInfo");
}

// What the channel list of the components shows (hardware only, the
// descriptions) is theirs to test on the simulated bus; here what it cannot
// show.
TEST_F(CanWrapper, DiscoveryDescribesOnlyItsOwnChannelAndFailsOnlyOnTheCount)
{
    AddChannel("n1", 0x100);
    AddChannel("o1");
    auto all = NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_TRUE(NxCanApiWrapper::IsHighSpeedChannel(all[0]));
    EXPECT_FALSE(NxCanApiWrapper::IsHighSpeedChannel(all[1]));
    EXPECT_STREQ(NxCanApiWrapper::GetChannelDescription(all[0], "o1"), "");
    Fake().SetResult("NXCAN_GetAvailableChannels", 3);
    EXPECT_TRUE(NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false).empty());
    Fake().SetResult("NXCAN_GetAvailableChannelsCount", 4);
    EXPECT_EQ(Thrown([] { NxCanApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", false); }),
              "NXCAN_GetAvailableChannelsCount: library text of 4");
}

// -1 takes the vendor's text, and only with a channel; the vendor's 128
// asks for a flush and no text. GetErrorMessage returns what
// RetrieveErrMessage throws.
TEST_F(CanWrapper, ErrorMessagesTakeTheVendorBranchOnlyWithAChannel)
{
    AddChannel();
    auto idle = Make(Monitoring());
    auto ready = Ready(Monitoring());
    struct Case {
        std::int32_t code;
        bool channel;
        std::int32_t vendorCode;
        const char* message;
    } const cases[] = {
        {0, true, 0, ""},
        {-1, false, 77, "NXCAN_X: library text of -1"},
        {12, true, 77, "NXCAN_X: library text of 12"},
        {-1, true, 77, "NXCAN_X: vendor says no"},
        {-1, true, 128, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << (c.channel ? " with a channel, vendor " : " without, vendor ")
                                        << c.vendorCode);
        Fake().SetVendorError(c.vendorCode, "vendor says no");
        const Calls calls = CallsDuring([&] {
            EXPECT_EQ((c.channel ? ready : idle)->GetErrorMessage(NxBusError(c.code, "NXCAN_X", kError)), c.message);
            EXPECT_EQ(Thrown([&] { NxCanApiWrapper::RetrieveErrMessage("NXCAN_X", c.code, c.channel ? 7 : -1); }),
                      *c.message ? c.message : "no exception");
        });
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "NXCAN_GetLastVendorSpecificError") > 0,
                  c.code == -1 && c.channel);
        EXPECT_EQ(std::count(calls.begin(), calls.end(), "NXCAN_FlushReceiveQueue"), c.vendorCode == 128 ? 2 : 0);
    }
    EXPECT_EQ(Fake().CallsTo("NXCAN_FlushReceiveQueue").back().args[0], 7u);
}

TEST_F(CanWrapper, ErrorMessagesNeedNoBoundTable)
{
    bus.Object().missing = {"NXCAN_GetErrorText"};
    EXPECT_EQ(Make(Monitoring())->GetErrorMessage(NxBusError(10, "RegisterCanChannel", kError)), "RegisterCanChannel: ");
}

TEST(StringFormat, GrowsUntilTheTextFits)
{
    const std::string big(5000, 'x');
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%s", ""), "");
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%d", 12), "12");   // exactly the first size, one short
    EXPECT_EQ(NxCanApiWrapper::StringFormat("%d", 123), "123"); // one more than the first size
    EXPECT_EQ(NxCanApiWrapper::StringFormat("<%s|%s>", big.c_str(), "y"), "<" + big + "|y>");
    EXPECT_EQ(NxEthApiWrapper::StringFormat("%s: %d", "a", 7), "a: 7");
}

TEST(CanSettings, TheConstructorLeavesTheSetterMembersAtRest)
{
    NxCanApiWrapperSettings s("1.2.3.4", "a b/c", true, 2000000, 500000, true, true);
    EXPECT_EQ(s.GetLogFilename(), "a b/c.asc");
    EXPECT_FALSE(s.GetIsHighSpeedChannel() || s.GetEventBasedReceive());
    s.SetStandardCanIdentifiersMask(0x7FF);
    s.SetExtendedCanIdentifiersCode(0x10);
    s.AcceptAll();
    EXPECT_EQ(s.GetStandardCanIdentifiersMask() | s.GetExtendedCanIdentifiersCode(), 0u);
}
