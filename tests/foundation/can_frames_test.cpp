#include <gtest/gtest.h>

#include <cstring>

#include "veld_can_frames.h"

using Uni = VELDCANUniFrame;

TEST(CanFrame, IdentifiersAreStoredUnmaskedWithTheMarkerInTheWord)
{
    VELDCANFrame frame{};
    frame.SetStandardId(0xFFFF);
    EXPECT_EQ(frame.arbitrationId, 0xFFFFu);
    EXPECT_TRUE(frame.HasStandardId());
    frame.SetExtendedId(0x1ABCDEF);
    EXPECT_EQ(frame.arbitrationId, 0x21ABCDEFu);
    EXPECT_TRUE(frame.HasExtendedId());
    EXPECT_EQ(frame.GetId(), 0x1ABCDEFu);
    // More than 29 bits reach the marker and beyond.
    frame.SetStandardId(0xE0000001);
    EXPECT_TRUE(frame.HasExtendedId());
    EXPECT_EQ(frame.GetId(), 1u);

    VELDCANFDFrame fd{};
    fd.SetExtendedId(0x20000005);
    EXPECT_EQ(fd.arbitrationId, 0x20000005u);
    EXPECT_EQ(fd.GetId(), 5u);
}

TEST(CanFrame, DataLengthIsASignedByte)
{
    VELDCANFDFrame fd{};
    fd.SetDataLength(64);
    EXPECT_EQ(fd.dataLength, 64);
    EXPECT_EQ(fd.GetDataLength(), 64u);
    fd.SetDataLength(128);
    EXPECT_EQ(fd.dataLength, -128);
    fd.SetDataLength(0x1FF);
    EXPECT_EQ(fd.dataLength, -1);
    VELDCANFrame frame{};
    frame.SetDataLength(300);
    EXPECT_EQ(frame.dataLength, 44);
    frame.SetTimestamp(-7);
    EXPECT_EQ(frame.GetTimestamp(), -7);
}

TEST(CanUniFrame, FlagsHaveThreeStates)
{
    Uni frame;
    EXPECT_EQ(frame.hasFlags, 0u);
    EXPECT_FALSE(frame.IsFD());
    EXPECT_FALSE(frame.HasExtendedId());
    EXPECT_FALSE(frame.HasStandardId());  // nothing known

    frame.SetFlag<Uni::Flag_FD>(false);
    EXPECT_TRUE(frame.HasFlag<Uni::Flag_FD>());
    EXPECT_FALSE(frame.GetFlag<Uni::Flag_FD>());
    frame.SetFD(true);
    EXPECT_TRUE(frame.IsFD());
    EXPECT_EQ(frame.flags, 1u);
    EXPECT_EQ(frame.hasFlags, 1u);

    // A value bit without its validity is not a value.
    frame.InvalidateAllFlags();
    EXPECT_TRUE(frame.GetFlag<Uni::Flag_FD>());
    EXPECT_FALSE(frame.IsFD());

    frame.SetFlag<Uni::Flag_ChannelId>(true);
    EXPECT_EQ(frame.flags & 0x200u, 0x200u);
    EXPECT_EQ(frame.hasFlags, 0x200u);
}

TEST(CanUniFrame, IdentifiersAreMaskedWithTheKindInAFlag)
{
    Uni frame;
    frame.SetStandardId(0xFFFF);
    EXPECT_EQ(frame.id, 0x7FFu);
    EXPECT_EQ(frame.GetId(), 0x7FFu);
    EXPECT_TRUE(frame.HasStandardId());

    frame.SetExtendedId(0xFFFFFFFF);
    EXPECT_EQ(frame.id, 0x1FFFFFFFu);
    EXPECT_TRUE(frame.HasExtendedId());
    EXPECT_FALSE(frame.HasStandardId());

    frame.SetStandardId(0x123);
    EXPECT_TRUE(frame.HasFlag<Uni::Flag_ExtendedId>());
    EXPECT_FALSE(frame.GetFlag<Uni::Flag_ExtendedId>());

    // GetId masks by the kind: a stale wide id reads as standard.
    frame.id = 0x1ABCDEF;
    EXPECT_EQ(frame.GetId(), 0x5EFu);
}

TEST(CanUniFrame, MiscBytesAreIndependent)
{
    Uni frame;
    frame.SetStructVarsion(3);
    frame.SetChannelId(9);
    frame.SetFrameType(Uni::Type_Overload);
    frame.SetDataLength(300);
    EXPECT_EQ(frame.misc, 0x03092C03u);
    EXPECT_EQ(frame.GetDataLength(), 44u);
    EXPECT_EQ(frame.GetStructVersion(), 3);
    EXPECT_EQ(frame.GetChannelId(), 9);
    EXPECT_TRUE(frame.HasChannelId());
    EXPECT_EQ(frame.GetFrameType(), Uni::Type_Overload);

    VELDUInt16 word = 0x1234;
    Uni::setByte<1>(word, 0xAB);
    EXPECT_EQ(word, 0xAB34);
    EXPECT_EQ(Uni::getByte<0>(word), 0x34);
    VELDUInt64 wide = 0;
    Uni::setBit<63>(wide);
    EXPECT_TRUE(Uni::getBit<63>(wide));
    Uni::clearBit<63>(wide);
    EXPECT_EQ(wide, 0u);
}

TEST(CanUniFrame, CrcResetAndCopy)
{
    Uni frame;
    EXPECT_FALSE(frame.HasCRC());
    frame.SetCRC(0xDEAD);
    EXPECT_TRUE(frame.HasCRC());
    EXPECT_EQ(frame.GetCRC(), 0xDEADu);
    frame.data[63] = 1;
    frame.SetTimestamp(99);

    Uni copy(frame);
    EXPECT_EQ(std::memcmp(&copy, &frame, sizeof frame), 0);
    frame.Reset();
    Uni empty;
    EXPECT_EQ(std::memcmp(&frame, &empty, sizeof frame), 0);
    frame = copy;
    EXPECT_EQ(frame.GetCRC(), 0xDEADu);
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
