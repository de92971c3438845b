// FixedString: construction, references, assignment, comparisons, the handle hacker, the map hash
// policy and GUIDs.
#include "CoreLib/FixedString.h"

#include "CoreLib/GlobalStringTable.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/StringTableFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

namespace zn::test {
namespace {

using Table = GlobalStringTable;

using FixedStringTest = StringTableFixture;

// ---- construction and references --------------------------------------------------------------

TEST_F(FixedStringTest, EmptyTextIsAValidEmptyStringAndDiffersFromTheNullString) {
    FixedString empty("");
    FixedString none;
    EXPECT_TRUE(empty.IsValid());
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(empty.GetLength(), 0u);
    EXPECT_STREQ(empty.ToChar(), "");
    EXPECT_FALSE(none.IsValid());
    EXPECT_TRUE(none.IsEmpty());
    EXPECT_EQ(none.GetLength(), 0u);
    EXPECT_EQ(none.GetRefCount(), 0u);
    EXPECT_EQ(none.ToChar(), nullptr);
    EXPECT_FALSE(empty.Equals(none));
    EXPECT_TRUE(empty != none);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
}

TEST_F(FixedStringTest, NullTextGivesTheNullStringWithoutTouchingTheTable) {
    unsigned int total = Table::s_TotalMemorySize;
    ScopedCapture capture;
    FixedString none(nullptr, -1);
    FixedString alsoNone(nullptr, 12);
    EXPECT_FALSE(none.IsValid());
    EXPECT_FALSE(alsoNone.IsValid());
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    EXPECT_EQ(Table::s_TotalMemorySize, total);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(FixedStringTest, EqualTextsHoldTheSameAddress) {
    std::string text = "materials/stone";
    FixedString first(text.c_str());
    FixedString second("materials/stone");
    FixedString prefix("materials/stone/moss", 15);
    EXPECT_EQ(first.ToChar(), second.ToChar());
    EXPECT_EQ(first.ToChar(), prefix.ToChar());
    EXPECT_NE(static_cast<const void*>(first.ToChar()), static_cast<const void*>(text.c_str()));
    EXPECT_TRUE(first == second);
    EXPECT_EQ(first.GetRefCount(), 4u);
}

TEST_F(FixedStringTest, PrefixOfALongerTextAndTheTerminatedTextAreOneEntry) {
    FixedString prefix("abc", 2);
    FixedString whole("ab");
    EXPECT_EQ(prefix.ToChar(), whole.ToChar());
    EXPECT_EQ(prefix.GetLength(), 2u);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
}

TEST_F(FixedStringTest, FirstHandleCountsTwoACopyThreeAndBothGoneFreeTheEntry) {
    {
        FixedString first("counted");
        EXPECT_EQ(first.GetRefCount(), 2u);
        {
            FixedString copy(first);
            EXPECT_EQ(copy.ToChar(), first.ToChar());
            EXPECT_EQ(first.GetRefCount(), 3u);
        }
        EXPECT_EQ(first.GetRefCount(), 2u);
        EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1);
    }
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
}

// ---- assignment ---------------------------------------------------------------------------------

TEST_F(FixedStringTest, CopyAssignmentMovesTheReference) {
    FixedString left("left");
    FixedString right("right");
    left = right;
    EXPECT_EQ(left.ToChar(), right.ToChar());
    EXPECT_EQ(right.GetRefCount(), 3u);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1) << "\"left\" lost its only handle";
    left = left;
    EXPECT_EQ(right.GetRefCount(), 3u) << "assigning the same handle changes nothing";
    left = FixedString();
    EXPECT_FALSE(left.IsValid());
    EXPECT_EQ(right.GetRefCount(), 2u);
}

TEST_F(FixedStringTest, TextAssignmentInternsBeforeReleasingSoAPartOfItselfWorks) {
    FixedString string("hello world");
    string = string.ToChar() + 6;
    EXPECT_EQ(string, "world");
    EXPECT_EQ(string.GetRefCount(), 2u);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1) << "\"hello world\" is gone";
    const char* own = string.ToChar();
    string = own;
    EXPECT_EQ(string.GetRefCount(), 2u) << "its own characters change nothing";
    string = static_cast<const char*>(nullptr);
    EXPECT_FALSE(string.IsValid());
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
    string = "again";
    EXPECT_EQ(string, "again");
}

// ---- comparisons --------------------------------------------------------------------------------

TEST_F(FixedStringTest, EqualsWithTextComparesPointersThenBytes) {
    FixedString string("Equal");
    FixedString none;
    EXPECT_TRUE(string.Equals(string.ToChar()));
    EXPECT_TRUE(string.Equals("Equal"));
    EXPECT_FALSE(string.Equals("equal"));
    EXPECT_FALSE(string.Equals("Equals"));
    EXPECT_FALSE(string.Equals(static_cast<const char*>(nullptr)));
    EXPECT_FALSE(none.Equals(""));
    EXPECT_TRUE(none.Equals(static_cast<const char*>(nullptr))) << "the same (null) pointer";
}

TEST_F(FixedStringTest, OperatorsCoverEveryPairing) {
    FixedString alpha("alpha");
    FixedString beta("beta");
    FixedString alsoAlpha("alpha");
    EXPECT_TRUE(alpha == alsoAlpha);
    EXPECT_FALSE(alpha != alsoAlpha);
    EXPECT_TRUE(alpha != beta);
    EXPECT_FALSE(alpha == beta);
    EXPECT_TRUE(alpha == "alpha");
    EXPECT_TRUE(alpha != "beta");
    EXPECT_FALSE(alpha != "alpha");
    EXPECT_TRUE("alpha" == alpha);
    EXPECT_TRUE("beta" != alpha);
    EXPECT_FALSE("alpha" != alpha);
}

TEST_F(FixedStringTest, EqualsNoCaseFoldsAsciiLettersOnly) {
    FixedString mixed("Hello_World");
    FixedString upper("HELLO_WORLD");
    FixedString none;
    EXPECT_TRUE(mixed.EqualsNoCase(upper));
    EXPECT_TRUE(mixed.EqualsNoCase("hello_world"));
    EXPECT_FALSE(mixed.EqualsNoCase("hello_worl"));
    EXPECT_FALSE(mixed.EqualsNoCase("hello_worlds"));
    EXPECT_FALSE(mixed.EqualsNoCase("hello-world")) << "'_' and '-' are not letters";
    EXPECT_FALSE(mixed.EqualsNoCase(none));
    EXPECT_TRUE(none.EqualsNoCase(none));
    EXPECT_FALSE(none.EqualsNoCase(""));
    FixedString accented("caf\xC3\xA9");
    EXPECT_FALSE(accented.EqualsNoCase("CAF\xC3\x89")) << "bytes above 0x7F are compared as they are";
    EXPECT_TRUE(accented.EqualsNoCase("CAF\xC3\xA9"));
}

TEST_F(FixedStringTest, ContainsFindsNonEmptyNeedlesInNonEmptyStrings) {
    FixedString string("textures/terrain/grass.dds");
    FixedString empty("");
    FixedString none;
    EXPECT_TRUE(string.Contains("terrain"));
    EXPECT_TRUE(string.Contains("textures"));
    EXPECT_TRUE(string.Contains(".dds"));
    EXPECT_FALSE(string.Contains("Terrain"));
    EXPECT_FALSE(string.Contains("")) << "an empty needle";
    EXPECT_FALSE(string.Contains(empty));
    EXPECT_FALSE(string.Contains(none));
    EXPECT_FALSE(empty.Contains("a")) << "an empty string";
    EXPECT_FALSE(none.Contains("a"));
    EXPECT_TRUE(string.Contains(string)) << "itself";
    EXPECT_TRUE(empty.Contains(empty)) << "itself, even empty";
    EXPECT_TRUE(empty.Contains(FixedString(""))) << "another handle on the same empty entry";
    EXPECT_FALSE(none.Contains(none)) << "the null pointer";
    FixedString needle("grass");
    EXPECT_TRUE(string.Contains(needle));
}

TEST_F(FixedStringTest, ContainsNoCaseSearchesEveryPositionWithoutCase) {
    FixedString string("Textures/Terrain/GRASS.dds");
    FixedString empty("");
    EXPECT_TRUE(string.ContainsNoCase("terrain"));
    EXPECT_TRUE(string.ContainsNoCase("textures"));
    EXPECT_TRUE(string.ContainsNoCase("grass.DDS")) << "at the end";
    EXPECT_FALSE(string.ContainsNoCase("grass.ddsx")) << "past the end";
    EXPECT_FALSE(string.ContainsNoCase("Textures/Terrain/GRASS.dds/"));
    EXPECT_FALSE(string.ContainsNoCase(""));
    EXPECT_FALSE(empty.ContainsNoCase("a"));
    EXPECT_TRUE(empty.ContainsNoCase(empty));
    EXPECT_TRUE(string.ContainsNoCase(string));
    EXPECT_TRUE(string.ContainsNoCase(FixedString("TERRAIN/grass")));
    EXPECT_FALSE(FixedString().ContainsNoCase("a"));
}

// ---- the handle hacker and the map hash ---------------------------------------------------------

TEST_F(FixedStringTest, HackerSetHandleMovesReferencesAndKeepsItsOwnHandleAlive) {
    FixedString source("source");
    FixedString target("target");
    char* handle = FixedStringHacker::GetHandle(source);
    EXPECT_EQ(handle, source.ToChar());
    FixedStringHacker::SetHandle(target, handle);
    EXPECT_EQ(target.ToChar(), handle);
    EXPECT_EQ(source.GetRefCount(), 3u);
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart + 1) << "\"target\" lost its only handle";
    source = FixedString();
    EXPECT_EQ(target.GetRefCount(), 2u);
    FixedStringHacker::SetHandle(target, FixedStringHacker::GetHandle(target));
    EXPECT_EQ(target.GetRefCount(), 2u) << "its own handle stays referenced once";
    EXPECT_EQ(target, "source");
    FixedStringHacker::SetHandle(target, nullptr);
    EXPECT_FALSE(target.IsValid());
    EXPECT_EQ(Table::s_NbStrings, m_StringsAtStart);
}

TEST_F(FixedStringTest, MapHashUsesTheHandleAddress) {
    FixedString key("map key");
    FixedString sameKey("map key");
    auto address = reinterpret_cast<uintptr_t>(key.ToChar());
    for (unsigned int buckets : {1u, 7u, 64u, 1021u}) {
        EXPECT_EQ(FixedStringRefMapHashFunctor::KeyToHashIndex(key, buckets), address % buckets);
        EXPECT_EQ(FixedStringRefMapHashFunctor::KeyToHashIndex(sameKey, buckets),
                  FixedStringRefMapHashFunctor::KeyToHashIndex(key, buckets));
    }
    EXPECT_EQ(FixedStringRefMapHashFunctor::KeyToHashIndex(FixedString(), 7), 0u);
    EXPECT_TRUE(FixedStringRefMapHashFunctor::Assert());
}

// ---- GUIDs ----------------------------------------------------------------------------------------

bool IsLowerHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

TEST_F(FixedStringTest, GenerateGuidGivesDistinctLowercaseVersionFourTexts) {
    std::set<std::string> seen;
    for (int index = 0; index < 50; ++index) {
        FixedString guid = GenerateGUID();
        ASSERT_EQ(guid.GetLength(), 36u);
        std::string text = guid.ToChar();
        for (size_t position = 0; position < text.size(); ++position) {
            if (position == 8 || position == 13 || position == 18 || position == 23) {
                EXPECT_EQ(text[position], '-') << text;
            } else {
                EXPECT_TRUE(IsLowerHex(text[position])) << text;
            }
        }
        EXPECT_EQ(text[14], '4') << "version 4: " << text;
        EXPECT_NE(std::string("89ab").find(text[19]), std::string::npos) << "RFC 4122 variant: " << text;
        EXPECT_TRUE(seen.insert(text).second) << "repeated " << text;
    }
}

TEST_F(FixedStringTest, GenerateGuidInternsInsideABracket) {
    // In the run phase an addition outside a bracket is reported; a GUID is not.
    Table::ResetTable();
    ScopedCapture capture;
    FixedString guid = GenerateGUID();
    EXPECT_TRUE(guid.IsValid());
    EXPECT_TRUE(capture.Messages().empty());
    EXPECT_EQ(Table::GetTableUseCount(), 0);
    EXPECT_FALSE(Table::IsTableEnabled()) << "the balancing release disables the table again";
    FixedString other("not a guid");
    EXPECT_EQ(capture.Messages().size(), 1u);
    // Back to the load state for the next tests: enabled, no bracket open.
    Table::ReleaseTable();
    Table::RequestTable();
    EXPECT_TRUE(Table::IsTableEnabled());
    EXPECT_EQ(Table::GetTableUseCount(), 0);
}

}  // namespace
}  // namespace zn::test
