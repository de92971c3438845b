// StringTokenizer_test.cpp: tokens, lines, the ring of buffers, numbers, splitting and command lines.
#include "CoreLib/StringTokenizer.h"

#include "CoreLib/ArgumentString.h"
#include "CoreLib/Logger.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/Path.h"
#include "CoreLib/StringHelpers.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zn {
namespace {

using test::CoreLibFixture;
using test::ScopedCapture;

class StringTokenizerTest : public CoreLibFixture {};

std::vector<std::string> AllTokens(StringTokenizer& tokenizer, bool (*predicate)(char)) {
    std::vector<std::string> tokens;
    while (const char* token = tokenizer.Next(predicate)) {
        tokens.emplace_back(token);
    }
    return tokens;
}

std::vector<std::string> AllLines(StringTokenizer& tokenizer) {
    std::vector<std::string> lines;
    while (const char* line = tokenizer.NextLine()) {
        lines.emplace_back(line);
    }
    return lines;
}

bool NoWordCharacters(char) {
    return false;
}

TEST_F(StringTokenizerTest, TokensSkipWhiteSpaceAndNumbersStandAlone) {
    StringTokenizer tokenizer(4);
    tokenizer.SetString("  width = 12.5;\r\n\theight\t=\t480px\n\n  name_1 = \"x\"  ");
    std::vector<std::string> expected = {"width", "=",      "12.5", ";",  "height", "=", "480",
                                         "px",    "name_1", "=",    "\"", "x",      "\""};
    EXPECT_EQ(AllTokens(tokenizer, IsAlphabetical), expected);
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), nullptr);
    EXPECT_FALSE(tokenizer.GoToNext(IsAlphabetical));
}

TEST_F(StringTokenizerTest, NumberFollowedByLettersIsTwoTokensButWordKeepsItsDigits) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("123abc abc123 1.2.3x");
    std::vector<std::string> expected = {"123", "abc", "abc123", "1.2.3", "x"};
    EXPECT_EQ(AllTokens(tokenizer, IsAlphabetical), expected);
}

TEST_F(StringTokenizerTest, PredicateRefusingEverythingGivesSingleCharacters) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("ab 42c");
    std::vector<std::string> expected = {"a", "b", "42", "c"};
    EXPECT_EQ(AllTokens(tokenizer, NoWordCharacters), expected);
}

TEST_F(StringTokenizerTest, ResetAndSetStringStartAgain) {
    StringTokenizer tokenizer(1);
    tokenizer.SetString("one two");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "one");
    tokenizer.Reset();
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "one");
    tokenizer.SetString("three");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "three");
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), nullptr);
    tokenizer.SetString(nullptr);
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), nullptr);
    EXPECT_EQ(tokenizer.NextLine(), nullptr);
}

TEST_F(StringTokenizerTest, TheTextIsAPrivateCopy) {
    StringTokenizer tokenizer(1);
    char text[] = "alpha beta";
    tokenizer.SetString(text);
    text[0] = 'X';
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "alpha");
}

TEST_F(StringTokenizerTest, LinesKeepTheirEndsAndEmptyLinesStay) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("crlf\r\nlfcr\n\rlf\n\nsame\r\r\ttabbed\tline\r\nlast");
    std::vector<std::string> expected = {"crlf\r\n", "lfcr\n\r",           "lf\n", "\n", "same\r",
                                         "\r",       "\ttabbed\tline\r\n", "last"};
    EXPECT_EQ(AllLines(tokenizer), expected);
    EXPECT_FALSE(tokenizer.GoToNextLine());
}

TEST_F(StringTokenizerTest, LinesAndTokensInterleave) {
    StringTokenizer tokenizer(3);
    tokenizer.SetString("key value\nnext line\n");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "key");
    EXPECT_STREQ(tokenizer.NextLine(), " value\n");
    EXPECT_STREQ(tokenizer.NextLine(), "next line\n");
    EXPECT_EQ(tokenizer.NextLine(), nullptr);
}

TEST_F(StringTokenizerTest, RingOfTwoReusesTheFirstBufferOnTheThirdNext) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("aaaa bbbb cccc dddddddddddddddddddddddddddddddddddd");
    char* first = tokenizer.Next(IsAlphabetical);
    char* second = tokenizer.Next(IsAlphabetical);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_STREQ(first, "aaaa");
    EXPECT_STREQ(second, "bbbb");
    char* third = tokenizer.Next(IsAlphabetical);
    EXPECT_EQ(third, first);
    EXPECT_STREQ(third, "cccc");
    EXPECT_STREQ(second, "bbbb");
    // A token larger than its slot gets a new block for that slot.
    char* fourth = tokenizer.Next(IsAlphabetical);
    EXPECT_STREQ(fourth, "dddddddddddddddddddddddddddddddddddd");
    EXPECT_STREQ(third, "cccc");
}

TEST_F(StringTokenizerTest, NextAfterToken) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("a = 1; target = 42; other = 7");
    EXPECT_STREQ(tokenizer.NextAfterToken("target", IsAlphabetical), "=");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), "42");
    EXPECT_EQ(tokenizer.NextAfterToken("missing", IsAlphabetical), nullptr);
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), nullptr);
}

TEST_F(StringTokenizerTest, ReadFloatWithSigns) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("1.5 -2.25 + 3 - 0.5 10 .5 abc");
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 1.5f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), -2.25f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 3.0f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), -0.5f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 10.0f);
    // "." is a token of its own and reads as 0, then "5".
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 0.0f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 5.0f);
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 0.0f);
    // At the end of the text.
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 0.0f);
    tokenizer.SetString("-");
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), 0.0f);
}

TEST_F(StringTokenizerTest, ZeroBuffersActsAsOne) {
    StringTokenizer tokenizer(0);
    tokenizer.SetString("x y");
    char* first = tokenizer.Next(IsAlphabetical);
    EXPECT_STREQ(first, "x");
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), first);
    EXPECT_STREQ(first, "y");
}

TEST_F(StringTokenizerTest, WideTokenizer) {
    StringTokenizerW tokenizer(2);
    tokenizer.SetString(L"  size 12.5px\r\n\r\n-3 end");
    wchar_t* first = tokenizer.Next(IsAlphabetical);
    EXPECT_STREQ(first, L"size");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), L"12.5");
    wchar_t* third = tokenizer.Next(IsAlphabetical);
    EXPECT_EQ(third, first);
    EXPECT_STREQ(third, L"px");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), L"-");
    tokenizer.Reset();
    EXPECT_STREQ(tokenizer.NextLine(), L"  size 12.5px\r\n");
    EXPECT_STREQ(tokenizer.NextLine(), L"\r\n");
    EXPECT_FLOAT_EQ(tokenizer.ReadFloat(), -3.0f);
    EXPECT_EQ(tokenizer.NextAfterToken(L"end", IsAlphabetical), nullptr);
}

std::vector<std::string> Split(const char* text, const char* separators) {
    ObjectSet<STDString, DefaultComparator<STDString>> result;
    StringTokenizer::SplitString(STDString(text), separators, result);
    std::vector<std::string> parts;
    for (unsigned int index = 0; index < result.GetSize(); ++index) {
        parts.emplace_back(result[index].ToChar());
    }
    return parts;
}

TEST_F(StringTokenizerTest, SplitStringIntoASet) {
    EXPECT_EQ(Split("single", ","), std::vector<std::string>{"single"});
    EXPECT_TRUE(Split("", ",").empty());
    EXPECT_EQ(Split("a,,b;c", ",;"), (std::vector<std::string>{"a", "", "b", "c"}));
    EXPECT_EQ(Split(",a,", ","), (std::vector<std::string>{"", "a"}));
    EXPECT_EQ(Split(",", ","), std::vector<std::string>{""});
    EXPECT_EQ(Split("a b", nullptr), std::vector<std::string>{"a b"});
    ObjectSet<STDString, DefaultComparator<STDString>> result;
    result.Add(STDString("kept"));
    StringTokenizer::SplitString(STDString("x y"), " ", result);
    ASSERT_EQ(result.GetSize(), 3u);
    EXPECT_EQ(result[0], "kept");
    EXPECT_EQ(result[2], "y");
}

TEST_F(StringTokenizerTest, SplitStringIntoAnArray) {
    char** tokens = reinterpret_cast<char**>(1);
    int count = -1;
    StringTokenizer::SplitString(STDString("cmd  -x 1"), " ", tokens, count);
    ASSERT_EQ(count, 4);
    EXPECT_STREQ(tokens[0], "cmd");
    EXPECT_STREQ(tokens[1], "");
    EXPECT_STREQ(tokens[2], "-x");
    EXPECT_STREQ(tokens[3], "1");
    StringTokenizer::FreeSplitString(tokens, count);
    EXPECT_EQ(tokens, nullptr);
    EXPECT_EQ(count, 0);
    StringTokenizer::SplitString(STDString(""), " ", tokens, count);
    EXPECT_EQ(tokens, nullptr);
    EXPECT_EQ(count, 0);
    wchar_t** wideTokens = nullptr;
    StringTokenizerW::SplitString(STDWString(L"a|b"), L"|", wideTokens, count);
    ASSERT_EQ(count, 2);
    EXPECT_STREQ(wideTokens[1], L"b");
    StringTokenizerW::FreeSplitString(wideTokens, count);
    ObjectSet<STDWString, DefaultComparator<STDWString>> wideSet;
    StringTokenizerW::SplitString(STDWString(L"p,q,"), L",", wideSet);
    ASSERT_EQ(wideSet.GetSize(), 2u);
    EXPECT_EQ(wideSet[1], L"q");
}

TEST_F(StringTokenizerTest, TokenizerReturnsItsMemory) {
    size_t before = MemoryManager::GetMemoryInUse();
    {
        StringTokenizer tokenizer(3);
        tokenizer.SetString(
            "some text with tokens of several sizes, and a long one: abcdefghijklmnopqrstuvwxyz");
        AllTokens(tokenizer, IsAlphabetical);
        tokenizer.SetString("replaced");
        char** tokens = nullptr;
        int count = 0;
        StringTokenizer::SplitString(STDString("a b c"), " ", tokens, count);
        StringTokenizer::FreeSplitString(tokens, count);
    }
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), before);
}

class ArgumentStringTest : public CoreLibFixture {};

TEST_F(ArgumentStringTest, GetValueFindsTheNameWithoutCase) {
    char line[] = "game.exe -Level intro -windowed -fps 60 -last";
    ArgumentString arguments(line, 0);
    EXPECT_EQ(arguments.GetCount(), 7);
    STDString value("unset");
    EXPECT_TRUE(arguments.GetValue("-level", value));
    EXPECT_EQ(value, "intro");
    EXPECT_TRUE(arguments.GetValue("-FPS", value));
    EXPECT_EQ(value, "60");
    EXPECT_TRUE(arguments.GetValue("-windowed", value));
    EXPECT_EQ(value, "-fps");
}

TEST_F(ArgumentStringTest, NameAtTheEndReportsAndKeepsTheValue) {
    char line[] = "game.exe -Level intro -last";
    ArgumentString arguments(line, 0);
    ScopedCapture capture;
    STDString value("unchanged");
    EXPECT_TRUE(arguments.GetValue("-LAST", value));
    EXPECT_EQ(value, "unchanged");
    auto reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].channel, LogError);
    EXPECT_EQ(reports[0].message, "Expected value argument after argument '-LAST'");
}

TEST_F(ArgumentStringTest, NameNotFound) {
    char line[] = "game.exe -a 1";
    ArgumentString arguments(line, 0);
    ScopedCapture capture;
    STDString value("same");
    EXPECT_FALSE(arguments.GetValue("-b", value));
    EXPECT_FALSE(arguments.GetValue("1 ", value));
    EXPECT_FALSE(arguments.GetValue(nullptr, value));
    EXPECT_EQ(value, "same");
    EXPECT_TRUE(capture.Reports().empty());
    ArgumentString empty(nullptr, 0);
    EXPECT_EQ(empty.GetCount(), 0);
    EXPECT_FALSE(empty.GetValue("-a", value));
}

TEST_F(ArgumentStringTest, FirstMatchEndsTheWalk) {
    char line[] = "-x first -X second";
    ArgumentString arguments(line, 0);
    STDString value;
    EXPECT_TRUE(arguments.GetValue("-x", value));
    EXPECT_EQ(value, "first");
    EXPECT_STREQ(arguments.GetToken(3), "second");
    EXPECT_EQ(arguments.GetToken(4), nullptr);
}

// ---- files -------------------------------------------------------------------------------------------

class StringTokenizerFileTest : public CoreLibFixture {
protected:
    test::ScratchFolder m_Folder;
};

TEST_F(StringTokenizerFileTest, ScansTheWholeFileWithItsLineEndsTabsAndEmptyLines) {
    m_Folder.Write("words.txt", "alpha 12.5\r\n\tbeta\r\n\r\n\tgamma\n");
    StringTokenizer tokenizer(4);
    tokenizer.SetString("old text");
    ASSERT_TRUE(tokenizer.SetFile(m_Folder.PathOf("words.txt")));
    EXPECT_EQ(AllTokens(tokenizer, IsAlphabetical),
              (std::vector<std::string>{"alpha", "12.5", "beta", "gamma"}));
    tokenizer.Reset();
    std::vector<std::string> lines;
    while (const char* line = tokenizer.NextLine()) {
        lines.emplace_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"alpha 12.5\r\n", "\tbeta\r\n", "\r\n", "\tgamma\n"}));
}

TEST_F(StringTokenizerFileTest, MissingFileLeavesNoText) {
    StringTokenizer tokenizer(2);
    tokenizer.SetString("old text");
    const Path missing = m_Folder.PathOf("missing.txt");
    ScopedCapture capture;
    EXPECT_FALSE(tokenizer.SetFile(missing));
    EXPECT_EQ(tokenizer.Next(IsAlphabetical), nullptr);
    EXPECT_TRUE(capture.Reports().empty());
    m_Folder.Write("empty.txt", "");
    EXPECT_TRUE(tokenizer.SetFile(m_Folder.PathOf("empty.txt")));
    EXPECT_EQ(tokenizer.NextLine(), nullptr);
}

TEST_F(StringTokenizerFileTest, WideTokenizerReadsLittleEndianUnits) {
    // "wide\tword\r\n\r\nnext\u00e9" in 16-bit little-endian units, and an odd byte that is no unit.
    const std::u16string text = u"wide\tword\r\n\r\nnext\u00e9";
    std::string bytes;
    for (char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    bytes += 'x';
    m_Folder.Write("wide.txt", bytes);
    StringTokenizerW tokenizer(4);
    ASSERT_TRUE(tokenizer.SetFile(m_Folder.PathOf("wide.txt")));
    std::vector<std::wstring> lines;
    while (const wchar_t* line = tokenizer.NextLine()) {
        lines.emplace_back(line);
    }
    EXPECT_EQ(lines, (std::vector<std::wstring>{L"wide\tword\r\n", L"\r\n", L"next\u00e9"}));
    tokenizer.Reset();
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), L"wide");
    EXPECT_STREQ(tokenizer.Next(IsAlphabetical), L"word");
}

}  // namespace
}  // namespace zn
