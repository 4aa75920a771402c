// What the bus components offer before they run: the channel list and its
// registry, the replay properties and inputs by mode, and the rules of the
// CAN settings. The channel list comes from the simulated bus.
#include <string>
#include <vector>

#include "ComponentTest.h"
#include "veld_object_types.h"
#include "veld_output.h"

namespace bus_components {
namespace {

class BusPropertiesTest : public ComponentTest {
protected:
    std::vector<std::string> Channels(const std::string& component)
    {
        std::vector<std::string> items;
        VELDEnumStruct* channels = engine.Property((component + ".channel").c_str())->EnumValues();
        for (int i = 0; i < channels->Count(); ++i) items.push_back(channels->Item(i).Beginning());
        return items;
    }
    VELDProperty& Property(const std::string& name) { return *engine.Property(name.c_str()); }
};

const std::vector<std::string> kAllChannels = {"NVX-CAN-1", "NVX-CAN-2", "NVX-VIRT-1", "ORV-CAN-1", "NVX-ZIRA-1",
                                               "Custom channel"};

TEST_F(BusPropertiesTest, ChannelListFollowsDiscoveryTheAddressAndTheReplayMode)
{
    Make("NxCanMonitoring", "rx");
    EXPECT_EQ(Channels("rx"), std::vector<std::string>{});  // nothing asked of the bus yet
    Trigger("rx.Refresh_Devices");
    EXPECT_EQ(Channels("rx"), kAllChannels);
    EXPECT_EQ(Text("rx.channel"), "NVX-CAN-1");
    Set("rx.channel", "NVX-ZIRA-1");

    // An address without a bus leaves the custom channel alone, selected.
    Set("rx.ip", "10.11.12.13");
    EXPECT_EQ(Text("rx.ip"), "10.11.12.13");
    EXPECT_EQ(Channels("rx"), std::vector<std::string>{"Custom channel"});
    EXPECT_EQ(Text("rx.channel"), "Custom channel");
    // Back on the bus the selection, still offered, stays.
    Set("rx.ip", "127.0.0.1");
    EXPECT_EQ(Channels("rx"), kAllChannels);
    EXPECT_EQ(Text("rx.channel"), "Custom channel");
    // The list's changes left NVX-ZIRA-1 registered for rx; choosing it
    // again makes it rx's channel, which rx releases when it goes.
    Set("rx.channel", "NVX-ZIRA-1");

    // A synchronised replay is offered the Norvex hardware only.
    Make("NxCanInject", "tx");
    Trigger("tx.Refresh_Devices");
    EXPECT_EQ(Channels("tx"), (std::vector<std::string>{"NVX-CAN-1", "NVX-CAN-2", "NVX-ZIRA-1", "Custom channel"}));
    Set("tx.replay_mode", "Unsynchronized");
    EXPECT_EQ(Channels("tx"), kAllChannels);
    EXPECT_EQ(Text("tx.channel"), "NVX-CAN-1");
}

TEST_F(BusPropertiesTest, ChannelDescriptionAndTheRegistryOfChannelsInUse)
{
    Make("NxCanMonitoring", "a");
    Trigger("a.Refresh_Devices");
    Set("a.channel", "NVX-CAN-2");
    EXPECT_EQ(Text("a.channel_description"), "Vendor: Norvex; Interface: NVX CAN FD Interface 4; Serial number: NVX4-000117");

    // A second monitor on that channel is told at once; an injector, of
    // another model, is not.
    Make("NxCanMonitoring", "b");
    Trigger("b.Refresh_Devices");
    EXPECT_EQ(Refusal("b.channel", "NVX-CAN-2"), "property b.channel: Selected channel [NVX-CAN-2] is used several times in a,b!");
    Set("b.channel", "NVX-ZIRA-1");
    Make("NxCanInject", "tx");
    Trigger("tx.Refresh_Devices");
    Set("tx.channel", "NVX-CAN-2");
}

TEST_F(BusPropertiesTest, VirtualChannelWarnsAndClassicRatesAreClampedToOneMegabaud)
{
    Make("NxCanMonitoring", "rx");
    Trigger("rx.Refresh_Devices");
    Set("rx.channel", "NVX-VIRT-1");
    Set("rx.can_fd", "true");  // the next Dynamic tells
    EXPECT_TRUE(Reported("component rx: Selected channel [Vendor: Norvex; Interface: Virtual] is virtual. "
                         "Configuration options are limited (baudrate setting, codes, CANFD, and filters are not "
                         "available)"));

    Set("rx.arbitration_baudrate", "2000");
    Set("rx.data_baudrate", "8000");
    EXPECT_EQ(Text("rx.arbitration_baudrate"), "2000");
    EXPECT_EQ(Text("rx.data_baudrate"), "8000");
    Set("rx.can_fd", "false");
    EXPECT_EQ(Text("rx.arbitration_baudrate"), "1000");
    EXPECT_EQ(Text("rx.data_baudrate"), "1000");
    EXPECT_TRUE(Reported("[arbitration_baudrate] can't be greater than 1MBds in CAN (non FD) mode. Using 1MBds instead."));
    EXPECT_TRUE(Reported("[data_baudrate] can't be greater than 1MBds in CAN (non FD) mode. Using 1MBds instead."));
    Set("rx.arbitration_baudrate", "500");
    EXPECT_EQ(Text("rx.arbitration_baudrate"), "500");

    Make("NxCanInject", "tx");
    Set("tx.replay_mode", "Unsynchronized");
    Trigger("tx.Refresh_Devices");
    Set("tx.channel", "NVX-VIRT-1");
    Set("tx.can_fd", "true");
    EXPECT_TRUE(Reported("component tx: Selected channel [Vendor: Norvex; Interface: Virtual] is virtual. "
                         "Configuration options are limited (baudrate setting, codes, and CANFD are not available)"));
    Set("tx.data_baudrate", "4000");
    Set("tx.can_fd", "false");
    EXPECT_EQ(Text("tx.data_baudrate"), "1000");
}

TEST_F(BusPropertiesTest, ModesDecideWhichPropertiesInputsAndOutputsExist)
{
    Make("NxCanMonitoring", "rx");
    VELDComponent& rx = *Component("rx");
    EXPECT_FALSE(HasProperty("rx", "sampling_period"));
    EXPECT_FALSE(HasProperty("rx", "replay_mode"));
    EXPECT_FALSE(rx.HasOutput("oSimTime"));
    Set("rx.sampling_mode", "Polling");
    EXPECT_TRUE(HasProperty("rx", "sampling_period"));
    Set("rx.sampling_mode", "Event based");
    EXPECT_FALSE(HasProperty("rx", "sampling_period"));
    Set("rx.sim_time_output", true);
    EXPECT_TRUE(rx.HasOutput("oSimTime"));
    // The record of oCAN: classic, CAN FD, and universal whatever can_fd.
    EXPECT_EQ(rx.Output("oCAN").Type().value & 0xFFFFFFFF, 0x80u);
    const struct {
        const char* property;
        Value value;
        unsigned type;
    } records[] = {{"can_fd", true, 0x80000}, {"output_type", "Universal CAN", 0x1000000}, {"can_fd", false, 0x1000000}};
    for (const auto& r : records) {
        Set(std::string("rx.") + r.property, r.value);
        EXPECT_EQ(rx.Output("oCAN").Type().value & 0xFFFFFFFF, r.type) << r.property << " " << r.value;
    }

    // Synchronized (the default) has the replay group, the time inputs and
    // the state output; Unsynchronized keeps only the mode.
    Make("NxCanInject", "tx");
    VELDComponent& tx = *Component("tx");
    for (const bool synchronized : {true, false}) {
        SCOPED_TRACE(synchronized ? "Synchronized" : "Unsynchronized");
        if (!synchronized) Set("tx.replay_mode", "Unsynchronized");
        EXPECT_TRUE(HasProperty("tx", "replay_mode"));
        EXPECT_TRUE(tx.HasInput("iCAN"));
        for (const char* p : {"replay_period", "high_speed"}) EXPECT_EQ(HasProperty("tx", p), synchronized) << p;
        for (const char* i : {"iLogStartTime", "iReplayStartTime", "iReplayStopTime", "iReplayEofTime"})
            EXPECT_EQ(tx.HasInput(i), synchronized) << i;
        EXPECT_EQ(tx.HasOutput("oReplayStateInfo"), synchronized);
    }
}

TEST_F(BusPropertiesTest, ZiraChannelLocksHighSpeedOff)
{
    Make("NxCanInject", "tx");
    Trigger("tx.Refresh_Devices");
    Set("tx.high_speed", "true");
    Set("tx.channel", "NVX-ZIRA-1");
    EXPECT_FALSE(Property("tx.high_speed").BoolValue());
    EXPECT_FALSE(Property("tx.high_speed").IsMutable());
    EXPECT_TRUE(Reported("The Data Replay property \"high_speed\" is not supported with ZIRA application and is "
                         "deselected!"));
    EXPECT_FALSE(Refusal("tx.high_speed", "true").empty());
    Set("tx.channel", "NVX-CAN-1");
    EXPECT_TRUE(Property("tx.high_speed").IsMutable());
    Set("tx.high_speed", true);
    EXPECT_TRUE(Property("tx.high_speed").BoolValue());
}

TEST_F(BusPropertiesTest, BirthNeedsAChannelAndTellsTheCustomOne)
{
    Make("NxCanMonitoring", "rx");
    Run();
    EXPECT_TRUE(Eventually([&] { return engine.Graph().IsDead("rx"); }));
    EXPECT_TRUE(Reported("No valid channel has been selected"));
    Shutdown();

    // A custom identifier wins over the list, with a warning.
    Set("rx.custom_channel", "NVX-CAN-2");
    Set("rx.arbitration_baudrate", "500");
    Set("rx.data_baudrate", "500");
    Run();
    EXPECT_TRUE(Eventually([&] { return Reported("The channel identifier used is configured in the property \"custom_channel\"!"); }));
    EXPECT_FALSE(engine.Graph().IsDead("rx"));
}

}  // namespace
}  // namespace bus_components
