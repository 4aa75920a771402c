// The Ethernet interface wrapper's lifecycle against the recording doubles:
// bring-up and release with the replay stage, the codes 9 and 666 with their
// sentences, the counts that let the last wrapper go, errors and time.
#include <cstring>

#include "bus_test_fixture.h"

namespace {

// What the closed library depends on: an interface registered, then
// initialised, then activated; deactivated before it is unregistered.
Calls BringUpOrder(bool replay)
{
    return {replay ? "NXETH_RegisterReplayInterface" : "NXETH_RegisterInterface", "NXETH_InitInterface",
            "NXETH_ActivateInterface"};
}
const Calls kRelease = {"NXETH_IsInterfaceAccessible", "NXETH_DeactivateInterface", "NXETH_IsInterfaceAccessible",
                        "NXETH_UnregisterInterface"};

using EthWrapper = EthBusTest;

}  // namespace

TEST_F(EthWrapper, BringsUpAndReleasesMonitoringAndReplayInterfacesInTheLibrarysOrder)
{
    for (bool replay : {false, true}) {
        SCOPED_TRACE(replay ? "replay" : "monitoring");
        nxtest::ScopedFakeEthLibrary scoped;
        AddInterface("eth1", 0x100);
        Eth().SetResolution(125000000);
        auto wrapper = Make(replay ? Replay() : Monitoring());
        EXPECT_TRUE(Eth().Calls().empty());  // the constructor leaves the library alone
        bool highSpeed = false;
        EXPECT_EQ(Init(*wrapper, &highSpeed), NxBusError(0, "NXETH_GetTimeResolution", kError));
        ExpectInOrder(Eth().CallNames(), BringUpOrder(replay));
        EXPECT_EQ(Eth().CallsTo("NXETH_FlushReceiveQueue").size() + Eth().CallsTo("NXETH_FlushTransmitQueue").size(), 2u);
        EXPECT_EQ(Eth().CallsTo("NxDRPP_CreateHandle").size(), replay ? 1u : 0u);
        EXPECT_EQ(*wrapper->GetInterfaceHandle(), 5);
        EXPECT_EQ(Eth().RegisteredIdentifier(), "eth1");
        EXPECT_EQ(NxEthApiWrapper::GetTimeConvCoefficient(), 125u);
        if (replay) {
            EXPECT_EQ(Eth().CallsTo("NxDRPP_CreateHandle")[0].args, (Args{10, 1000, NXDRPP_UDP}));
            // Hardware that offers the high-speed path, settings that do not ask for it.
            EXPECT_TRUE(highSpeed);
            EXPECT_EQ(Eth().CallsTo("NXETH_RegisterReplayInterface")[0].args, (Args{0, 0}));
        }
        EXPECT_TRUE(CallsDuring([&] { EXPECT_EQ(Init(*wrapper).errorCode, 0); }).empty()) << "once is enough";
        Calls release = kRelease;
        if (replay) release.push_back("NxDRPP_DestroyHandle");
        EXPECT_EQ(CallsDuring([&] { wrapper.reset(); }), release);
    }
}

TEST_F(EthWrapper, AMissingLibraryIsCode666WithASentenceAndNothingRegistered)
{
    struct Case {
        bool replay;
        bool ethAbsent;
        const char* message;
    };
    for (Case c : {Case{false, true, "LoadEthLibrary: Norvex Bus API is not installed!"},
                   Case{true, true, "LoadEthLibrary: Norvex Bus API is not installed!"},
                   Case{true, false,
                        "LoadDrPreLibrary: Norvex Bus API 2024-A (NxDRPreProcessing library) is not installed!"}}) {
        SCOPED_TRACE(c.message);
        nxtest::ScopedFakeEthLibrary scoped;
        AddInterface();
        scoped.EthObject().absent = c.ethAbsent;
        scoped.StageObject().absent = true;
        auto wrapper = Make(c.replay ? Replay() : Monitoring());
        NxBusError result = Init(*wrapper);
        EXPECT_EQ(result.errorCode, 666);
        EXPECT_EQ(result.severity, kError);
        EXPECT_EQ(wrapper->GetErrorMessage(result), c.message);
        EXPECT_FALSE(wrapper->GetIsInitialized());
        EXPECT_EQ(*wrapper->GetInterfaceHandle(), -1);
        EXPECT_TRUE(Eth().Calls().empty());
    }
    // A wrapper that never failed has no sentence.
    EXPECT_EQ(Make(Monitoring())->GetErrorMessage(NxBusError(666, "LoadEthLibrary", kError)), "LoadEthLibrary: ");
}

TEST_F(EthWrapper, AnUnknownIdentifierGivesCode9AndCountsAsInitialised)
{
    AddInterface("eth1");
    auto wrapper = Make(Monitoring("elsewhere"));
    EXPECT_EQ(Init(*wrapper), NxBusError(9, "RegisterInterface", kError));
    EXPECT_TRUE(wrapper->GetIsInitialized());
    EXPECT_EQ(*wrapper->GetInterfaceHandle(), -1);
    EXPECT_TRUE(CallsDuring([&] { wrapper.reset(); }).empty());
}

TEST_F(EthWrapper, OnlyTheLastWrapperLetsTheLibrariesGo)
{
    AddInterface();
    auto first = Ready(Replay());
    auto second = Ready(Replay());
    EXPECT_EQ(uEthApiWrapperCount, 2u);
    EXPECT_EQ(uDrPreApiWrapperCount, 2u);
    EXPECT_EQ(Eth().CallsTo("NxDRPP_CreateHandle").size(), 2u);
    EXPECT_EQ(CallsDuring([&] { first.reset(); }), kRelease);  // its stage is left as it is
    EXPECT_NE(pfnEthGetTime, nullptr);
    EXPECT_TRUE(bus.StageObject().is_loaded());

    second.reset();
    EXPECT_EQ(Eth().CallsTo("NxDRPP_DestroyHandle").size(), 1u);
    EXPECT_EQ(pfnEthGetTime, nullptr);
    EXPECT_FALSE(bus.StageObject().is_loaded());
    EXPECT_EQ(bus.StageObject().unloads, 1);
    EXPECT_TRUE(bus.EthObject().is_loaded());  // pinned

    // A wrapper that never ran Initialize was never counted in: the count
    // wraps, and from then on no wrapper finds it at 1.
    Make(Monitoring()).reset();
    EXPECT_EQ(uEthApiWrapperCount, 0xFFFFFFFFu);
}

TEST_F(EthWrapper, ErrorMessagesTakeTheProviderBranchOnlyWithAnInterface)
{
    AddInterface();
    Eth().SetVendorError(42, "provider says no");
    auto idle = Make(Monitoring());
    auto ready = Ready(Monitoring());
    struct Case {
        NxEthApiWrapper* wrapper;
        std::int32_t code;
        const char* message;
    };
    for (Case c : {Case{idle.get(), 0, ""}, Case{idle.get(), -1, "NXETH_X: library text of -1"},
                   Case{ready.get(), -1, "NXETH_X: provider says no"}, Case{ready.get(), 12, "NXETH_X: library text of 12"}})
        EXPECT_EQ(c.wrapper->GetErrorMessage(NxBusError(c.code, "NXETH_X", kError)), c.message) << c.code;

    auto thrown = [](NXTEthError code, NXTEthHandle handle) {
        return Thrown([&] { NxEthApiWrapper::RetrieveErrMessage("NXETH_Y", code, handle); });
    };
    EXPECT_EQ(thrown(0, 5), "no exception");
    EXPECT_EQ(thrown(-1, -1), "NXETH_Y: library text of -1");
    EXPECT_EQ(thrown(-1, 5), "NXETH_Y: provider says no");
    EXPECT_EQ(thrown(666, 5), "NXETH_Y: library text of 666");  // no sentence of its own here
}

TEST_F(EthWrapper, TimeGoesToTheLibraryInTicksAndComesBackInMicroseconds)
{
    AddInterface();
    auto wrapper = Ready(Replay());  // 1000 ticks per microsecond
    Eth().SetTicks(1000 * 1234567 + 999);
    std::uint64_t now = 0;
    EXPECT_EQ(wrapper->GetHardwareTime(&now), NxBusError(0, "NXETH_GetTime", kError));  // named on success too, unlike CAN
    EXPECT_EQ(now, 1234567u);

    EXPECT_EQ(wrapper->SetLogStartTime(7).severity, kNotDefined);
    EXPECT_EQ(Eth().CallsTo("NXETH_SetReplayStartTime").back().args,
              (Args{5, 0, 7000, NXETH_REPLAY_OPTION_APPLY_OFFSET_ONLY, 0}));
    Eth().ScriptResults("NXETH_SetReplayStartTime", {-1});
    EXPECT_EQ(wrapper->SetLogStartTime(7).severity, kWarning);
    wrapper->SetReplayStartTime(3, 2);
    EXPECT_EQ(Eth().CallsTo("NXETH_SetReplayStartTime").back().args,
              (Args{5, 3000, 2000, NXETH_REPLAY_OPTION_NONE, 0}));
}

TEST_F(EthWrapper, DiscoveryFiltersByProviderAlone)
{
    AddInterface("n1", 0x100);
    Eth().AddChannel({"Norvex", "Virtual", "", "v1"});
    AddInterface("o1", 0, "Other");
    auto norvex = NxEthApiWrapper::RetrieveAvailableChannelsVector("127.0.0.1", true);
    ASSERT_EQ(norvex.size(), 2u);  // virtual interfaces stay
    EXPECT_STREQ(NxEthApiWrapper::GetChannelId(norvex[1]), "v1");
    EXPECT_TRUE(NxEthApiWrapper::IsHighSpeedChannel(norvex[0]));
    EXPECT_FALSE(NxEthApiWrapper::IsHighSpeedChannel(norvex[1]));
    EXPECT_STREQ(NxEthApiWrapper::GetChannelDescription(norvex[1], "v1"), "Vendor: Norvex; Interface: Virtual");
}
