// STDString_test.cpp: the vocabulary of STDString and STDWString, their operators and allocator.
#include "CoreLib/STDString.h"

#include "CoreLib/MemoryManager.h"
#include "tests/support/CoreLibFixture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <type_traits>

namespace zn {

// Reaches the private whitespace scanner.
class STDStringHacker {
public:
    static const char* ConsumeWhitespace(const char* text, unsigned int limit) {
        return STDStringCore<char, STDString>::ConsumeWhitespace(text, limit);
    }
    static const wchar_t* ConsumeWhitespace(const wchar_t* text, unsigned int limit) {
        return STDStringCore<wchar_t, STDWString>::ConsumeWhitespace(text, limit);
    }
};

namespace {

using test::CoreLibFixture;

static_assert(
    std::is_base_of_v<std::basic_string<char, std::char_traits<char>, StringAllocator<char>>, STDString>);
static_assert(std::is_base_of_v<TrackedObject<STDString>, STDString>);
static_assert(std::is_base_of_v<TrackedObject<STDWString>, STDWString>);
static_assert(sizeof(STDString) == sizeof(std::string), "no data of its own");
static_assert(sizeof(STDWString) == sizeof(std::wstring), "no data of its own");

TEST(STDStringConstruction, CapacityConstructorsReserveAndStayEmpty) {
    STDString fromInt(16);
    EXPECT_TRUE(fromInt.IsEmpty());
    EXPECT_EQ(fromInt.Length(), 0u);
    EXPECT_GE(fromInt.capacity(), 16u);
    STDString fromUnsigned(100u);
    EXPECT_TRUE(fromUnsigned.IsEmpty());
    EXPECT_GE(fromUnsigned.capacity(), 100u);
    STDString negative(-5);
    EXPECT_TRUE(negative.IsEmpty());
}

TEST(STDStringConstruction, FromCharactersTextAndLength) {
    EXPECT_EQ(STDString('x'), "x");
    EXPECT_EQ(STDString("hello"), "hello");
    EXPECT_EQ(STDString("hello", 3), "hel");
    EXPECT_EQ(STDString("hello", -1), "hello");
    EXPECT_TRUE(STDString(static_cast<const char*>(nullptr)).IsEmpty());
    EXPECT_TRUE(STDString(nullptr, 4).IsEmpty());
    STDString original("copy me");
    STDString copy(original);
    EXPECT_EQ(copy, original);
    copy.SetAt(0, 'C');
    EXPECT_EQ(original, "copy me");
    EXPECT_EQ(copy, "Copy me");
}

TEST(STDStringConstruction, EmptyStringIsEmpty) {
    EXPECT_TRUE(STDString::EmptyString.IsEmpty());
    EXPECT_TRUE(STDWString::EmptyString.IsEmpty());
}

TEST(STDStringAccess, LengthCharactersAndEmpty) {
    STDString text("abc");
    EXPECT_EQ(text.Length(), 3u);
    EXPECT_STREQ(text.ToChar(), "abc");
    EXPECT_EQ(text.GetAt(1), 'b');
    EXPECT_EQ(text.GetAt(3), '\0');
    EXPECT_EQ(text[2u], 'c');
    text[0u] = 'A';
    text.SetAt(1, 'B');
    text.SetAt(9, 'Z');
    EXPECT_EQ(text, "ABc");
    text.Empty();
    EXPECT_TRUE(text.IsEmpty());
}

TEST(STDStringCompare, CaseSensitiveAndNot) {
    STDString text("Hello");
    EXPECT_EQ(text.Compare("Hello"), 0);
    EXPECT_LT(text.Compare("hello"), 0);
    EXPECT_GT(text.Compare("Hell"), 0);
    EXPECT_GT(text.Compare(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(STDString().Compare(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(text.CompareNoCase("hELLO"), 0);
    EXPECT_LT(text.CompareNoCase("help"), 0);
    EXPECT_GT(text.CompareNoCase("HELL"), 0);
    EXPECT_LT(text.CompareNoCase(STDString("hellos")), 0);
    EXPECT_TRUE(text.Equals("Hello"));
    EXPECT_FALSE(text.Equals("hello"));
    EXPECT_TRUE(text.Equals(STDString("Hello")));
    EXPECT_TRUE(text.EqualsNoCase("HELLO"));
    EXPECT_TRUE(text.EqualsNoCase(STDString("hello")));
    EXPECT_FALSE(text.EqualsNoCase("hellp"));
    // "_" sorts between the upper and the lower letters; folding to lower case puts it first.
    EXPECT_GT(STDString("a").CompareNoCase("_"), 0);
}

TEST(STDStringCompare, EqualsNoCaseWithCount) {
    STDString text("FileName.txt");
    EXPECT_TRUE(text.EqualsNoCase("FILENAME", 8));
    EXPECT_FALSE(text.EqualsNoCase("FILENAME", 9));
    EXPECT_TRUE(text.EqualsNoCase("xyz", 0));
    EXPECT_TRUE(STDString("ab").EqualsNoCase("AB", 10));
    EXPECT_FALSE(STDString("ab").EqualsNoCase("ABC", 10));
}

TEST(STDStringSearch, ContainsAndFind) {
    STDString text("one two three two");
    EXPECT_TRUE(text.Contains("two"));
    EXPECT_FALSE(text.Contains("TWO"));
    EXPECT_TRUE(text.ContainsNoCase("TWO"));
    EXPECT_TRUE(text.Contains(STDString("three")));
    EXPECT_TRUE(text.ContainsNoCase(STDString("THREE")));
    EXPECT_FALSE(text.Contains(static_cast<const char*>(nullptr)));
    EXPECT_EQ(text.Find('t'), 4);
    EXPECT_EQ(text.Find('t', 5), 8);
    EXPECT_EQ(text.Find('z'), -1);
    EXPECT_EQ(text.Find("two"), 4);
    EXPECT_EQ(text.Find("two", 5), 14);
    EXPECT_EQ(text.Find("four"), -1);
    EXPECT_EQ(text.Find("two", 100), -1);
    EXPECT_EQ(text.FindNoCase("TWO", 5), 14);
    EXPECT_EQ(text.FindNoCase("FOUR"), -1);
    EXPECT_EQ(text.FindReverse('t'), 14);
    EXPECT_EQ(text.FindReverse('t', 13), 8);
    EXPECT_EQ(text.FindReverse('z'), -1);
    EXPECT_EQ(text.FindOneOf("wh"), 5);
    EXPECT_EQ(text.FindOneOf("wh", 6), 9);
    EXPECT_EQ(text.FindOneOf("xyz"), -1);
}

TEST(STDStringSubstrings, AllForms) {
    STDString text("key=value;rest");
    EXPECT_EQ(text.GetSubstring(4, 5), "value");
    EXPECT_EQ(text.GetSubstring(10, 100), "rest");
    EXPECT_EQ(text.GetSubstring(100, 2), "");
    EXPECT_EQ(text.GetSubstring(0, "=;"), "key");
    EXPECT_EQ(text.GetSubstring(4, ";"), "value");
    EXPECT_EQ(text.GetSubstring(10, ";"), "rest");
    EXPECT_EQ(text.Mid(4, 5), "value");
    EXPECT_EQ(text.Mid(10), "rest");
    EXPECT_EQ(text.Left(3), "key");
    EXPECT_EQ(text.Left(99), text);
    EXPECT_EQ(text.Right(4), "rest");
    EXPECT_EQ(text.Right(99), text);
    EXPECT_EQ(text.Right(0), "");
}

TEST(STDStringEdits, CaseReverseAndTrim) {
    STDString text("MiXeD 123 _\xC4");
    text.ToUpper();
    EXPECT_EQ(text, "MIXED 123 _\xC4");
    text.ToLower();
    EXPECT_EQ(text, "mixed 123 _\xC4");
    STDString word("abc");
    word.Reverse();
    EXPECT_EQ(word, "cba");
    STDString dashed("--a-b--");
    dashed.TrimLeft('-');
    EXPECT_EQ(dashed, "a-b--");
    dashed.TrimRight('-');
    EXPECT_EQ(dashed, "a-b");
    STDString allDashes("---");
    allDashes.TrimRight('-');
    EXPECT_TRUE(allDashes.IsEmpty());
    STDString spaced(" \t\r\n body \n\t");
    spaced.TrimWhiteSpaceLeftAndRight();
    EXPECT_EQ(spaced, "body");
    STDString allWhite(" \t\r\n");
    allWhite.TrimWhiteSpaceLeftAndRight();
    EXPECT_TRUE(allWhite.IsEmpty());
    STDString empty;
    empty.TrimWhiteSpaceLeftAndRight();
    EXPECT_TRUE(empty.IsEmpty());
}

TEST(STDStringEdits, ConcatenateAllForms) {
    STDString text("a");
    char mutableText[] = "c";
    text.Concatenate('b')
        .Concatenate(mutableText)
        .Concatenate(STDString("d"))
        .Concatenate(static_cast<const char*>(nullptr));
    text += 'e';
    text += "f";
    text += mutableText;
    text += STDString("g");
    EXPECT_EQ(text, "abcdefcg");
}

TEST(STDStringEdits, ReplaceEveryOccurrence) {
    STDString text("a.b.c");
    text.Replace(".", "::");
    EXPECT_EQ(text, "a::b::c");
    // Searching from the start again sees the occurrences a replacement makes.
    STDString runs("a    b  c");
    runs.Replace("  ", " ");
    EXPECT_EQ(runs, "a b c");
    STDString joined("aaab");
    joined.Replace("ab", "b");
    EXPECT_EQ(joined, "b");
    // A replacement that holds the pattern is put in once for each original occurrence.
    STDString lines("x\ny\n");
    lines.Replace("\n", "\r\n");
    EXPECT_EQ(lines, "x\r\ny\r\n");
    STDString unchanged("abc");
    unchanged.Replace("abcd", "x");
    unchanged.Replace(nullptr, "x");
    unchanged.Replace("a", nullptr);
    unchanged.Replace("", "x");
    EXPECT_EQ(unchanged, "abc");
    STDString removed("a-b-c");
    removed.Replace("-", "");
    EXPECT_EQ(removed, "abc");
    STDString self("abab");
    self.Replace(self.ToChar(), "x");
    EXPECT_EQ(self, "x");
}

TEST(STDStringEdits, ReplaceNoCase) {
    STDString text("Path\\TO\\to\\file");
    text.ReplaceNoCase("\\to", "/x");
    EXPECT_EQ(text, "Path/x/x\\file");
    STDString grow("AaA");
    grow.ReplaceNoCase("a", "[A]");
    EXPECT_EQ(grow, "[A][A][A]");
}

TEST(STDStringEdits, InsertRemoveRangeAndResize) {
    STDString text("held");
    text.Insert("llo wor", 2);
    EXPECT_EQ(text, "hello world");
    text.Insert("!", text.Length());
    EXPECT_EQ(text, "hello world!");
    text.Insert(">", 0);
    EXPECT_EQ(text, ">hello world!");
    text.Insert("x", 100);
    text.Insert(nullptr, 0);
    EXPECT_EQ(text, ">hello world!");
    text.RemoveRange(0, 1);
    EXPECT_EQ(text, "hello world!");
    text.RemoveRange(5, 6);
    EXPECT_EQ(text, "hello!");
    text.RemoveRange(4, 100);
    EXPECT_EQ(text, "hell");
    text.RemoveRange(10, 1);
    EXPECT_EQ(text, "hell");
    EXPECT_TRUE(text.Resize(6));
    EXPECT_EQ(text.Length(), 6u);
    EXPECT_EQ(text[4u], '\0');
    EXPECT_EQ(text[5u], '\0');
    EXPECT_TRUE(text.Resize(2));
    EXPECT_EQ(text, "he");
    EXPECT_TRUE(text.Resize(2));
    EXPECT_EQ(text, "he");
}

TEST(STDStringOperators, ConcatenationPairs) {
    STDString left("ab");
    EXPECT_EQ(left + STDString("cd"), "abcd");
    EXPECT_EQ(left + 'c', "abc");
    EXPECT_EQ('z' + left, "zab");
    EXPECT_EQ(left + "cd", "abcd");
    EXPECT_EQ("xy" + left, "xyab");
    static_assert(std::is_same_v<decltype(left + "cd"), STDString>);
    static_assert(std::is_same_v<decltype('z' + left), STDString>);
}

TEST(STDStringOperators, ComparisonPairs) {
    STDString apple("apple");
    STDString banana("banana");
    EXPECT_TRUE(apple == STDString("apple"));
    EXPECT_TRUE(apple == "apple");
    EXPECT_TRUE("apple" == apple);
    EXPECT_TRUE(apple != banana);
    EXPECT_TRUE(apple != "Apple");
    EXPECT_TRUE("Apple" != apple);
    EXPECT_TRUE(apple < banana);
    EXPECT_TRUE(apple < "b");
    EXPECT_TRUE("a" < apple);
    EXPECT_TRUE(banana > apple);
    EXPECT_TRUE(banana > "apple");
    EXPECT_TRUE("c" > banana);
    EXPECT_TRUE(apple <= STDString("apple"));
    EXPECT_TRUE(apple <= "apple");
    EXPECT_TRUE("apple" <= apple);
    EXPECT_TRUE(banana >= apple);
    EXPECT_TRUE(banana >= "banana");
    EXPECT_TRUE("banana" >= banana);
    EXPECT_FALSE(apple > banana);
    EXPECT_FALSE(apple >= "b");
    EXPECT_FALSE("b" <= apple);
}

TEST(STDStringPrivate, ConsumeWhitespace) {
    const char* text = " \t x";
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(text, 10), text + 3);
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(text, 2), text + 1);
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(text, 1), text);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(STDStringHacker::ConsumeWhitespace(text, 0)),
              reinterpret_cast<uintptr_t>(text) - 1);
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(static_cast<const char*>(nullptr), 3), nullptr);
    const char* blank = "  ";
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(blank, 10), blank + 2);
    const wchar_t* wide = L"\t a";
    EXPECT_EQ(STDStringHacker::ConsumeWhitespace(wide, 5), wide + 2);
}

TEST(STDWStringVocabulary, SameOperationsOnWideUnits) {
    STDWString capacity(16);
    EXPECT_TRUE(capacity.IsEmpty());
    EXPECT_GE(capacity.capacity(), 16u);
    STDWString text(L"  Hello Wide World  ");
    text.TrimWhiteSpaceLeftAndRight();
    EXPECT_EQ(text, L"Hello Wide World");
    EXPECT_EQ(text.Find(L"Wide"), 6);
    EXPECT_EQ(text.Find(L'z'), -1);
    EXPECT_EQ(text.FindNoCase(L"WORLD"), 11);
    EXPECT_EQ(text.FindReverse(L'o'), 12);
    EXPECT_EQ(text.FindOneOf(L"dW"), 6);
    EXPECT_TRUE(text.ContainsNoCase(L"hello"));
    EXPECT_FALSE(text.Contains(L"hello"));
    EXPECT_TRUE(text.EqualsNoCase(L"HELLO WIDE WORLD"));
    EXPECT_TRUE(text.EqualsNoCase(L"HELLOx", 5));
    EXPECT_EQ(text.GetSubstring(6, 4), L"Wide");
    EXPECT_EQ(text.GetSubstring(6, L" "), L"Wide");
    EXPECT_EQ(text.Left(5), L"Hello");
    EXPECT_EQ(text.Right(5), L"World");
    EXPECT_EQ(text.Mid(6, 4), L"Wide");
    text.Replace(L"Wide ", L"");
    EXPECT_EQ(text, L"Hello World");
    text.ReplaceNoCase(L"WORLD", L"There");
    EXPECT_EQ(text, L"Hello There");
    text.Insert(L",", 5);
    text.RemoveRange(6, 1);
    EXPECT_EQ(text, L"Hello,There");
    text.ToUpper();
    EXPECT_EQ(text, L"HELLO,THERE");
    text.ToLower();
    EXPECT_EQ(text, L"hello,there");
    text.Reverse();
    EXPECT_EQ(text, L"ereht,olleh");
    EXPECT_TRUE(text.Resize(3));
    EXPECT_EQ(text, L"ere");
    // A unit outside ASCII is not folded.
    STDWString accented(L"\x00E9");
    accented.ToUpper();
    EXPECT_EQ(accented[0u], L'\x00E9');
}

TEST(STDWStringVocabulary, OperatorsAndComparisons) {
    STDWString left(L"ab");
    EXPECT_EQ(left + STDWString(L"cd"), L"abcd");
    EXPECT_EQ(left + L'c', L"abc");
    EXPECT_EQ(L'z' + left, L"zab");
    EXPECT_EQ(left + L"cd", L"abcd");
    EXPECT_EQ(L"xy" + left, L"xyab");
    left += L'!';
    left += L"?";
    EXPECT_EQ(left, L"ab!?");
    EXPECT_TRUE(STDWString(L"a") < STDWString(L"b"));
    EXPECT_TRUE(STDWString(L"a") <= L"a");
    EXPECT_TRUE(L"b" > STDWString(L"a"));
    EXPECT_TRUE(STDWString(L"b") >= L"a");
    EXPECT_TRUE(L"x" != STDWString(L"y"));
    EXPECT_EQ(STDWString(L"abc", 2), L"ab");
    EXPECT_EQ(STDWString(L'q'), L"q");
}

class STDStringTracked : public CoreLibFixture {};

TEST_F(STDStringTracked, NewTakesTheObjectFromTheGlobalHeap) {
    size_t before = MemoryManager::GetMemoryInUse();
    STDString* text = new STDString("tracked");
    ASSERT_NE(text, nullptr);
    EXPECT_GT(MemoryManager::GetMemoryInUse(), before);
    EXPECT_EQ(*text, "tracked");
    delete text;
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), before);
}

TEST(StringAllocator, ShortStringsNeedNoAllocationAndAllocatorsCompareEqual) {
    STDString shortText("fifteen chars!!");
    EXPECT_EQ(shortText.Length(), 15u);
    // The inline buffer lies inside the object itself.
    const char* inside = reinterpret_cast<const char*>(&shortText);
    EXPECT_TRUE(shortText.data() >= inside && shortText.data() < inside + sizeof(shortText));
    STDString longText("sixteen chars!!!");
    EXPECT_FALSE(longText.data() >= reinterpret_cast<const char*>(&longText) &&
                 longText.data() < reinterpret_cast<const char*>(&longText) + sizeof(longText));
    EXPECT_TRUE(StringAllocator<char>() == StringAllocator<wchar_t>());
    EXPECT_FALSE(StringAllocator<char>() != StringAllocator<char>());
}

}  // namespace
}  // namespace zn
