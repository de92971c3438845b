// FixedStringMap: buckets, insertion and replacement, key references, lookup, removal, iteration
// order, assignment and its report, and a randomized comparison with std::unordered_map.
#include "CoreLib/FixedStringMap.h"

#include "CoreLib/GlobalStringTable.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/CountingElement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;
using IntMap = FixedStringMap<int>;

class FixedStringMapTest : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        GlobalStringTable::RequestTable();
        m_StringsAtStart = GlobalStringTable::s_NbStrings;
        CountingElement::ResetCounts();
    }
    void TearDown() override {
        EXPECT_EQ(GlobalStringTable::s_NbStrings, m_StringsAtStart) << "a map kept a key reference";
        GlobalStringTable::ReleaseTable();
        CoreLibFixture::TearDown();
    }
    unsigned int m_StringsAtStart = 0;
};

// The entries in iteration order, as text and value.
std::vector<std::pair<std::string, int>> Entries(const IntMap& map) {
    std::vector<std::pair<std::string, int>> entries;
    IntMap::Position position = map.GetStartPosition();
    while (position != nullptr) {
        FixedString key;
        int value = 0;
        map.GetNextAssoc(position, key, value);
        entries.emplace_back(key.ToChar(), value);
    }
    return entries;
}

TEST_F(FixedStringMapTest, HasThirtySevenBucketsUnlessToldOtherwise) {
    IntMap map;
    EXPECT_EQ(map.GetBucketCount(), 37u);
    EXPECT_EQ(map.GetCount(), 0u);
    EXPECT_EQ(map.GetStartPosition(), nullptr);
    IntMap serializerTable(IntMap::kSerializerBucketCount);
    EXPECT_EQ(serializerTable.GetBucketCount(), 9907u);
    IntMap none(0);
    EXPECT_EQ(none.GetBucketCount(), 1u);
    EXPECT_TRUE(map.Validate());
}

TEST_F(FixedStringMapTest, SetAtAddsAndThenReplaces) {
    IntMap map;
    FixedString alpha("alpha");
    FixedString beta("beta");
    map.SetAt(alpha, 1);
    map.SetAt(beta, 2);
    map.SetAt(FixedString("alpha"), 3);
    EXPECT_EQ(map.GetCount(), 2u);
    ASSERT_NE(map.Find(alpha), nullptr);
    EXPECT_EQ(*map.Find(alpha), 3);
    int value = 0;
    EXPECT_TRUE(map.Lookup(beta, value));
    EXPECT_EQ(value, 2);
    EXPECT_TRUE(map.Contains(beta));
    EXPECT_TRUE(map.Validate());
}

TEST_F(FixedStringMapTest, LookupOfAMissingKeyLeavesTheValueAlone) {
    IntMap map;
    map.SetAt(FixedString("present"), 1);
    int value = 99;
    EXPECT_FALSE(map.Lookup(FixedString("absent"), value));
    EXPECT_EQ(value, 99);
    EXPECT_EQ(map.Find(FixedString("absent")), nullptr);
    EXPECT_EQ(map.Find(FixedString()), nullptr);
}

TEST_F(FixedStringMapTest, TheMapHoldsOneReferenceOnEachKey) {
    FixedString key("referenced key");
    unsigned int before = key.GetRefCount();
    {
        IntMap map;
        map.SetAt(key, 1);
        EXPECT_EQ(key.GetRefCount(), before + 1);
        map.SetAt(key, 2);  // a replacement takes no further reference
        EXPECT_EQ(key.GetRefCount(), before + 1);
        EXPECT_TRUE(map.RemoveKey(key));
        EXPECT_EQ(key.GetRefCount(), before);
        EXPECT_FALSE(map.RemoveKey(key));
        map.SetAt(key, 3);
    }
    EXPECT_EQ(key.GetRefCount(), before);
}

TEST_F(FixedStringMapTest, TheKeyOutlivesTheCallersString) {
    IntMap map;
    {
        FixedString temporary("only in the map");
        map.SetAt(temporary, 5);
    }
    EXPECT_EQ(GlobalStringTable::s_NbStrings, m_StringsAtStart + 1);
    EXPECT_THAT(Entries(map), ElementsAre(std::make_pair(std::string("only in the map"), 5)));
}

TEST_F(FixedStringMapTest, TheNewestEntryHeadsItsChain) {
    IntMap map(1);  // one chain: iteration shows the chain order
    for (const char* text : {"one", "two", "three"}) {
        map.SetAt(FixedString(text), static_cast<int>(std::string(text).size()));
    }
    EXPECT_THAT(Entries(map),
                ElementsAre(std::make_pair(std::string("three"), 5), std::make_pair(std::string("two"), 3),
                            std::make_pair(std::string("one"), 3)));
    EXPECT_TRUE(map.RemoveKey(FixedString("two")));
    EXPECT_THAT(Entries(map),
                ElementsAre(std::make_pair(std::string("three"), 5), std::make_pair(std::string("one"), 3)));
    EXPECT_TRUE(map.Validate());
}

TEST_F(FixedStringMapTest, IterationRunsInBucketOrder) {
    IntMap map;
    std::vector<FixedString> keys;
    for (int index = 0; index < 100; ++index) {
        keys.emplace_back(("key" + std::to_string(index)).c_str());
        map.SetAt(keys.back(), index);
    }
    unsigned int lastBucket = 0;
    unsigned int visited = 0;
    map.ForEach([&](const FixedString& key, int& value) {
        unsigned int bucket = FixedStringRefMapHashFunctor::KeyToHashIndex(key, 37);
        EXPECT_GE(bucket, lastBucket);
        lastBucket = bucket;
        EXPECT_EQ(key, keys[static_cast<size_t>(value)]);
        value += 1000;
        ++visited;
    });
    EXPECT_EQ(visited, 100u);
    EXPECT_EQ(*map.Find(keys[7]), 1007);
    EXPECT_TRUE(map.Validate());
}

TEST_F(FixedStringMapTest, AssignmentAddsTheSourcesEntriesAndReportsKeysHeldAlready) {
    IntMap source;
    source.SetAt(FixedString("shared"), 1);
    source.SetAt(FixedString("new"), 2);
    IntMap destination;
    destination.SetAt(FixedString("shared"), 10);
    destination.SetAt(FixedString("own"), 30);
    ScopedCapture capture;
    destination = source;
    EXPECT_THAT(capture.Messages(), ElementsAre("Map already contains key shared! Memleak will occur!"));
    EXPECT_EQ(capture.Reports()[0].channel, LogAssertProgrammer);
    EXPECT_THAT(Entries(destination), UnorderedElementsAre(std::make_pair(std::string("shared"), 1),
                                                           std::make_pair(std::string("new"), 2),
                                                           std::make_pair(std::string("own"), 30)));
    destination = destination;  // nothing to add to itself
    EXPECT_EQ(capture.Messages().size(), 1u);
    EXPECT_EQ(destination.GetCount(), 3u);
    EXPECT_TRUE(destination.Validate());
}

TEST_F(FixedStringMapTest, ACopyHoldsItsOwnEntries) {
    IntMap source(5);
    source.SetAt(FixedString("a"), 1);
    source.SetAt(FixedString("b"), 2);
    ScopedCapture capture;
    IntMap copy(source);
    EXPECT_TRUE(capture.Messages().empty());
    EXPECT_EQ(copy.GetBucketCount(), 5u);
    source.RemoveAll();
    EXPECT_EQ(source.GetCount(), 0u);
    EXPECT_THAT(Entries(copy), UnorderedElementsAre(std::make_pair(std::string("a"), 1),
                                                    std::make_pair(std::string("b"), 2)));
}

TEST_F(FixedStringMapTest, ValuesWithConstructorsLiveExactlyAsLongAsTheirEntries) {
    {
        FixedStringMap<CountingElement> map;
        map.SetAt(FixedString("x"), CountingElement(1));
        map.SetAt(FixedString("y"), CountingElement(2));
        EXPECT_EQ(CountingElement::GetCounts().Live(), 2);
        map.SetAt(FixedString("x"), CountingElement(3));
        EXPECT_EQ(CountingElement::GetCounts().Live(), 2);
        EXPECT_EQ(map.Find(FixedString("x"))->Value(), 3);
        map.RemoveKey(FixedString("y"));
        EXPECT_EQ(CountingElement::GetCounts().Live(), 1);
    }
    EXPECT_EQ(CountingElement::GetCounts().Live(), 0);
}

TEST_F(FixedStringMapTest, RandomOperationsMatchAnUnorderedMapModel) {
    std::mt19937 random(4242);
    IntMap map(11);
    std::unordered_map<std::string, int> model;
    std::vector<FixedString> keys;
    for (int index = 0; index < 60; ++index) {
        std::string key = "k";
        key += std::to_string(index * 7919);
        keys.emplace_back(key.c_str());
    }
    for (int step = 0; step < 5000; ++step) {
        const FixedString& key = keys[random() % keys.size()];
        std::string text = key.ToChar();
        switch (random() % 4) {
            case 0:
            case 1: {
                int value = static_cast<int>(random() % 1000);
                map.SetAt(key, value);
                model[text] = value;
                break;
            }
            case 2:
                EXPECT_EQ(map.RemoveKey(key), model.erase(text) == 1);
                break;
            case 3: {
                int value = -1;
                auto found = model.find(text);
                EXPECT_EQ(map.Lookup(key, value), found != model.end());
                if (found != model.end()) {
                    EXPECT_EQ(value, found->second);
                }
                break;
            }
        }
        ASSERT_TRUE(map.Validate()) << "step " << step;
        ASSERT_EQ(map.GetCount(), model.size());
    }
    std::unordered_map<std::string, int> seen;
    for (const auto& [text, value] : Entries(map)) {
        seen[text] = value;
    }
    EXPECT_EQ(seen, model);
}

}  // namespace
}  // namespace zn::test
