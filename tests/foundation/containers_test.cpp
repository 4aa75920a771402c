#include <gtest/gtest.h>

#include <new>
#include <tuple>
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
    EXPECT_EQ(std::make_tuple(b.Size(), b.Allocated(), b[5]), std::make_tuple(6, 8, 42));
    b(6) = 7;  // within the block: no reallocation
    EXPECT_EQ(std::make_tuple(b.Size(), b.Allocated()), std::make_tuple(7, 8));
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
    ASSERT_EQ(std::make_tuple(ring.Allocated(), ring.Size()), std::make_tuple(4, 4));
    for (int i = 0; i < 4; ++i) EXPECT_EQ(ring[i], i + 2);
    ring.Append() = 6;  // growth copies in logical order from slot 0
    EXPECT_EQ(std::make_tuple(ring.Allocated(), ring.First()), std::make_tuple(8, 0));
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
        EXPECT_EQ(std::make_tuple(view.IsOwner(), view.Size(), view[0], view[3]), std::make_tuple(true, 4, 10, 99));
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
    EXPECT_EQ(std::make_tuple(a.IndexOf(VELDString("z")), a.IndexOf(VELDString("w"))), std::make_tuple(2, -1));
}

TEST(List, AppendPrependUnlinkMoveAndCopy)
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
    EXPECT_EQ(std::make_tuple(list.First(), list.Last()), std::make_tuple(nullptr, nullptr));

    VELDList<VELDString> a;  // a copy is deep
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
    EXPECT_EQ(std::make_tuple(m.rows, m.columns), std::make_tuple(3, 4));
    ASSERT_TRUE(m.re && m.im);
    m.re[11] = 1.0;
    m.im[11] = 2.0;
    m.Free();
    EXPECT_EQ(m.re, nullptr);
    EXPECT_THROW(VELDMatrix(-1, 2), std::bad_array_new_length);
    EXPECT_THROW(VELDMatrix(0x7FFFFFFF, 0x7FFFFFFF), std::bad_alloc);
    EXPECT_EQ(sizeof(VELDMatrix), 40u);
}
