#include <gtest/gtest.h>

#include "NxChannelMap.h"

namespace {

std::vector<std::string> Names(const char* first, const char* second, const char* third)
{
    std::vector<std::string> out;
    for (const VELDString& name : NxChannelMap::GetBlockNames(first, second, third)) out.push_back(name.Beginning());
    return out;
}

using List = std::vector<std::string>;

}  // namespace

TEST(ChannelMap, KeepsOneNameOncePerKeyInOrder)
{
    NxChannelMap::InsertBlockName("b", "NxCanInject", "10.0.0.1", "chA");
    NxChannelMap::InsertBlockName("a", "NxCanInject", "10.0.0.1", "chA");
    NxChannelMap::InsertBlockName("b", "NxCanInject", "10.0.0.1", "chA");
    EXPECT_EQ(Names("NxCanInject", "10.0.0.1", "chA"), (List{"b", "a"}));
    // Every part of the key counts.
    EXPECT_TRUE(Names("NxCanMonitoring", "10.0.0.1", "chA").empty());
    EXPECT_TRUE(Names("NxCanInject", "10.0.0.2", "chA").empty());

    // Names and keys that are not there are no fault.
    for (const char* name : {"b", "zzz"}) NxChannelMap::RemoveBlockName(name, "NxCanInject", "10.0.0.1", "chA");
    NxChannelMap::RemoveBlockName("a", "NxCanInject", "10.0.0.1", "nowhere");
    EXPECT_EQ(Names("NxCanInject", "10.0.0.1", "chA"), List{"a"});
    NxChannelMap::RemoveBlockName("a", "NxCanInject", "10.0.0.1", "chA");
    EXPECT_TRUE(Names("NxCanInject", "10.0.0.1", "chA").empty());
    // The key went with its last name: a new name starts a new list.
    NxChannelMap::InsertBlockName("c", "NxCanInject", "10.0.0.1", "chA");
    EXPECT_EQ(Names("NxCanInject", "10.0.0.1", "chA"), List{"c"});
    NxChannelMap::RemoveBlockName("c", "NxCanInject", "10.0.0.1", "chA");
}

TEST(ChannelMap, CustomChannelsAreNotTracked)
{
    NxChannelMap::InsertBlockName("x", "NxEthInject", "10.0.0.1", "Custom channel");
    EXPECT_TRUE(Names("NxEthInject", "10.0.0.1", "Custom channel").empty());
    NxChannelMap::RemoveBlockName("x", "NxEthInject", "10.0.0.1", "Custom channel");
}
