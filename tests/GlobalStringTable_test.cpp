// The global string table: interning, buckets and chunks, reference counts, the enabled state, its
// reports, the start-up vocabulary, and many threads at once.
#include "CoreLib/GlobalStringTable.h"

#include "CoreLib/CoreLibSDM.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/Path.h"
#include "CoreLib/WellKnownStrings.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/StringTableFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using Table = GlobalStringTable;

constexpr unsigned int kBuckets = 513;

// The bucket of a text, written out from its definition: h = h * 33 + c with each byte taken as a
// signed char, modulo 513.
unsigned int ReferenceBucket(const std::string& text) {
    uint32_t hash = 0;
    for (char c : text) {
        hash = hash * 33u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c)));
    }
    return hash % kBuckets;
}

// Finds count texts that fall into one bucket the table has not used yet; false when there is no
// table to ask.
bool FindTextsInOneBucket(const std::string& prefix, size_t count, std::vector<std::string>& texts,
                          unsigned int& bucket) {
    std::map<unsigned int, std::vector<std::string>> byBucket;
    for (int number = 0; number < 1000000; ++number) {
        std::string text = prefix + std::to_string(number);
        unsigned int candidate = ReferenceBucket(text);
        if (Table::GetBucketChunkCount(candidate) != 1 || Table::GetBucketChainLength(candidate) != 0) {
            continue;
        }
        std::vector<std::string>& mates = byBucket[candidate];
        mates.push_back(text);
        if (mates.size() == count) {
            texts = mates;
            bucket = candidate;
            return true;
        }
    }
    return false;
}

std::vector<char*> ChainElements(unsigned int bucket) {
    std::vector<char*> elements;
    for (unsigned int index = 0; index < Table::GetBucketChainLength(bucket); ++index) {
        elements.push_back(Table::GetBucketSlot(bucket, index));
    }
    return elements;
}

// Puts the table back as a process finds it at load: enabled, no bracket open. Only a release past
// zero can enable the table with a count of 0; its report is expected and swallowed.
void RestoreLoadState() {
    if (Table::IsTableEnabled() && Table::GetTableUseCount() == 0) {
        return;
    }
    ScopedCapture swallow;
    Table::ResetTable();
    Table::ReleaseTable();
    Table::RequestTable();
}

class StringTableTest : public StringTableFixture {
protected:
    void TearDown() override {
        ExpectTableAsAtStart();
        RestoreLoadState();
        CoreLibFixture::TearDown();
    }
};

// ---- interning ----------------------------------------------------------------------------------

TEST_F(StringTableTest, EqualTextsShareOneEntryAndCountTheirReferences) {
    char* first = Table::Add("texture/rock.dds", -1);
    ASSERT_NE(first, nullptr);
    EXPECT_STREQ(first, "texture/rock.dds");
    EXPECT_EQ(Table::GetRefCount(first), 2u) << "the table's hold and the caller's";
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
    std::string copy = "texture/rock.dds";
    char* second = Table::Add(copy.c_str(), -1);
    EXPECT_EQ(second, first);
    EXPECT_EQ(Table::GetRefCount(first), 3u);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
    EXPECT_EQ(Table::Get(first), first);
    EXPECT_EQ(Table::GetLength(first), 16u);
    Table::DecRefCount(second);
    EXPECT_EQ(Table::GetRefCount(first), 2u);
    Table::DecRefCount(first);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
}

TEST_F(StringTableTest, ExplicitLengthTakesAPrefixAndNeedsNoTerminator) {
    char* prefix = Table::Add("abc", 2);
    char* terminated = Table::Add("ab", -1);
    EXPECT_EQ(prefix, terminated);
    EXPECT_EQ(Table::GetLength(prefix), 2u);
    EXPECT_STREQ(prefix, "ab");
    const char unterminated[4] = {'w', 'x', 'y', 'z'};
    char* fromArray = Table::Add(unterminated, 4);
    EXPECT_STREQ(fromArray, "wxyz");
    char* empty = Table::Add("", -1);
    EXPECT_EQ(Table::Add("abc", 0), empty);
    EXPECT_EQ(Table::GetLength(empty), 0u);
    for (char* handle : {prefix, terminated, fromArray, empty, empty}) {
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, AddingTheCharactersOfAHandleFindsItsOwnEntry) {
    char* handle = Table::Add("own characters", -1);
    EXPECT_EQ(Table::Add(handle, -1), handle);
    EXPECT_EQ(Table::GetRefCount(handle), 3u);
    char* prefix = Table::Add(handle, 3);
    EXPECT_NE(prefix, handle) << "a prefix is another text";
    EXPECT_STREQ(prefix, "own");
    for (char* each : {prefix, handle, handle}) {
        Table::DecRefCount(each);
    }
}

TEST_F(StringTableTest, NullTextReturnsNullAndLeavesTheTableAlone) {
    unsigned int total = Table::s_TotalMemorySize;
    EXPECT_EQ(Table::Add(nullptr, -1), nullptr);
    EXPECT_EQ(Table::Add(nullptr, 5), nullptr);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    EXPECT_EQ(Table::s_TotalMemorySize, total);
    char* none = nullptr;
    Table::IncRefCount(none);
    Table::DecRefCount(none);
    EXPECT_EQ(Table::GetLength(none), 0u);
    EXPECT_EQ(Table::GetRefCount(none), 0u);
    EXPECT_EQ(Table::Get(none), nullptr);
}

TEST_F(StringTableTest, EntryHeaderHoldsCountLengthAndBucketInFrontOfTheCharacters) {
    char* handle = Table::Add("header", -1);
    unsigned char header[8];
    std::memcpy(header, handle - 8, sizeof(header));
    unsigned int bucket = ReferenceBucket("header");
    EXPECT_THAT(header, ElementsAre(2, 0, 0, 0, 6, 0, bucket & 0xFF, bucket >> 8));
    EXPECT_EQ(handle[6], '\0');
    EXPECT_EQ(Table::GetBucket(handle), bucket);
    Table::IncRefCount(handle);
    std::memcpy(header, handle - 8, sizeof(header));
    EXPECT_EQ(header[0], 3);
    Table::DecRefCount(handle);
    Table::DecRefCount(handle);
}

TEST_F(StringTableTest, LastReferenceFreesTheEntryAndClearsItsSlot) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("last_reference_", 1, texts, bucket));
    char* handle = Table::Add(texts[0].c_str(), -1);
    char* copy = handle;
    Table::IncRefCount(copy);
    EXPECT_EQ(Table::GetRefCount(handle), 3u);
    EXPECT_THAT(ChainElements(bucket), ElementsAre(handle));
    Table::DecRefCount(copy);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
    Table::DecRefCount(handle);
    EXPECT_EQ(handle, copy) << "the caller's variable is not cleared";
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 0u);
    EXPECT_EQ(Table::GetBucketSlot(bucket, 0), nullptr);
}

TEST_F(StringTableTest, HashTakesEachByteAsASignedChar) {
    // Expected buckets worked out by hand: "\x80" is -128, so h = 2^32 - 128, and 4294967168 mod 513
    // is 353 (an unsigned byte would give 128). "\xC3\xA9" is -61 * 33 - 87 = -2100: 433 (not 448).
    const std::array<std::pair<std::string, unsigned int>, 5> cases = {{
        {"\x80", 353},
        {"\xC3\xA9", 433},
        {"caf\xC3\xA9", 249},
        {"\xFF\xFE", 446},
        {"abc", 210},
    }};
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(ReferenceBucket(text), expected) << text;
        char* handle = Table::Add(text.c_str(), -1);
        EXPECT_EQ(Table::GetBucket(handle), expected) << text;
        EXPECT_EQ(Table::GetBucketSlot(expected, 0), handle) << text;
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, BucketsAgreeWithTheReferenceHashOverManyTexts) {
    std::mt19937 random(1234);
    std::vector<char*> handles;
    for (int index = 0; index < 2000; ++index) {
        std::string text(1 + random() % 40, ' ');
        for (char& c : text) {
            c = static_cast<char>(1 + random() % 255);
        }
        char* handle = Table::Add(text.c_str(), static_cast<int>(text.size()));
        ASSERT_EQ(Table::GetBucket(handle), ReferenceBucket(text)) << index;
        handles.push_back(handle);
    }
    EXPECT_TRUE(Table::Validate());
    for (char*& handle : handles) {
        Table::DecRefCount(handle);
    }
}

// ---- chunks -----------------------------------------------------------------------------------

TEST_F(StringTableTest, ElevenStringsInOneBucketMakeOneOverflowChunk) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("eleven_", 11, texts, bucket));
    std::vector<char*> handles;
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
        EXPECT_EQ(Table::GetBucketChunkCount(bucket), handles.size() <= 10 ? 1u : 2u);
    }
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 11u);
    EXPECT_EQ(ChainElements(bucket), handles) << "slots fill in chain order";
    EXPECT_TRUE(Table::Validate());

    // Removing from the last slot down shrinks each chunk's count one step at a time.
    for (size_t index = handles.size(); index-- > 0;) {
        Table::DecRefCount(handles[index]);
    }
    EXPECT_EQ(Table::GetBucketChunkCount(bucket), 2u) << "the empty overflow chunk stays linked";
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 0u);
    EXPECT_TRUE(Table::Validate());

    // The next eleven additions reuse both chunks; no third one appears.
    handles.clear();
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
    }
    EXPECT_EQ(Table::GetBucketChunkCount(bucket), 2u);
    EXPECT_EQ(Table::GetBucketSlot(bucket, 10), handles[10]);
    EXPECT_TRUE(Table::Validate());
    for (char*& handle : handles) {
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, RemovingFromTheFrontLeavesHolesCounted) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("front_", 11, texts, bucket));
    std::vector<char*> handles;
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
    }
    for (char*& handle : handles) {
        Table::DecRefCount(handle);
    }
    // Only the removal of slot 9 was at the end of the first chunk: its count went from 10 to 9,
    // over nine holes. The overflow chunk's only slot took its count to 0.
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 9u);
    EXPECT_EQ(Table::GetBucketChunkCount(bucket), 2u);
    for (unsigned int index = 0; index < 9; ++index) {
        EXPECT_EQ(Table::GetBucketSlot(bucket, index), nullptr);
    }
    char* again = Table::Add(texts[5].c_str(), -1);
    EXPECT_EQ(Table::GetBucketSlot(bucket, 0), again) << "the first hole is filled first";
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 9u);
    Table::DecRefCount(again);
}

TEST_F(StringTableTest, HoleInTheMiddleKeepsTheCountAndTakesTheNextInsert) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("hole_", 7, texts, bucket));
    std::vector<char*> handles;
    for (size_t index = 0; index < 5; ++index) {
        handles.push_back(Table::Add(texts[index].c_str(), -1));
    }
    Table::DecRefCount(handles[2]);
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 5u);
    EXPECT_THAT(ChainElements(bucket), ElementsAre(handles[0], handles[1], nullptr, handles[3], handles[4]));
    char* filler = Table::Add(texts[5].c_str(), -1);
    EXPECT_THAT(ChainElements(bucket), ElementsAre(handles[0], handles[1], filler, handles[3], handles[4]));
    char* appended = Table::Add(texts[6].c_str(), -1);
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 6u);
    EXPECT_EQ(Table::GetBucketSlot(bucket, 5), appended);
    EXPECT_TRUE(Table::Validate());
    for (char* handle : {handles[0], handles[1], handles[3], handles[4], filler, appended}) {
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, RemovingTheLastSlotShrinksTheCountByOneOnly) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("shrink_", 4, texts, bucket));
    std::vector<char*> handles;
    for (size_t index = 0; index < 3; ++index) {
        handles.push_back(Table::Add(texts[index].c_str(), -1));
    }
    Table::DecRefCount(handles[1]);
    Table::DecRefCount(handles[2]);
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 2u) << "the hole below the last slot stays counted";
    EXPECT_THAT(ChainElements(bucket), ElementsAre(handles[0], nullptr));
    char* filler = Table::Add(texts[3].c_str(), -1);
    EXPECT_THAT(ChainElements(bucket), ElementsAre(handles[0], filler));
    Table::DecRefCount(filler);
    Table::DecRefCount(handles[0]);
}

TEST_F(StringTableTest, LongChainsFindEveryTextAndRefillTheirHolesInOrder) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("long_chain_", 95, texts, bucket));
    std::vector<char*> handles;
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
    }
    EXPECT_EQ(Table::GetBucketChunkCount(bucket), 10u);
    EXPECT_EQ(ChainElements(bucket), handles);
    for (size_t index = 0; index < texts.size(); ++index) {
        char* again = Table::Add(texts[index].c_str(), -1);
        EXPECT_EQ(again, handles[index]);
        Table::DecRefCount(again);
    }
    for (size_t index = 0; index < handles.size(); index += 3) {
        Table::DecRefCount(handles[index]);
    }
    // Every third slot is now a hole. Slot 9 of chunks 0, 3 and 6 was the last in use of its chunk,
    // so those three counts went down by one.
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 92u);
    EXPECT_TRUE(Table::Validate());
    for (size_t index = 0; index < handles.size(); index += 3) {
        handles[index] = Table::Add(texts[index].c_str(), -1);
    }
    EXPECT_EQ(ChainElements(bucket), handles) << "each text went back to the hole it had left";
    EXPECT_EQ(Table::GetBucketChainLength(bucket), 95u);
    EXPECT_TRUE(Table::Validate());
    for (char*& handle : handles) {
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, TextsEqualUpToAnEmbeddedNulAreOneEntryInOneBucket) {
    // Entries are compared with strncmp: at equal lengths, bytes behind a NUL do not count. The
    // hash does read them, so such texts meet only when they share a bucket.
    std::map<unsigned int, std::string> firstByBucket;
    std::string first;
    std::string second;
    for (int number = 0; second.empty(); ++number) {
        std::string text =
            std::string("nul\0", 4) + std::to_string(number % 100) + "_" + std::to_string(number / 100);
        text.resize(10, '.');
        auto [it, inserted] = firstByBucket.emplace(ReferenceBucket(text), text);
        if (!inserted) {
            first = it->second;
            second = text;
        }
    }
    char* handle = Table::Add(first.data(), 10);
    EXPECT_EQ(Table::Add(second.data(), 10), handle);
    EXPECT_EQ(Table::GetRefCount(handle), 3u);
    EXPECT_EQ(std::memcmp(handle, first.data(), 10), 0) << "the first text stays";
    std::string elsewhere = std::string("nul\0", 4) + "elsewhere";
    elsewhere.resize(10, '.');
    ASSERT_NE(ReferenceBucket(elsewhere), ReferenceBucket(first));
    char* other = Table::Add(elsewhere.data(), 10);
    EXPECT_NE(other, handle);
    EXPECT_TRUE(Table::Validate());
    for (char* each : {other, handle, handle}) {
        Table::DecRefCount(each);
    }
}

// ---- the chains against a model of chunks ---------------------------------------------------------

// The chain of one bucket as linked chunks of 10 slots, each with its count, changed exactly as an
// addition and a removal are described: an addition takes the first null slot in chain order and
// counts it if it is the chunk's next one, or a new chunk; a removal clears the slot and uncounts
// it only if it was the chunk's last counted one. Empty chunks stay.
class ChunkChainModel {
public:
    void Add(char* handle) {
        for (Chunk& chunk : m_Chunks) {
            for (unsigned int slot = 0; slot < 10; ++slot) {
                if (chunk.slots[slot] == nullptr) {
                    chunk.slots[slot] = handle;
                    chunk.count += slot == chunk.count ? 1 : 0;
                    return;
                }
            }
        }
        m_Chunks.push_back(Chunk{});
        m_Chunks.back().slots[0] = handle;
        m_Chunks.back().count = 1;
    }
    void Remove(char* handle) {
        for (Chunk& chunk : m_Chunks) {
            for (unsigned int slot = 0; slot < 10; ++slot) {
                if (chunk.slots[slot] == handle) {
                    chunk.slots[slot] = nullptr;
                    chunk.count -= slot + 1 == chunk.count ? 1 : 0;
                    return;
                }
            }
        }
    }
    // The chain's elements by index, chunks skipped by their counts.
    std::vector<char*> Elements() const {
        std::vector<char*> elements;
        for (const Chunk& chunk : m_Chunks) {
            elements.insert(elements.end(), chunk.slots.begin(), chunk.slots.begin() + chunk.count);
        }
        return elements;
    }
    size_t ChunkCount() const { return m_Chunks.size(); }

private:
    struct Chunk {
        std::array<char*, 10> slots{};
        unsigned int count = 0;
    };
    std::vector<Chunk> m_Chunks{1};
};

TEST_F(StringTableTest, ALongChainKeepsItsSlotsAsLinkedChunksWould) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("model_chain_", 320, texts, bucket));
    std::mt19937 random(77);
    ChunkChainModel model;
    std::map<std::string, char*> held;
    for (int step = 0; step < 4000; ++step) {
        const std::string& text = texts[random() % (step < 600 ? texts.size() : texts.size() / 2)];
        auto found = held.find(text);
        if (found == held.end()) {
            char* handle = Table::Add(text.c_str(), -1);
            model.Add(handle);
            held.emplace(text, handle);
        } else if (random() % 3 == 0) {
            model.Remove(found->second);
            Table::DecRefCount(found->second);
            held.erase(found);
        }
        if (step % 500 == 499) {
            ASSERT_EQ(ChainElements(bucket), model.Elements()) << step;
            ASSERT_EQ(Table::GetBucketChunkCount(bucket), model.ChunkCount()) << step;
            ASSERT_TRUE(Table::Validate()) << step;
        }
    }
    EXPECT_GE(model.ChunkCount(), 20u) << "the chain grew through many blocks";
    for (auto& [text, handle] : held) {
        char* again = Table::Add(text.c_str(), -1);
        EXPECT_EQ(again, handle) << text;
        Table::DecRefCount(again);
        model.Remove(handle);
        Table::DecRefCount(handle);
    }
    // Emptied, the chain keeps its chunks and the counts over holes that removals left.
    std::vector<char*> elements = model.Elements();
    EXPECT_EQ(ChainElements(bucket), elements);
    EXPECT_TRUE(std::all_of(elements.begin(), elements.end(), [](char* slot) { return slot == nullptr; }));
    EXPECT_EQ(Table::GetBucketChunkCount(bucket), model.ChunkCount());
}

// ---- entry codes -----------------------------------------------------------------------------------

// A handle as the heap's 16-aligned blocks give them: 8 past a multiple of 16.
char* FakeHandle(uint64_t address) {
    return reinterpret_cast<char*>(static_cast<uintptr_t>(address));
}

class StringCodesTest : public CoreLibFixture {};

TEST_F(StringCodesTest, HandlesOfOneWindowDecodeToThemselves) {
    GlobalStringCodes codes;
    std::vector<uint32_t> given;
    for (uint64_t offset : {uint64_t{0}, uint64_t{16}, uint64_t{4096}, (uint64_t{1} << 33) - 16}) {
        char* handle = FakeHandle(0x7F2400000008ull + offset);
        uint32_t code = 0;
        ASSERT_TRUE(codes.Assign(handle, code));
        EXPECT_FALSE(codes.IsFar(code));
        EXPECT_EQ(codes.Decode(code), handle);
        uint32_t found = 0;
        EXPECT_TRUE(codes.Find(handle, found));
        EXPECT_EQ(found, code);
        given.push_back(code);
    }
    EXPECT_EQ(codes.GetWindowCount(), 1u) << "all four lie in one 8 GiB window";
    std::sort(given.begin(), given.end());
    EXPECT_EQ(std::unique(given.begin(), given.end()), given.end());
    EXPECT_EQ(codes.GetFarCount(), 0u);
    EXPECT_EQ(codes.GetFootprint(), 0u);
    uint32_t none = 0;
    EXPECT_FALSE(codes.Find(FakeHandle(0x3F2400000008ull), none)) << "a window never seen";
}

TEST_F(StringCodesTest, AnEighthWindowAndOddAddressesGoToTheFarList) {
    GlobalStringCodes codes;
    std::vector<std::pair<char*, uint32_t>> given;
    for (uint64_t window = 0; window < 9; ++window) {
        char* handle = FakeHandle(0x100000000008ull + (window << 33) + 48 * window);
        uint32_t code = 0;
        ASSERT_TRUE(codes.Assign(handle, code));
        EXPECT_EQ(codes.IsFar(code), window >= 7) << window;
        given.emplace_back(handle, code);
    }
    for (char* odd :
         {FakeHandle(0x7F2400000000ull), FakeHandle(0x7F2400000004ull), FakeHandle(0x7F240000000Cull)}) {
        uint32_t code = 0;
        ASSERT_TRUE(codes.Assign(odd, code));
        EXPECT_TRUE(codes.IsFar(code));
        given.emplace_back(odd, code);
    }
    EXPECT_EQ(codes.GetWindowCount(), 7u);
    EXPECT_EQ(codes.GetFarCount(), 5u);
    for (const auto& [handle, code] : given) {
        EXPECT_EQ(codes.Decode(code), handle);
        uint32_t found = 0;
        EXPECT_TRUE(codes.Find(handle, found));
        EXPECT_EQ(found, code);
    }
    // A released far slot is the next one given.
    codes.Release(given[8].second);
    EXPECT_EQ(codes.GetFarCount(), 4u);
    uint32_t found = 0;
    EXPECT_FALSE(codes.Find(given[8].first, found));
    uint32_t again = 0;
    ASSERT_TRUE(codes.Assign(FakeHandle(0x7F3400000008ull), again));
    EXPECT_EQ(again, given[8].second);
    codes.Release(given[0].second);
    EXPECT_EQ(codes.GetFarCount(), 5u) << "a window code holds no slot";
}

TEST_F(StringCodesTest, TheFarListGrowsAndAWindowLimitFillsIt) {
    GlobalStringCodes codes;
    codes.SetWindowLimit(0);
    std::vector<std::pair<char*, uint32_t>> given;
    for (uint64_t index = 0; index < 40; ++index) {
        char* handle = FakeHandle(0x7F2400000008ull + 16 * index);
        uint32_t code = 0;
        ASSERT_TRUE(codes.Assign(handle, code));
        EXPECT_TRUE(codes.IsFar(code));
        given.emplace_back(handle, code);
    }
    EXPECT_EQ(codes.GetWindowCount(), 0u);
    EXPECT_EQ(codes.GetFarCount(), 40u);
    EXPECT_GE(codes.GetFootprint(), 40 * sizeof(char*));
    for (const auto& [handle, code] : given) {
        EXPECT_EQ(codes.Decode(code), handle);
    }
    // With windows allowed again, a new handle takes one; the far ones keep their codes.
    codes.SetWindowLimit(7);
    uint32_t code = 0;
    ASSERT_TRUE(codes.Assign(FakeHandle(0x7F2400001008ull), code));
    EXPECT_FALSE(codes.IsFar(code));
    uint32_t found = 0;
    ASSERT_TRUE(codes.Find(given[3].first, found));
    EXPECT_EQ(found, given[3].second);
}

TEST_F(StringTableTest, EntriesWithoutAWindowAreFoundAndFreedThroughTheFarList) {
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("far_entry_", 30, texts, bucket));
    Table::SetCodeWindowLimit(0);
    std::vector<char*> handles;
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
    }
    EXPECT_EQ(Table::GetFarEntryCount(), 30u);
    EXPECT_EQ(ChainElements(bucket), handles);
    EXPECT_TRUE(Table::Validate());
    Table::SetCodeWindowLimit(7);
    for (bool wide : {false, true}) {
        Table::UseWideInstructions(wide);
        for (size_t index = 0; index < texts.size(); ++index) {
            char* again = Table::Add(texts[index].c_str(), -1);
            EXPECT_EQ(again, handles[index]);
            Table::DecRefCount(again);
        }
    }
    for (size_t index = 0; index < handles.size(); index += 2) {
        Table::DecRefCount(handles[index]);
    }
    EXPECT_EQ(Table::GetFarEntryCount(), 15u);
    EXPECT_TRUE(Table::Validate());
    for (size_t index = 1; index < handles.size(); index += 2) {
        Table::DecRefCount(handles[index]);
    }
    EXPECT_EQ(Table::GetFarEntryCount(), 0u);
}

// ---- the two forms of a lookup ---------------------------------------------------------------------

bool ProcessorHasAvx512() {
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
}

TEST_F(StringTableTest, WideInstructionsAreUsedWhereTheProcessorHasThem) {
    EXPECT_EQ(Table::UsesWideInstructions(), ProcessorHasAvx512());
    EXPECT_FALSE(Table::UseWideInstructions(false));
    EXPECT_FALSE(Table::UsesWideInstructions());
    EXPECT_EQ(Table::UseWideInstructions(true), ProcessorHasAvx512());
}

// Texts of every length from 0 to 200 (so 64-byte blocks and their remainders) and of random bytes,
// signed ones included, interned in one form and looked up in the other.
TEST_F(StringTableTest, BothFormsHashFindAndCompareAlike) {
    std::mt19937 random(4321);
    std::vector<std::string> texts;
    for (size_t length = 0; length <= 200; ++length) {
        for (int variant = 0; variant < 3; ++variant) {
            std::string text(length, ' ');
            for (char& c : text) {
                c = static_cast<char>(1 + random() % 255);
            }
            texts.push_back(text);
        }
    }
    for (bool internWide : {false, true}) {
        Table::UseWideInstructions(internWide);
        std::vector<char*> handles;
        for (const std::string& text : texts) {
            char* handle = Table::Add(text.data(), static_cast<int>(text.size()));
            ASSERT_EQ(Table::GetBucket(handle), ReferenceBucket(text)) << text.size();
            handles.push_back(handle);
        }
        Table::UseWideInstructions(!internWide);
        for (size_t index = 0; index < texts.size(); ++index) {
            std::string copy = texts[index];
            char* found = Table::Add(copy.data(), static_cast<int>(copy.size()));
            ASSERT_EQ(found, handles[index]) << texts[index].size();
            // One byte changed anywhere is another text.
            if (!copy.empty()) {
                copy[random() % copy.size()] ^= 0x40;
                char* other = Table::Add(copy.data(), static_cast<int>(copy.size()));
                EXPECT_NE(other, handles[index]);
                Table::DecRefCount(other);
            }
            Table::DecRefCount(found);
        }
        EXPECT_TRUE(Table::Validate());
        for (char*& handle : handles) {
            Table::DecRefCount(handle);
        }
    }
}

TEST_F(StringTableTest, BothFormsMeetTextsEqualUpToAnEmbeddedNul) {
    // Equal before the NUL and of one length: strncmp finds them equal, so where they share a
    // bucket they are one entry, whichever form interned and whichever looks up.
    std::map<unsigned int, std::string> firstByBucket;
    std::string first;
    std::string second;
    for (int number = 0; second.empty(); ++number) {
        std::string text = std::string("wide\0", 5) + std::to_string(number);
        text.resize(70, '.');  // more than one 64-byte block
        auto [it, inserted] = firstByBucket.emplace(ReferenceBucket(text), text);
        if (!inserted) {
            first = it->second;
            second = text;
        }
    }
    for (bool wide : {false, true}) {
        Table::UseWideInstructions(wide);
        char* handle = Table::Add(first.data(), 70);
        Table::UseWideInstructions(!wide);
        EXPECT_EQ(Table::Add(second.data(), 70), handle);
        EXPECT_EQ(Table::GetRefCount(handle), 3u);
        Table::DecRefCount(handle);
        Table::DecRefCount(handle);
        EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    }
}

// ---- memory ------------------------------------------------------------------------------------------

TEST_F(StringTableTest, TheBucketsKeepAboutSixBytesAString) {
    // A fingerprint (2 bytes) and a code (4) a slot, the chunk counts, the last chunks' free slots
    // and the blocks' room to grow: of 100 000 strings in 513 buckets, none of these is large.
    const size_t footprintBefore = Table::GetIndexFootprint();
    std::vector<FixedString> strings;
    strings.reserve(100000);
    for (int index = 0; index < 100000; ++index) {
        strings.emplace_back(("memory/" + std::to_string(index * 7919) + ".key").c_str());
    }
    const size_t footprint = Table::GetIndexFootprint();
    double perString = static_cast<double>(footprint - footprintBefore) / 100000.0;
    EXPECT_GE(perString, 6.0);
    EXPECT_LE(perString, 6.6);
    // Chunks stay, so their blocks keep their size; the same strings again fill the same slots.
    std::vector<std::string> texts;
    for (const FixedString& string : strings) {
        texts.emplace_back(string.ToChar());
    }
    strings.clear();
    EXPECT_EQ(Table::GetIndexFootprint(), footprint);
    for (const std::string& text : texts) {
        strings.emplace_back(text.c_str());
    }
    EXPECT_EQ(Table::GetIndexFootprint(), footprint);
}

// ---- statistics -------------------------------------------------------------------------------

TEST_F(StringTableTest, TotalMemorySizeIsMeasuredOnTheHeader) {
    unsigned int total = Table::s_TotalMemorySize;
    char* handle = Table::Add("a rather long text whose characters do not count", -1);
    EXPECT_EQ(Table::s_TotalMemorySize, total + 2) << "the count 2 reads as a one-character text";
    char* again = Table::Add("a rather long text whose characters do not count", -1);
    EXPECT_EQ(Table::s_TotalMemorySize, total + 2) << "a lookup adds nothing";
    Table::DecRefCount(again);
    Table::DecRefCount(handle);
    EXPECT_EQ(Table::s_TotalMemorySize, total + 1) << "a count of 0 reads as an empty text";
}

// ---- the enabled state ------------------------------------------------------------------------

TEST_F(StringTableTest, DisabledTableReportsNewTextsAndStillAddsThem) {
    char* existing = Table::Add("existing", -1);
    Table::ResetTable();
    EXPECT_FALSE(Table::IsTableEnabled());
    ScopedCapture capture;
    char* found = Table::Add("existing", -1);
    EXPECT_EQ(found, existing);
    EXPECT_TRUE(capture.Messages().empty()) << "a lookup is no addition";
    char* added = Table::Add("brand new", -1);
    ASSERT_NE(added, nullptr);
    EXPECT_STREQ(added, "brand new");
    char* prefix = Table::Add("prefixed text", 6);
    EXPECT_STREQ(prefix, "prefix");
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].message, "Trying to add string [brand new] to GlobalStringTable when it is locked.");
    EXPECT_EQ(reports[1].message, "Trying to add string [prefix] to GlobalStringTable when it is locked.");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[0].function, "zn::GlobalStringTable::Add");
    for (char* handle : {existing, found, added, prefix}) {
        Table::DecRefCount(handle);
    }
}

TEST_F(StringTableTest, RequestEnablesAndTheBalancingReleaseDisablesAgain) {
    EXPECT_TRUE(Table::IsTableEnabled()) << "enabled at load";
    EXPECT_EQ(Table::GetTableUseCount(), 0);
    Table::RequestTable();
    Table::RequestTable();
    EXPECT_EQ(Table::GetTableUseCount(), 2);
    Table::ReleaseTable();
    EXPECT_TRUE(Table::IsTableEnabled());
    ScopedCapture capture;
    Table::ReleaseTable();
    EXPECT_EQ(Table::GetTableUseCount(), 0);
    EXPECT_FALSE(Table::IsTableEnabled())
        << "a bracket that closes in the load phase leaves the table disabled";
    EXPECT_TRUE(capture.Messages().empty());
    Table::ResetTable();
    Table::RequestTable();
    EXPECT_TRUE(Table::IsTableEnabled());
    char* inside = Table::Add("inside a bracket", -1);
    EXPECT_TRUE(capture.Messages().empty());
    Table::ReleaseTable();
    EXPECT_FALSE(Table::IsTableEnabled());
    Table::DecRefCount(inside);
}

TEST_F(StringTableTest, ReleaseWithoutRequestReportsAndLeavesTheTableEnabled) {
    ScopedCapture capture;
    Table::ReleaseTable();
    EXPECT_THAT(capture.Messages(), ElementsAre("Releasing fixedstring table more than it was requested!"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::GlobalStringTable::ReleaseTable");
    EXPECT_EQ(Table::GetTableUseCount(), -1);
    EXPECT_TRUE(Table::IsTableEnabled()) << "-1 is not 0";
}

TEST_F(StringTableTest, ResetTableForgetsOpenBrackets) {
    Table::RequestTable();
    Table::RequestTable();
    Table::ResetTable();
    EXPECT_EQ(Table::GetTableUseCount(), 0);
    EXPECT_FALSE(Table::IsTableEnabled());
}

// ---- reports ----------------------------------------------------------------------------------

TEST_F(StringTableTest, AddWithoutATableReportsAndGivesNull) {
    Table::_SDMShutdown();
    {
        ScopedCapture capture;
        EXPECT_EQ(Table::Add("no table", -1), nullptr);
        EXPECT_EQ(Table::Add(nullptr, -1), nullptr);
        EXPECT_THAT(capture.Messages(),
                    ElementsAre("There is no global string table?", "There is no global string table?"));
        EXPECT_EQ(capture.Reports()[0].function, "zn::GlobalStringTable::Add");
        FixedString none(nullptr, -1);
        EXPECT_EQ(capture.Messages().size(), 2u) << "a null text never reaches the table";
    }
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    Table::_SDMInit();
}

TEST_F(StringTableTest, SecondInitReportsAndKeepsTheTable) {
    char* handle = Table::Add("kept", -1);
    {
        ScopedCapture capture;
        Table::_SDMInit();
        EXPECT_THAT(capture.Messages(), ElementsAre("Assert! [Replace me with a better description]"));
    }
    char* again = Table::Add("kept", -1);
    EXPECT_EQ(again, handle);
    Table::DecRefCount(again);
    Table::DecRefCount(handle);
}

TEST_F(StringTableTest, TextsOf65536CharactersAndMoreAreReportedAndRefused) {
    std::string longest(65535, 'x');
    char* handle = Table::Add(longest.c_str(), -1);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(Table::GetLength(handle), 65535u);
    ScopedCapture capture;
    std::string tooLong(65536, 'x');
    EXPECT_EQ(Table::Add(tooLong.c_str(), -1), nullptr);
    EXPECT_EQ(Table::Add(tooLong.c_str(), 70000), nullptr);
    EXPECT_THAT(capture.Messages(), ElementsAre("String length can not be larger than 65536!",
                                                "String length can not be larger than 65536!"));
    EXPECT_EQ(Table::GetBucket(handle), ReferenceBucket(longest)) << "no length spills into the bucket";
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
    Table::DecRefCount(handle);
}

TEST_F(StringTableTest, ReleasingAnEntryWithoutReferencesReportsAsAtomicDecrement) {
    // A block laid out as an entry but never interned, with a count already at 0: the trace of a
    // reference given up twice. It never reaches the table, since the count does not become 1.
    alignas(8) unsigned char block[16] = {};
    unsigned int bucket = ReferenceBucket("abc");
    const unsigned char header[8] = {
        0, 0, 0, 0, 3, 0, static_cast<unsigned char>(bucket & 0xFF), static_cast<unsigned char>(bucket >> 8)};
    std::memcpy(block, header, sizeof(header));
    std::memcpy(block + 8, "abc", 4);
    char* handle = reinterpret_cast<char*>(block + 8);
    ScopedCapture capture;
    Table::DecRefCount(handle);
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, "Value needs to be positive");
    EXPECT_EQ(reports[0].function, "zn::AtomicDecrement");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(Table::GetRefCount(handle), static_cast<unsigned int>(-1))
        << "the decrement happens all the same";
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
}

TEST_F(StringTableTest, DroppingTheLastHandleAfterTheTableWentReportsAndFreesNothing) {
    char* handle = Table::Add("outlives the table", -1);
    Table::_SDMShutdown();
    {
        ScopedCapture capture;
        Table::DecRefCount(handle);
        EXPECT_THAT(capture.Messages(), ElementsAre("Assert! [Replace me with a better description]"));
        EXPECT_EQ(capture.Reports()[0].function, "zn::GlobalStringTable::DecRefCount");
    }
    EXPECT_EQ(Table::GetRefCount(handle), 1u) << "only the vanished table's hold is left";
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1) << "the entry leaks with its table";
    // The block belongs to the "GLOBAL" heap, which goes at shutdown; the count is put back so the
    // next tests start from an empty table.
    Table::s_NbStrings = m_StringsAtStart;
    Table::_SDMInit();
}

// ---- the leak report at shutdown ------------------------------------------------------------------

class StringTableLeakTest : public StringTableTest {
protected:
    // Takes the table down with the capture attached, then gives the next tests a fresh table; the
    // leaked blocks stay in "GLOBAL", which goes at shutdown.
    std::vector<CapturedReport> ShutDownTheTable() {
        std::vector<CapturedReport> reports;
        {
            ScopedCapture capture;
            Table::_SDMShutdown();
            reports = capture.Reports();
        }
        Table::s_NbStrings = m_StringsAtStart;
        Table::_SDMInit();
        return reports;
    }
};

TEST_F(StringTableLeakTest, TwoLeakedStringsAreListedInBucketOrder) {
    ASSERT_EQ(m_StringsAtStart, 0u) << "the exact report needs an otherwise empty table";
    // The first text added lands in the later bucket, so insertion order would list it first.
    std::string later = "leak/later";
    std::string earlier = "leak/earlier";
    if (ReferenceBucket(later) < ReferenceBucket(earlier)) {
        std::swap(later, earlier);
    }
    ASSERT_NE(ReferenceBucket(later), ReferenceBucket(earlier));
    Table::Add(later.c_str(), -1);
    Table::Add(earlier.c_str(), -1);
    std::vector<CapturedReport> reports = ShutDownTheTable();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message,
              "Fixed stringtable is leaking the following strings:\n\t-" + earlier + "\n\t-" + later + "\n");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[0].function, "zn::GlobalStringTable::_SDMShutdown");
}

TEST_F(StringTableLeakTest, OneBucketIsListedInSlotOrderAcrossChunksAndHoles) {
    ASSERT_EQ(m_StringsAtStart, 0u);
    unsigned int bucket = 0;
    std::vector<std::string> texts;
    ASSERT_TRUE(FindTextsInOneBucket("slot_", 12, texts, bucket));
    std::vector<char*> handles;
    for (const std::string& text : texts) {
        handles.push_back(Table::Add(text.c_str(), -1));
    }
    Table::DecRefCount(handles[3]);
    std::string expected = "Fixed stringtable is leaking the following strings:\n";
    for (size_t index = 0; index < texts.size(); ++index) {
        if (index != 3) {
            expected += "\t-" + texts[index] + "\n";
        }
    }
    std::vector<CapturedReport> reports = ShutDownTheTable();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, expected);
}

TEST_F(StringTableLeakTest, TextsThatLookLikeFormatsAreListedAsTheyAre) {
    Table::Add("100%s%d", -1);
    std::vector<CapturedReport> reports = ShutDownTheTable();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_THAT(reports[0].message, ::testing::EndsWith("\t-100%s%d\n"));
}

TEST_F(StringTableLeakTest, AnEmptyTableGoesDownSilently) {
    ASSERT_EQ(m_StringsAtStart, 0u);
    FixedString released("released before shutdown");
    released = FixedString();
    EXPECT_TRUE(ShutDownTheTable().empty());
}

// ---- a model beside the table -------------------------------------------------------------------

TEST_F(StringTableTest, RandomAddsAndReleasesMatchAModel) {
    std::mt19937 random(20240611);
    std::map<std::string, std::vector<char*>> held;
    auto textOf = [&](uint32_t number) { return "model/" + std::to_string(number % 3000) + "/key"; };
    for (int step = 0; step < 60000; ++step) {
        std::string text = textOf(random());
        std::vector<char*>& handles = held[text];
        if (random() % 3 != 0 || handles.empty()) {
            char* handle = Table::Add(text.c_str(), -1);
            ASSERT_STREQ(handle, text.c_str());
            if (!handles.empty()) {
                ASSERT_EQ(handle, handles.front());
            }
            handles.push_back(handle);
        } else {
            Table::DecRefCount(handles.back());
            handles.pop_back();
        }
        if (step % 10000 == 9999) {
            unsigned int live = 0;
            for (const auto& [heldText, heldHandles] : held) {
                if (!heldHandles.empty()) {
                    ++live;
                    ASSERT_EQ(Table::GetRefCount(heldHandles.front()), heldHandles.size() + 1) << heldText;
                }
            }
            ASSERT_EQ(Table::s_NbStrings, m_StringsAtStart + live);
            ASSERT_TRUE(Table::Validate());
        }
    }
    for (auto& [text, handles] : held) {
        for (char*& handle : handles) {
            Table::DecRefCount(handle);
        }
    }
}

// ---- threads ----------------------------------------------------------------------------------

// Four threads add, copy, hand over and drop texts. Hot texts are only ever held for one step, by
// every thread, so their entries keep losing their last handle while another thread adds the text
// again: that Add either revives the entry before its Remove runs or makes a new one after it.
// Shared texts move between threads through an exchange; each thread also has texts of its own.
TEST_F(StringTableTest, ThreadsShareTextsAndHandlesWithoutLosingAnyReference) {
    constexpr int kThreads = 4;
    constexpr int kHotTexts = 3;
    constexpr int kMaxStepsPerThread = 300000;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    std::mutex exchangeMutex;
    std::array<FixedString, 16> exchange;  // guarded by exchangeMutex
    std::atomic<int> wrongTexts{0};
    std::atomic<long> steps{0};
    std::vector<std::vector<FixedString>> kept(kThreads);
    ScopedCapture capture;

    auto worker = [&](int thread) {
        std::mt19937 random(thread + 1);
        std::vector<FixedString> local(32);
        int step = 0;
        for (; step < kMaxStepsPerThread && (step % 256 != 0 || std::chrono::steady_clock::now() < deadline);
             ++step) {
            std::string hotText = "hot/" + std::to_string(random() % kHotTexts);
            {
                FixedString hot(hotText.c_str());
                FixedString copy = hot;
                if (!copy.Equals(hotText.c_str()) || copy.GetLength() != hotText.size()) {
                    ++wrongTexts;
                }
            }
            if (thread == 0) {
                continue;
            }
            std::string text = random() % 2 == 0
                                   ? "shared/" + std::to_string(random() % 64)
                                   : "thread" + std::to_string(thread) + "/" + std::to_string(random() % 500);
            FixedString string(text.c_str());
            if (!string.Equals(text.c_str())) {
                ++wrongTexts;
            }
            FixedString& slot = local[random() % local.size()];
            switch (random() % 4) {
                case 0:
                    slot = string;
                    break;
                case 1:
                    slot = FixedString();
                    break;
                case 2: {
                    std::lock_guard<std::mutex> guard(exchangeMutex);
                    std::swap(exchange[random() % exchange.size()], slot);
                    break;
                }
                default:
                    if (slot.IsValid() && !(FixedString(slot.ToChar()) == slot)) {
                        ++wrongTexts;
                    }
            }
        }
        steps += step;
        kept[thread] = std::move(local);
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back(worker, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrongTexts.load(), 0);
    EXPECT_GT(steps.load(), 10000);
    EXPECT_TRUE(capture.Messages().empty()) << capture.Messages().front();
    std::map<std::string, unsigned int> stillHeld;
    for (const std::vector<FixedString>& strings : kept) {
        for (const FixedString& string : strings) {
            if (string.IsValid()) {
                ++stillHeld[string.ToChar()];
            }
        }
    }
    for (const FixedString& string : exchange) {
        if (string.IsValid()) {
            ++stillHeld[string.ToChar()];
        }
    }
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + stillHeld.size()) << "only held texts remain";
    for (const auto& [text, holders] : stillHeld) {
        FixedString probe(text.c_str());
        EXPECT_EQ(probe.GetRefCount(), holders + 2) << text;
    }
    EXPECT_TRUE(Table::Validate());
    kept.clear();
    exchange.fill(FixedString());
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
}

// ---- the start-up vocabulary --------------------------------------------------------------------

FixedString g_FirstWord;
FixedString g_SecondWord;
FixedString g_RepeatedWord;
unsigned int g_StringsAtTableShutdown = 0;

void RecordStringsAtTableShutdown(const char* step, bool starting) {
    if (!starting && std::strcmp(step, "GlobalStringTable") == 0) {
        g_StringsAtTableShutdown = Table::s_NbStrings;
    }
}

TEST(WellKnownStrings, AreInternedInOrderAtStartUpAndReleasedBeforeTheTableGoes) {
    unsigned int bucket = 0;
    CoreLibSDM::Init();
    std::vector<std::string> texts;
    bool found = FindTextsInOneBucket("well_known_", 2, texts, bucket);
    unsigned int stringsBefore = Table::s_NbStrings;
    CoreLibSDM::Shutdown();
    ASSERT_TRUE(found);

    const WellKnownString words[] = {
        {&g_FirstWord, texts[1].c_str()},
        {&g_SecondWord, texts[0].c_str()},
        {&g_RepeatedWord, texts[1].c_str()},
    };
    SetExtraWellKnownStrings(words, 3);
    CoreLibSDM::SetStepObserver(RecordStringsAtTableShutdown);
    CoreLibSDM::Init();
    EXPECT_EQ(g_FirstWord, texts[1].c_str());
    EXPECT_EQ(g_SecondWord, texts[0].c_str());
    EXPECT_EQ(g_RepeatedWord, g_FirstWord);
    EXPECT_EQ(g_FirstWord.GetRefCount(), 3u);
    EXPECT_THAT(ChainElements(bucket), ElementsAre(g_FirstWord.ToChar(), g_SecondWord.ToChar()))
        << "declaration order";
    EXPECT_EQ(Table::s_NbStrings, stringsBefore + 2);
    CoreLibSDM::Shutdown();
    CoreLibSDM::SetStepObserver(nullptr);
    SetExtraWellKnownStrings(nullptr, 0);

    EXPECT_FALSE(g_FirstWord.IsValid());
    EXPECT_FALSE(g_SecondWord.IsValid());
    EXPECT_FALSE(g_RepeatedWord.IsValid());
    EXPECT_EQ(g_StringsAtTableShutdown, stringsBefore);
}

// ---- dumping the table -----------------------------------------------------------------------------

class StringTableDumpTest : public StringTableTest {
protected:
    ScratchFolder m_Folder;
};

TEST_F(StringTableDumpTest, WritesEveryEntryOnItsOwnLineInBucketOrder) {
    FixedString first("dump/alpha.dds", -1);
    FixedString second("dump beta %s", -1);
    FixedString third("dump gamma", -1);
    // The path is interned too, so it is made before the expected list is taken.
    const Path path = m_Folder.PathOf("table.txt");
    std::vector<std::string> expected;
    for (unsigned int bucket = 0; bucket < 513; ++bucket) {
        for (char* handle : ChainElements(bucket)) {
            if (handle != nullptr) {
                expected.emplace_back(handle, Table::GetLength(handle));
            }
        }
    }
    ASSERT_EQ(expected.size(), Table::s_NbStrings);
    ScopedCapture capture;
    Table::DumpContent(path);

    std::vector<std::string> lines;
    std::istringstream dump(m_Folder.Read("table.txt"));
    for (std::string line; std::getline(dump, line);) {
        lines.push_back(line);
    }
    EXPECT_EQ(lines, expected);
    EXPECT_NE(std::find(lines.begin(), lines.end(), "dump beta %s"), lines.end());
    EXPECT_EQ(m_Folder.Read("table.txt").back(), '\n');
    EXPECT_TRUE(capture.Reports().empty());
    EXPECT_EQ(Table::GetTableUseCount(), 0) << "the dump's bracket is closed";
}

TEST_F(StringTableDumpTest, UnwritablePathLeavesNoFileAndNoReport) {
    const Path path = m_Folder.PathOf("missing/table.txt");
    ScopedCapture capture;
    Table::DumpContent(path);
    EXPECT_FALSE(std::filesystem::exists(m_Folder.FileName("missing/table.txt")));
    EXPECT_TRUE(capture.Reports().empty());
}

}  // namespace
}  // namespace zn::test
