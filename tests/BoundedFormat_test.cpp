// Truncation results, remaining capacity and the reports of the bounded printf family.
#include "CoreLib/BoundedFormat.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/StderrCapture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace zn::test {
namespace {

using BoundedFormat = CoreLibFixture;

TEST_F(BoundedFormat, ZeroCapacityFailsAndWritesNothing) {
    char buffer[8];
    std::memset(buffer, 'x', sizeof(buffer));
    unsigned int size = 0;
    EXPECT_FALSE(znsnprintf_s(buffer, size, "%s", "abc"));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(std::string(buffer, sizeof(buffer)), std::string(8, 'x'));
}

TEST_F(BoundedFormat, TextOfExactlyTheCapacityIsATruncation) {
    char buffer[5];
    unsigned int size = 5;
    EXPECT_FALSE(znsnprintf_s(buffer, size, "%s", "abcde"));
    EXPECT_EQ(size, 0u);
    EXPECT_STREQ(buffer, "abcd");
}

TEST_F(BoundedFormat, TextOneShorterThanTheCapacityFits) {
    char buffer[5];
    unsigned int size = 5;
    EXPECT_TRUE(znsnprintf_s(buffer, size, "%d%c", 123, 'x'));
    EXPECT_EQ(size, 1u);
    EXPECT_STREQ(buffer, "123x");
}

TEST_F(BoundedFormat, SizeCarriesTheRemainingCapacityBetweenCalls) {
    char buffer[16];
    unsigned int size = sizeof(buffer);
    char* cursor = buffer;
    ASSERT_TRUE(znsnprintf_s(cursor, size, "%s", "hello"));
    EXPECT_EQ(size, 11u);
    cursor += sizeof(buffer) - size;
    ASSERT_TRUE(znsnprintf_s(cursor, size, ", %s", "world"));
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(buffer, "hello, world");
    cursor = buffer + sizeof(buffer) - size;
    EXPECT_FALSE(znsnprintf_s(cursor, size, "%s", "!!!!"));
    EXPECT_EQ(size, 0u);
    EXPECT_STREQ(buffer, "hello, world!!!");
}

TEST_F(BoundedFormat, NarrowFormattingOfWideTextIsUtf8WhateverTheLocale) {
    char buffer[32];
    unsigned int size = sizeof(buffer);
    ASSERT_TRUE(znsnprintf_s(buffer, size, "[%ls]", L"\u00e9t\u00e9"));
    EXPECT_STREQ(buffer, "[\xc3\xa9t\xc3\xa9]");
}

TEST_F(BoundedFormat, WideFormsTruncateTheSameWay) {
    wchar_t buffer[5];
    unsigned int size = 5;
    EXPECT_FALSE(znsnwprintf_s(buffer, size, L"%ls", L"abcde"));
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(std::wstring(buffer), L"abcd");

    size = 5;
    EXPECT_TRUE(znsnwprintf_s(buffer, size, L"%d", 42));
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(std::wstring(buffer), L"42");

    size = 0;
    EXPECT_FALSE(znsnwprintf_s(buffer, size, L"%d", 42));
}

TEST_F(BoundedFormat, WideFormattingReadsNarrowTextAsUtf8) {
    wchar_t buffer[16];
    unsigned int size = 16;
    ASSERT_TRUE(znsnwprintf_s(buffer, size, L"%s!", "\xc3\xa9"));
    EXPECT_EQ(std::wstring(buffer), L"\u00e9!");
}

TEST_F(BoundedFormat, OverflowIsReportedWithTheFormat) {
    ScopedCapture capture;
    char buffer[4];
    unsigned int size = sizeof(buffer);
    znsnprintf(buffer, size, "%s-long", "too");
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(reports[0].message,
              "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\n"
              "String format:\n%s-long");
    EXPECT_EQ(reports[0].function, "znvsnprintf");
    EXPECT_EQ(reports[0].file, "CoreLib/BoundedFormat.cpp");
    EXPECT_STREQ(buffer, "too");
}

TEST_F(BoundedFormat, FittingTextIsNotReported) {
    ScopedCapture capture;
    char buffer[8];
    znsprintf(buffer, sizeof(buffer), "%d", 7);
    EXPECT_STREQ(buffer, "7");
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(BoundedFormat, ZeroCapacitySprintfReportsTwice) {
    ScopedCapture capture;
    char buffer[1] = {'q'};
    znsprintf(buffer, 0, "%s", "x");
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Performing a znsprintf with 0 maxCharsToWrite! (Fatal)");
    EXPECT_EQ(messages[1],
              "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\nString "
              "format:\n%s");
    EXPECT_EQ(buffer[0], 'q');
}

TEST_F(BoundedFormat, WideReportsUseTheWideTexts) {
    ScopedCapture capture;
    wchar_t buffer[2];
    znswprintf(buffer, 0, L"%ls \u00e9", L"x");
    znswprintf(buffer, 2, L"%ls", L"xy");
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], "Performing a znswprintf with 0 maxCharsToWrite! (Fatal)");
    EXPECT_EQ(messages[1],
              "znvsnwprintf is going out of range! Use znvsnwprintf_s if you want it to truncate\n"
              "String format:\n%ls \xc3\xa9");
    EXPECT_EQ(messages[2],
              "znvsnwprintf is going out of range! Use znvsnwprintf_s if you want it to truncate\n"
              "String format:\n%ls");
    EXPECT_EQ(std::wstring(buffer), L"x");
}

TEST_F(BoundedFormat, DebugStringGoesToStandardError) {
    StderrCapture err;
    znOutputDebugString("value %d\n", 5);
    znOutputDebugString(L"wide %ls\n", L"\u00e9");
    EXPECT_EQ(err.Text(), "value 5\nwide \xc3\xa9\n");
}

TEST_F(BoundedFormat, OverlongDebugStringIsReportedAndStillSentCut) {
    std::string longText(12000, 'a');
    StderrCapture err;
    {
        ScopedCapture capture;
        znOutputDebugString("%s", longText.c_str());
        std::vector<std::string> messages = capture.Messages();
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(messages[0],
                  "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\n"
                  "String format:\n%s");
    }
    std::string text = err.Text();
    // The report reaches the debug output first, then the cut text of 10238 characters.
    EXPECT_NE(text.find("String format:\n%s\n"), std::string::npos);
    ASSERT_GE(text.size(), 10238u);
    EXPECT_EQ(text.substr(text.size() - 10238), std::string(10238, 'a'));
}

TEST(BoundedFormatWithoutLibrary, WorksAndStaysSilentBeforeStartUp) {
    char buffer[4];
    unsigned int size = sizeof(buffer);
    znsnprintf(buffer, size, "%s", "toolong");
    EXPECT_STREQ(buffer, "too");
    EXPECT_EQ(size, 0u);
}

}  // namespace
}  // namespace zn::test
