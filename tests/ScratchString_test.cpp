// Scratch strings: sizes and limits, exact growth, the fixed form's report, number formats, cuts,
// the shared conversion buffer, and the wide twin.
#include "CoreLib/ScratchString.h"

#include "CoreLib/FixedString.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cwchar>
#include <string>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr unsigned int kInfinite = ScratchString::MAX_SIZE_INFINITE;
const char* const kCannotGrow = "Scratchstring is not allowed to grow.  Choose a better initial size?";

// Opens the shared statics for inspection.
struct ScratchStringProbe : ScratchString {
    using ScratchString::ScratchString;
    static char* ConversionBuffer() { return g_ConversionBuffer; }
    static int RefCounter() { return g_RefCounter; }
};

class ScratchStringTest : public CoreLibFixture {};

TEST_F(ScratchStringTest, InitialSizeIsClippedIntoOneToFFFF) {
    ScratchString empty(0, kInfinite, true);
    EXPECT_EQ(empty.GetAllocatedSize(), 1u);
    EXPECT_EQ(empty.GetSize(), 0u);
    EXPECT_TRUE(empty.IsReset());
    EXPECT_STREQ(empty.ToChar(), "");

    ScratchString large(0x20000, kInfinite, true);
    EXPECT_EQ(large.GetAllocatedSize(), 0xFFFFu);
    EXPECT_EQ(large.GetMaximumSize(), kInfinite);
}

TEST_F(ScratchStringTest, GrowsByExactlyWhatIsNeeded) {
    ScratchString text(4, kInfinite, true);
    text << "abc";
    EXPECT_EQ(text.GetAllocatedSize(), 4u) << "three characters and the terminator fit";
    text << "defgh";
    EXPECT_EQ(text.GetAllocatedSize(), 9u) << "no doubling: eight characters and the terminator";
    EXPECT_STREQ(text.ToChar(), "abcdefgh");
    EXPECT_EQ(text.GetSize(), 8u);
}

TEST_F(ScratchStringTest, MaximumTruncatesSilently) {
    ScratchString text(1, 8, true);
    ScopedCapture capture;
    text << "0123456789";
    EXPECT_STREQ(text.ToChar(), "0123456");
    EXPECT_EQ(text.GetSize(), 7u);
    EXPECT_EQ(text.GetAllocatedSize(), 8u);
    text << "more" << 'x' << 12;
    EXPECT_STREQ(text.ToChar(), "0123456") << "a full string takes nothing more";
    EXPECT_THAT(capture.Messages(), IsEmpty());
}

TEST_F(ScratchStringTest, MaximumLoweredBelowTheTextAppendsNothing) {
    ScratchString text(16, kInfinite, true);
    text << "abcdef";
    text.SetMaximumSize(3);
    text << "gh";
    EXPECT_STREQ(text.ToChar(), "abcdef");
}

TEST_F(ScratchStringTest, FixedStringReportsEachAttemptAndKeepsItsText) {
    ScratchString text(4, kInfinite, false);
    text << "abc";
    ScopedCapture capture;
    text << "d";
    text << "efg";
    EXPECT_STREQ(text.ToChar(), "abc");
    EXPECT_EQ(text.GetAllocatedSize(), 4u);
    EXPECT_THAT(capture.Messages(), ElementsAre(kCannotGrow, kCannotGrow));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(capture.Reports()[0].function, "zn::ScratchString::Grow");
}

TEST_F(ScratchStringTest, NumbersUseTheirFormats) {
    ScratchString text(1, kInfinite, true);
    text << -12L << ' ' << 4000000000UL << ' ' << -7 << ' ' << 42u << ' ' << 1.5f << ' ' << 0.25;
    EXPECT_STREQ(text.ToChar(), "-12 4000000000 -7 42 1.500000 0.25");
}

TEST_F(ScratchStringTest, FloatPrecisionRebuildsBothFormats) {
    ScratchString text(1, kInfinite, true);
    text.SetFloatPrecision(2);
    text << 1.5f << ' ' << 3.14159;
    EXPECT_STREQ(text.ToChar(), "1.50 3.1") << "%.2f for float, %.2g for double";
    text.Reset();
    text.SetFloatPrecision(-1);
    text << 1.5f << ' ' << 3.14159;
    EXPECT_STREQ(text.ToChar(), "1.500000 3.14159");
    text.Reset();
    text.SetFloatPrecision(0);
    text << 2.5f;
    EXPECT_STREQ(text.ToChar(), "2");
}

TEST_F(ScratchStringTest, FormattedTextObeysTheLimit) {
    ScratchString text(1, kInfinite, true);
    text.AppendFormattedString("%s=%d;", "x", 5).AppendFormattedString("%05.1f", 2.25);
    EXPECT_STREQ(text.ToChar(), "x=5;002.2");
    EXPECT_EQ(text.GetSize(), 9u);

    ScratchString limited(1, 6, true);
    ScopedCapture capture;
    limited.AppendFormattedString("%d", 1234567);
    EXPECT_STREQ(limited.ToChar(), "12345");
    EXPECT_EQ(limited.GetSize(), 5u);
    EXPECT_THAT(
        capture.Messages(),
        ElementsAre("znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\n"
                    "String format:\n%d"));
}

TEST_F(ScratchStringTest, EmptyFormattedTextChangesNothing) {
    ScratchString text(1, kInfinite, false);
    ScopedCapture capture;
    text.AppendFormattedString("%s", "");
    EXPECT_STREQ(text.ToChar(), "");
    EXPECT_THAT(capture.Messages(), IsEmpty());
}

TEST_F(ScratchStringTest, CutAndReplace) {
    ScratchString text(1, kInfinite, true);
    text << "abcdefgh";
    text.Cut(2, 3);
    EXPECT_STREQ(text.ToChar(), "abfgh");
    text.Cut(10, 1);
    text.Cut(1, 0);
    EXPECT_STREQ(text.ToChar(), "abfgh") << "a position past the end or a count of 0 does nothing";
    text.Cut(3, 100);
    EXPECT_STREQ(text.ToChar(), "abf");
    text.Cut(1, kInfinite);
    EXPECT_STREQ(text.ToChar(), "a");
    EXPECT_EQ(text.GetSize(), 1u);

    text << "/b/c/";
    text.Replace('/', '\\');
    EXPECT_STREQ(text.ToChar(), "a\\b\\c\\");
}

TEST_F(ScratchStringTest, StringsOfTheLibraryAppendAndConvert) {
    FixedString interned("interned");
    ScratchString text(1, kInfinite, true);
    text << interned << '+' << STDString("standard");
    text.Concatenate("-tail", 2).Concatenate(FixedString()).Concatenate(7);
    EXPECT_STREQ(text.ToChar(), "interned+standard-t7");
    STDString copy = text;
    EXPECT_EQ(copy, STDString("interned+standard-t7"));
    EXPECT_STREQ(static_cast<const char*>(text), "interned+standard-t7");
}

TEST_F(ScratchStringTest, AppendingItselfSurvivesTheGrowth) {
    ScratchString text(1, kInfinite, true);
    text << "echo";
    text << text.ToChar();
    EXPECT_STREQ(text.ToChar(), "echoecho");
}

TEST_F(ScratchStringTest, LastInstanceFreesTheConversionBuffer) {
    int before = ScratchStringProbe::RefCounter();
    ASSERT_EQ(before, 0) << "no scratch string outlives its test";
    {
        ScratchStringProbe first(1, kInfinite, true);
        char* shared = ScratchStringProbe::ConversionBuffer();
        ASSERT_NE(shared, nullptr);
        {
            ScratchStringProbe second(1, kInfinite, true);
            EXPECT_EQ(ScratchStringProbe::ConversionBuffer(), shared);
            EXPECT_EQ(ScratchStringProbe::RefCounter(), 2);
        }
        EXPECT_EQ(ScratchStringProbe::ConversionBuffer(), shared) << "one instance is still alive";
    }
    EXPECT_EQ(ScratchStringProbe::ConversionBuffer(), nullptr);
    ScratchStringProbe again(1, kInfinite, true);
    EXPECT_NE(ScratchStringProbe::ConversionBuffer(), nullptr);
    again << 5;
    EXPECT_STREQ(again.ToChar(), "5");
}

TEST_F(ScratchStringTest, WideFormCountsWideCharacters) {
    ScratchStringW text(0, 10, true);
    text << L"h\u00e9llo" << L' ' << 42 << L'.';
    EXPECT_STREQ(text.ToChar(), L"h\u00e9llo 42.");
    EXPECT_EQ(text.GetSize(), 9u);
    text << L"overflow";
    EXPECT_STREQ(text.ToChar(), L"h\u00e9llo 42.") << "nine characters and the terminator fill the maximum";

    ScratchStringW formatted(1, kInfinite, true);
    formatted.SetFloatPrecision(1);
    formatted.AppendFormattedString(L"%ls:%d:", L"w\u00fcrfel", 3) << 0.5f << STDWString(L"!");
    EXPECT_STREQ(formatted.ToChar(), L"w\u00fcrfel:3:0.5!");
    STDWString copy = formatted;
    EXPECT_EQ(copy.size(), formatted.GetSize());
}

TEST_F(ScratchStringTest, WideFixedFormReportsUnderItsOwnName) {
    ScratchStringW text(2, kInfinite, false);
    ScopedCapture capture;
    text << L"abc";
    EXPECT_STREQ(text.ToChar(), L"");
    ASSERT_THAT(capture.Messages(), ElementsAre(kCannotGrow));
    EXPECT_EQ(capture.Reports()[0].function, "zn::ScratchStringW::Grow");
}

TEST_F(ScratchStringTest, DestroyEmptiesAndTheStringCanBeDestructedAfter) {
    struct Destroyer : ScratchString {
        using ScratchString::Destroy;
        using ScratchString::ScratchString;
    } early(8, kInfinite, true);
    early << "x";
    early.Destroy();
    EXPECT_EQ(early.GetSize(), 0u);
    EXPECT_EQ(early.GetAllocatedSize(), 0u);
    EXPECT_STREQ(early.ToChar(), "");
    early << "back";
    EXPECT_STREQ(early.ToChar(), "back") << "a destroyed string grows again from nothing";
}

}  // namespace
}  // namespace zn::test
