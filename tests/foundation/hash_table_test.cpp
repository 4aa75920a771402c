#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "veld_data_structures.h"

namespace {

VELDUInt64 Hash(const char* text)
{
    return VELDStringHashFunction()(VELDString(text));
}

// (bucket, key) in walking order.
std::vector<std::pair<unsigned, std::string>> Walk(VELDStringHashTable<int>& table)
{
    std::vector<std::pair<unsigned, std::string>> out;
    VELDHashTableIterator it;
    while (table.nextX(it)) out.emplace_back(it.bucket, VELDStringHashTable<int>::PairOf(it)->key.Beginning());
    EXPECT_EQ(it.pair, nullptr);
    return out;
}

std::string Key(int i) { return "key" + std::to_string(i); }

}  // namespace

// Reference values of the 64-bit hash with the table's seed 0xDEAD, computed
// independently of this code. They cover the empty key, the byte tail, a
// 23-byte key (longest without the block loop), a 24-byte key (one block,
// empty tail) and a key with a block and a tail.
TEST(StringHash, MatchesReferenceValues)
{
    EXPECT_EQ(Hash(""), 0x49624d69a12af83aULL);
    EXPECT_EQ(Hash("a"), 0xf6038801031ca0bdULL);
    EXPECT_EQ(Hash("oCAN"), 0xf02adc45a6b0cedbULL);
    EXPECT_EQ(Hash("abcdefghijklmnopqrstuvw"), 0x4ca2121d9382e77cULL);
    EXPECT_EQ(Hash("abcdefghijklmnopqrstuvwx"), 0xdeaca13f449b2746ULL);
    EXPECT_EQ(Hash("NxCanMonitoring.sampling_period_long"), 0xbcf98f30206b74f5ULL);
}

TEST(HashTable, StartsWithSixteenBucketsAndFindsWhatItHolds)
{
    VELDStringHashTable<int> table;
    EXPECT_EQ(std::make_tuple(table.NbBuckets(), table.Count(), table.AutoResize()), std::make_tuple(16, 0, true));
    table[VELDString("a")] = 1;
    table.Set(VELDString("b"), 2);
    table[VELDString("")] = 3;
    EXPECT_EQ(table.Count(), 3);
    ASSERT_NE(table.Find(VELDString("a")), nullptr);
    EXPECT_EQ(*table.Find(VELDString("a")), 1);
    EXPECT_EQ(*table.Find(VELDString("")), 3);
    EXPECT_EQ(table.Find(VELDString("c")), nullptr);
    table[VELDString("a")] = 10;  // an existing key is not added again
    EXPECT_EQ(table.Count(), 3);
    EXPECT_EQ(*table.Find(VELDString("a")), 10);
    EXPECT_TRUE(table.Remove(VELDString("a")));
    EXPECT_FALSE(table.Remove(VELDString("a")) || table.Contains(VELDString("a")));
    EXPECT_EQ(table.Count(), 2);
}

TEST(HashTable, GrowsAtTheSeventeenthAndTheThirtyThirdEntry)
{
    VELDStringHashTable<int> table;
    for (int i = 0; i <= 32; ++i) {
        table[VELDString(Key(i).c_str())] = i;
        EXPECT_EQ(table.NbBuckets(), i < 16 ? 16 : i < 32 ? 32 : 64) << "after entry " << i + 1;
    }
    for (int i = 0; i <= 32; ++i) {
        int* v = table.Find(VELDString(Key(i).c_str()));
        ASSERT_NE(v, nullptr) << i;
        EXPECT_EQ(*v, i);
    }
}

// The walk visits the buckets in index order, and a resize keeps the old
// walking order within each new bucket.
TEST(HashTable, WalkAndResizeKeepTheirOrder)
{
    VELDStringHashTable<int> table;
    table.SetAutoResize(false);
    for (int i = 0; i < 200; ++i) table[VELDString(Key(i).c_str())] = i;
    EXPECT_EQ(table.NbBuckets(), 16);
    std::vector<std::pair<unsigned, std::string>> before = Walk(table);
    ASSERT_EQ(before.size(), 200u);
    for (size_t i = 1; i < before.size(); ++i) EXPECT_LE(before[i - 1].first, before[i].first);

    table.Resize(64);
    EXPECT_EQ(table.Bits(), 6);
    std::vector<std::pair<unsigned, std::string>> after = Walk(table);
    ASSERT_EQ(after.size(), 200u);

    // Each new bucket lists its keys in the order in which the old walk met
    // them, and each key sits where its stored hash says.
    std::map<unsigned, std::vector<std::string>> expected;
    for (const auto& entry : before)
        expected[static_cast<unsigned>(Hash(entry.second.c_str())) & 63u].push_back(entry.second);
    std::map<unsigned, std::vector<std::string>> actual;
    for (const auto& entry : after) actual[entry.first].push_back(entry.second);
    EXPECT_EQ(actual, expected);

    table.Resize(1);
    EXPECT_EQ(table.NbBuckets(), 1);
    EXPECT_EQ(Walk(table).size(), 200u);
    EXPECT_EQ(*table.Find(VELDString("key199")), 199);
    table.Clear();
    EXPECT_TRUE(Walk(table).empty());
    EXPECT_EQ(table.Count(), 0);
}
