#include <gtest/gtest.h>

#include <new>
#include <vector>

#include "veld_data_structures.h"

namespace {

std::vector<int> Values(const VELDList<int>& list)
{
    std::vector<int> out;
    for (VELDListIterator it(list); it != nullptr; ++it) out.push_back(list[it]);
    return out;
}

std::vector<int> ValuesBackwards(const VELDList<int>& list)
{
    std::vector<int> out;
    for (VELDListIterator it(list.Last()); it != nullptr; --it) out.push_back(list[it]);
    return out;
}

}  // namespace

TEST(Array, AppendAndIndexingPastTheEndGrowToAPowerOfTwo)
{
    VELDArray<int> a;
    EXPECT_EQ(a.Allocated(), 0);
    std::vector<int> capacities;
    for (int i = 0; i < 5; ++i) {
        a.Append() = i;
        capacities.push_back(a.Allocated());
    }
    EXPECT_EQ(capacities, (std::vector<int>{1, 2, 4, 4, 8}));
    for (int i = 0; i < 5; ++i) EXPECT_EQ(a[i], i);

    VELDArray<int> b;
    b(5) = 42;
    EXPECT_EQ(b.Size(), 6);
    EXPECT_EQ(b.Allocated(), 8);
    EXPECT_EQ(b[5], 42);
    b(6) = 7;  // within the block: no reallocation
    EXPECT_EQ(b.Size(), 7);
    EXPECT_EQ(b.Allocated(), 8);
    const std::pair<int, int> sizes[] = {{0, 0}, {1, 1}, {5, 8}, {8, 8}};
    for (const auto& [size, slots] : sizes) EXPECT_EQ(VELDArray<int>::compute_array_size(size), slots) << size;
}

TEST(Array, UsedAsARingTheIndexWrapsAndGrowthRestoresOrder)
{
    VELDArray<int> ring;
    for (int i = 0; i < 4; ++i) ring.Append() = i;  // 4 slots, full
    ring.RemoveFirst();
    ring.RemoveFirst();
    EXPECT_EQ(ring.First(), 2);
    ring.Append() = 4;  // slots 0 and 1 come back into use
    ring.Append() = 5;
    EXPECT_EQ(ring.Allocated(), 4);
    ASSERT_EQ(ring.Size(), 4);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(ring[i], i + 2);

    ring.Append() = 6;  // growth copies in logical order from slot 0
    EXPECT_EQ(ring.Allocated(), 8);
    EXPECT_EQ(ring.First(), 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ring[i], i + 2);
}

TEST(Array, ABorrowedBlockIsNeverFreedAndIsCopiedOnGrowth)
{
    int block[4] = {10, 20, 30, 40};
    {
        VELDArray<int> view(block, 3);
        EXPECT_FALSE(view.IsOwner());
        EXPECT_EQ(view(2), 30);
        view(3) = 99;  // past size: an owned copy takes over
        EXPECT_TRUE(view.IsOwner());
        EXPECT_EQ(view.Size(), 4);
        EXPECT_EQ(view[0], 10);
        EXPECT_EQ(view[3], 99);
    }
    EXPECT_EQ(block[3], 40);
}

TEST(Array, CopiesAreDeepAndRemovalKeepsOrder)
{
    VELDArray<VELDString> a;
    a.Append() = "x";
    a.Append() = "y";
    a.Append() = "z";
    VELDArray<VELDString> b(a);
    b[0] = "changed";
    EXPECT_STREQ(a[0], "x");
    b.Remove(1);
    ASSERT_EQ(b.Size(), 2);
    EXPECT_STREQ(b[1], "z");
    EXPECT_EQ(a.IndexOf(VELDString("z")), 2);
    EXPECT_EQ(a.IndexOf(VELDString("w")), -1);
}

TEST(List, AppendPrependUnlinkAndMove)
{
    VELDList<int> list;
    EXPECT_TRUE(list.Empty());
    VELDListItem<int>* two = list.Append(2);
    list.Append(3);
    list.Prepend(1);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ValuesBackwards(list), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(list.Length(), 3);

    list.MoveToFirst(two);
    EXPECT_EQ(Values(list), (std::vector<int>{2, 1, 3}));
    list.MoveToLast(two);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 3, 2}));
    EXPECT_TRUE(list.IsLast(two));

    list.Remove(two);
    EXPECT_EQ(Values(list), (std::vector<int>{1, 3}));
    EXPECT_TRUE(list.RemoveValue(1));
    EXPECT_FALSE(list.RemoveValue(1));
    EXPECT_EQ(Values(list), (std::vector<int>{3}));
    EXPECT_TRUE(list.IsFirst(list.First()));
    list.Remove(list.First());
    EXPECT_TRUE(list.Empty());
    EXPECT_EQ(list.First(), nullptr);
    EXPECT_EQ(list.Last(), nullptr);
}

TEST(List, CopyIsDeep)
{
    VELDList<VELDString> a;
    a.Append("one");
    a.Append("two");
    VELDList<VELDString> b(a);
    b.FirstItem()->value = "uno";
    EXPECT_STREQ(a.FirstItem()->value, "one");
    EXPECT_EQ(b.Length(), 2);
}

TEST(Matrix, AllocatesTwoBlocksAndRefusesAnImpossibleSize)
{
    VELDMatrix m(3, 4);
    EXPECT_EQ(m.rows, 3);
    EXPECT_EQ(m.columns, 4);
    ASSERT_NE(m.re, nullptr);
    ASSERT_NE(m.im, nullptr);
    m.re[11] = 1.0;
    m.im[11] = 2.0;
    m.Free();
    EXPECT_EQ(m.re, nullptr);
    EXPECT_THROW(VELDMatrix(-1, 2), std::bad_array_new_length);
    EXPECT_THROW(VELDMatrix(0x7FFFFFFF, 0x7FFFFFFF), std::bad_alloc);
    EXPECT_EQ(sizeof(VELDMatrix), 40u);
}
