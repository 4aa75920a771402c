// The CAN records are read by offset by other packages: what each operation
// leaves in their words is the format.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "veld_can_frames.h"

using Uni = VELDCANUniFrame;

TEST(CanFrame, IdentifiersAreStoredUnmaskedWithTheMarkerInTheWordAndTheLengthIsASignedByte)
{
    VELDCANFrame frame{};
    frame.SetStandardId(0xFFFF);
    EXPECT_EQ(frame.arbitrationId, 0xFFFFu);
    EXPECT_TRUE(frame.HasStandardId());
    frame.SetExtendedId(0x1ABCDEF);
    EXPECT_EQ(std::make_tuple(frame.arbitrationId, frame.HasExtendedId(), frame.GetId()),
              std::make_tuple(0x21ABCDEFu, true, 0x1ABCDEFu));
    frame.SetStandardId(0xE0000001);  // more than 29 bits reach the marker and beyond
    EXPECT_TRUE(frame.HasExtendedId());
    EXPECT_EQ(frame.GetId(), 1u);
    frame.SetDataLength(300);
    EXPECT_EQ(frame.dataLength, 44);

    VELDCANFDFrame fd{};
    fd.SetExtendedId(0x20000005);
    EXPECT_EQ(std::make_tuple(fd.arbitrationId, fd.GetId()), std::make_tuple(0x20000005u, 5u));
    const std::pair<std::size_t, int> lengths[] = {{64, 64}, {128, -128}, {0x1FF, -1}};
    for (const auto& [set, stored] : lengths) {
        fd.SetDataLength(set);
        EXPECT_EQ(fd.dataLength, stored) << set;
    }
    fd.SetDataLength(64);
    EXPECT_EQ(fd.GetDataLength(), 64u);
}

TEST(CanUniFrame, FlagsHaveThreeStates)
{
    Uni frame;
    EXPECT_EQ(frame.hasFlags, 0u);
    EXPECT_FALSE(frame.IsFD() || frame.HasExtendedId() || frame.HasStandardId());  // nothing known
    frame.SetFlag<Uni::Flag_FD>(false);
    EXPECT_TRUE(frame.HasFlag<Uni::Flag_FD>());
    EXPECT_FALSE(frame.GetFlag<Uni::Flag_FD>());
    frame.SetFD(true);
    EXPECT_EQ(std::make_tuple(frame.IsFD(), frame.flags, frame.hasFlags), std::make_tuple(true, 1u, 1u));
    // A value bit without its validity is not a value.
    frame.InvalidateAllFlags();
    EXPECT_TRUE(frame.GetFlag<Uni::Flag_FD>());
    EXPECT_FALSE(frame.IsFD());
    frame.SetFlag<Uni::Flag_ChannelId>(true);
    EXPECT_EQ(std::make_tuple(frame.flags & 0x200u, frame.hasFlags), std::make_tuple(0x200u, 0x200u));
}

TEST(CanUniFrame, IdentifiersAreMaskedWithTheKindInAFlag)
{
    Uni frame;
    frame.SetStandardId(0xFFFF);
    EXPECT_EQ(std::make_tuple(frame.id, frame.GetId(), frame.HasStandardId()), std::make_tuple(0x7FFu, 0x7FFu, true));
    frame.SetExtendedId(0xFFFFFFFF);
    EXPECT_EQ(std::make_tuple(frame.id, frame.HasExtendedId(), frame.HasStandardId()),
              std::make_tuple(0x1FFFFFFFu, true, false));
    frame.SetStandardId(0x123);
    EXPECT_TRUE(frame.HasFlag<Uni::Flag_ExtendedId>());
    EXPECT_FALSE(frame.GetFlag<Uni::Flag_ExtendedId>());
    frame.id = 0x1ABCDEF;  // GetId masks by the kind: a stale wide id reads as standard
    EXPECT_EQ(frame.GetId(), 0x5EFu);
}

TEST(CanUniFrame, MiscBytesCrcAndReset)
{
    Uni frame;
    frame.SetStructVarsion(3);
    frame.SetChannelId(9);
    frame.SetFrameType(Uni::Type_Overload);
    frame.SetDataLength(300);
    EXPECT_EQ(frame.misc, 0x03092C03u);
    EXPECT_EQ(std::make_tuple(frame.GetDataLength(), frame.GetStructVersion(), frame.GetChannelId(),
                              frame.HasChannelId(), frame.GetFrameType()),
              std::make_tuple(std::size_t(44), VELDUInt8(3), VELDUInt8(9), true, Uni::Type_Overload));
    VELDUInt64 wide = 0;
    Uni::setBit<63>(wide);
    EXPECT_TRUE(Uni::getBit<63>(wide));
    Uni::clearBit<63>(wide);
    EXPECT_EQ(wide, 0u);

    EXPECT_FALSE(frame.HasCRC());
    frame.SetCRC(0xDEAD);
    EXPECT_TRUE(frame.HasCRC());
    EXPECT_EQ(frame.GetCRC(), 0xDEADu);
    frame.data[63] = 1;
    frame.SetTimestamp(99);
    frame.Reset();
    const unsigned char zeros[sizeof frame] = {};
    EXPECT_EQ(std::memcmp(&frame, zeros, sizeof frame), 0);
}

TEST(CanUniFrame, DlcTable)
{
    const std::size_t bytes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
    for (std::size_t dlc = 0; dlc < 16; ++dlc) {
        EXPECT_EQ(Uni::DLCToDataLength(dlc), bytes[dlc]);
        EXPECT_EQ(Uni::DataLengthToDLC(bytes[dlc]), dlc);
    }
    EXPECT_EQ(Uni::DLCToDataLength(16), 64u);
    EXPECT_EQ(Uni::DataLengthToDLC(13), 10u);
    EXPECT_EQ(Uni::DataLengthToDLC(65), 15u);
}
