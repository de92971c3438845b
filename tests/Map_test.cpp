// Map: buckets by key modulo the bucket count, chains with the newest entry first, lookup, removal,
// copies, nested maps, and a randomized comparison with std::unordered_map.
#include "CoreLib/Map.h"

#include "CoreLib/Set.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/CountingElement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using IntMap = Map<unsigned int, int>;

class MapTest : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        CountingElement::ResetCounts();
    }
};

std::vector<std::pair<unsigned int, int>> Entries(const IntMap& map) {
    std::vector<std::pair<unsigned int, int>> entries;
    IntMap::Position position = map.GetStartPosition();
    while (position != nullptr) {
        unsigned int key = 0;
        int value = 0;
        map.GetNextAssoc(position, key, value);
        entries.emplace_back(key, value);
    }
    return entries;
}

TEST_F(MapTest, AKeysBucketIsTheKeyModuloTheBucketCount) {
    IntMap map(37);
    EXPECT_EQ(map.GetBucketCount(), 37u);
    EXPECT_EQ(MapHashFunctor<unsigned int>::KeyToHashIndex(38, 37), 1u);
    map.SetAt(1, 10);
    map.SetAt(38, 20);  // the same bucket as 1, in front of it
    map.SetAt(36, 30);  // the last bucket
    map.SetAt(0, 40);   // the first bucket
    EXPECT_THAT(Entries(map), ElementsAre(std::make_pair(0u, 40), std::make_pair(38u, 20),
                                          std::make_pair(1u, 10), std::make_pair(36u, 30)));
    EXPECT_EQ(map.GetCount(), 4u);
    EXPECT_TRUE(map.Validate());
}

TEST_F(MapTest, NegativeAndEnumerationKeysHashAsUnsignedNumbersOfTheirWidth) {
    EXPECT_EQ(MapHashFunctor<int>::KeyToHashIndex(-1, 37), 0xFFFFFFFFu % 37);
    enum class Colour : unsigned char { Red = 5, Blue = 200 };
    EXPECT_EQ(MapHashFunctor<Colour>::KeyToHashIndex(Colour::Blue, 37), 200u % 37);
    Map<Colour, int> map;
    map.SetAt(Colour::Red, 1);
    map.SetAt(Colour::Blue, 2);
    EXPECT_EQ(*map.Find(Colour::Blue), 2);
    EXPECT_TRUE(map.Validate());
}

TEST_F(MapTest, SetAtReplacesAndLookupFindsRemoveKeyRemoves) {
    IntMap map(7);
    map.SetAt(3, 1);
    map.SetAt(10, 2);
    map.SetAt(3, 5);
    EXPECT_EQ(map.GetCount(), 2u);
    int value = -1;
    EXPECT_TRUE(map.Lookup(3, value));
    EXPECT_EQ(value, 5);
    EXPECT_FALSE(map.Lookup(4, value));
    EXPECT_EQ(value, 5);
    EXPECT_TRUE(map.RemoveKey(3));
    EXPECT_FALSE(map.RemoveKey(3));
    EXPECT_FALSE(map.Contains(3));
    EXPECT_TRUE(map.Contains(10));
    map.RemoveAll();
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_TRUE(map.Validate());
}

TEST_F(MapTest, CopiesHoldTheirOwnEntriesAndAssignmentReplaces) {
    IntMap map(5);
    map.SetAt(1, 1);
    map.SetAt(6, 2);
    IntMap copy(map);
    map.SetAt(1, 9);
    EXPECT_EQ(*copy.Find(1), 1);
    EXPECT_EQ(copy.GetBucketCount(), 5u);
    IntMap assigned(3);
    assigned.SetAt(100, 100);
    assigned = map;
    EXPECT_FALSE(assigned.Contains(100));
    EXPECT_EQ(*assigned.Find(1), 9);
    EXPECT_EQ(assigned.GetCount(), 2u);
    EXPECT_EQ(assigned.GetBucketCount(), 3u);
    EXPECT_TRUE(assigned.Validate());
}

TEST_F(MapTest, NestedMapsOfSetsOwnTheirInnerContainers) {
    Map<unsigned int, Map<unsigned int, PrimitiveSet<int*>>> outer(3);
    int target = 0;
    Map<unsigned int, PrimitiveSet<int*>> inner(5);
    PrimitiveSet<int*> set;
    set.Add(&target);
    inner.SetAt(8, set);
    outer.SetAt(2, inner);
    outer.Find(2)->Find(8)->Add(nullptr);
    EXPECT_EQ(outer.Find(2)->Find(8)->GetSize(), 2u);
    EXPECT_EQ(inner.Find(8)->GetSize(), 1u);
    EXPECT_EQ((*outer.Find(2)->Find(8))[0], &target);
}

TEST_F(MapTest, ValuesWithConstructorsLiveExactlyAsLongAsTheirEntries) {
    {
        Map<unsigned int, CountingElement> map;
        for (unsigned int key = 0; key < 50; ++key) {
            map.SetAt(key, CountingElement(static_cast<int>(key)));
        }
        EXPECT_EQ(CountingElement::GetCounts().Live(), 50);
        map.RemoveKey(7);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 49);
    }
    EXPECT_EQ(CountingElement::GetCounts().Live(), 0);
}

TEST_F(MapTest, RandomOperationsMatchAnUnorderedMapModel) {
    std::mt19937 random(1357);
    IntMap map(13);
    std::unordered_map<unsigned int, int> model;
    for (int step = 0; step < 5000; ++step) {
        unsigned int key = static_cast<unsigned int>(random() % 200);
        switch (random() % 3) {
            case 0: {
                int value = static_cast<int>(random());
                map.SetAt(key, value);
                model[key] = value;
                break;
            }
            case 1:
                EXPECT_EQ(map.RemoveKey(key), model.erase(key) == 1);
                break;
            case 2: {
                const int* found = map.Find(key);
                auto expected = model.find(key);
                ASSERT_EQ(found != nullptr, expected != model.end());
                if (found != nullptr) {
                    EXPECT_EQ(*found, expected->second);
                }
                break;
            }
        }
        if (step % 50 == 0) {
            ASSERT_TRUE(map.Validate()) << "step " << step;
            ASSERT_EQ(map.GetCount(), model.size());
        }
    }
    std::unordered_map<unsigned int, int> seen;
    map.ForEach([&](unsigned int key, int value) { seen[key] = value; });
    EXPECT_EQ(seen, model);
}

}  // namespace
}  // namespace zn::test
