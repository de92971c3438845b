// Localization_test.cpp: the UTF-8 and wide text conversions against glibc's iconv, counted and
// unterminated texts, and malformed input on both sides.
#include "CoreLib/Localization.h"

#include "tests/support/IconvOracle.h"

#include <gtest/gtest.h>

#include <iconv.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zn {
namespace {

using Units = std::vector<uint32_t>;
using test::Iconv;
using test::Utf32Bytes;

Units Utf16LeUnits(const std::string& bytes) {
    Units units;
    for (size_t at = 0; at + 1 < bytes.size(); at += 2) {
        units.push_back(static_cast<uint8_t>(bytes[at]) | (static_cast<uint8_t>(bytes[at + 1]) << 8));
    }
    return units;
}

Units UnitsOf(const wchar_t* text, unsigned int length) {
    Units units;
    for (unsigned int index = 0; index < length; ++index) {
        units.push_back(static_cast<uint32_t>(text[index]));
    }
    return units;
}

std::wstring WideOf(const Units& units) {
    std::wstring wide;
    for (uint32_t unit : units) {
        wide += static_cast<wchar_t>(unit);
    }
    return wide;
}

// Code points from every range that encodes differently: one, two, three and four UTF-8 bytes,
// the BMP on both sides of the surrogates, and all sixteen supplementary planes.
char32_t RandomCodePoint(std::mt19937& random) {
    switch (random() % 5) {
        case 0:
            return std::uniform_int_distribution<char32_t>(0x01, 0x7F)(random);
        case 1:
            return std::uniform_int_distribution<char32_t>(0x80, 0x7FF)(random);
        case 2:
            return std::uniform_int_distribution<char32_t>(0x800, 0xD7FF)(random);
        case 3:
            return std::uniform_int_distribution<char32_t>(0xE000, 0xFFFF)(random);
        default: {
            char32_t plane = std::uniform_int_distribution<char32_t>(1, 16)(random);
            return (plane << 16) | std::uniform_int_distribution<char32_t>(0, 0xFFFF)(random);
        }
    }
}

struct Sample {
    std::string utf8;
    Units units;
};

// Texts made by iconv from the same code points: the oracle for both directions.
std::vector<Sample> RandomSamples(unsigned int count) {
    std::mt19937 random(0x5EED1234);
    std::vector<Sample> samples;
    const std::vector<char32_t> edges = {0x7F,   0x80,   0x7FF,  0x800,   0xD7FF,
                                         0xE000, 0xFFFD, 0xFFFF, 0x10000, 0x10FFFF};
    samples.push_back({Iconv("UTF-8", "UTF-32LE", Utf32Bytes(edges)),
                       Utf16LeUnits(Iconv("UTF-16LE", "UTF-32LE", Utf32Bytes(edges)))});
    for (unsigned int index = 0; index < count; ++index) {
        std::vector<char32_t> codePoints(random() % 48);
        for (char32_t& codePoint : codePoints) {
            codePoint = RandomCodePoint(random);
        }
        std::string utf32 = Utf32Bytes(codePoints);
        samples.push_back(
            {Iconv("UTF-8", "UTF-32LE", utf32), Utf16LeUnits(Iconv("UTF-16LE", "UTF-32LE", utf32))});
    }
    return samples;
}

Units Decode(const std::string& utf8) {
    Localization::ConvertMultiByteToWide wide(utf8.c_str(), static_cast<int>(utf8.size()));
    return UnitsOf(wide.Get(), wide.GetLength());
}

std::string Encode(const Units& units) {
    std::wstring wide = WideOf(units);
    Localization::ConvertWideToMultiByte narrow(wide.c_str(), static_cast<int>(wide.size()));
    return std::string(narrow.Get(), narrow.GetLength());
}

// Every sample goes through each form: terminated, counted in a block of exactly its size with no
// terminator (reading one element further is caught by ASan), and as a library string.
TEST(LocalizationConvert, AgreesWithIconvOnRandomTextsOfAllPlanesInEveryForm) {
    const std::vector<Sample> samples = RandomSamples(4000);
    for (size_t index = 0; index < samples.size(); ++index) {
        const Sample& sample = samples[index];
        ASSERT_EQ(Utf16LeUnits(Iconv("UTF-16LE", "UTF-8", sample.utf8)), sample.units)
            << "oracle, sample " << index;

        Localization::ConvertMultiByteToWide wide(sample.utf8.c_str());
        ASSERT_EQ(UnitsOf(wide.Get(), wide.GetLength()), sample.units) << "to wide, sample " << index;
        ASSERT_EQ(wide.Get()[wide.GetLength()], L'\0');
        auto bytes = std::make_unique<char[]>(sample.utf8.size());
        std::copy(sample.utf8.begin(), sample.utf8.end(), bytes.get());
        Localization::ConvertMultiByteToWide counted(bytes.get(), static_cast<int>(sample.utf8.size()));
        ASSERT_EQ(UnitsOf(counted.Get(), counted.GetLength()), sample.units) << "counted, sample " << index;
        Localization::ConvertMultiByteToWide fromString(STDString(sample.utf8.c_str()));
        ASSERT_EQ(UnitsOf(fromString.Get(), fromString.GetLength()), sample.units)
            << "STDString, sample " << index;

        const std::wstring units = WideOf(sample.units);
        Localization::ConvertWideToMultiByte narrow(units.c_str());
        ASSERT_EQ(std::string(narrow.Get()), sample.utf8) << "to UTF-8, sample " << index;
        ASSERT_EQ(narrow.GetLength(), sample.utf8.size());
        auto block = std::make_unique<wchar_t[]>(units.size());
        std::copy(units.begin(), units.end(), block.get());
        Localization::ConvertWideToMultiByte countedNarrow(block.get(), static_cast<int>(units.size()));
        ASSERT_EQ(std::string(countedNarrow.Get(), countedNarrow.GetLength()), sample.utf8)
            << "counted, sample " << index;
        Localization::ConvertWideToMultiByte fromWideString(STDWString(units.c_str()));
        ASSERT_EQ(std::string(fromWideString.Get()), sample.utf8) << "STDWString, sample " << index;
    }
}

TEST(LocalizationConvertCount, CountCutsLongerTextsAndStopsAtNul) {
    const std::string text = "abc\xC3\xA9xyz";
    // An unterminated block: the conversion must not look past the count.
    std::vector<char> block(text.begin(), text.end());
    Localization::ConvertMultiByteToWide prefix(block.data(), 5);
    EXPECT_EQ(std::wstring(prefix.Get()), L"abc\u00E9");
    EXPECT_EQ(prefix.GetLength(), 4u);

    const char withNul[] = {'a', 'b', '\0', 'c', 'd'};
    Localization::ConvertMultiByteToWide stopped(withNul, 5);
    EXPECT_EQ(std::wstring(stopped.Get()), L"ab");
    EXPECT_EQ(stopped.GetLength(), 2u);

    const wchar_t wide[] = {L'p', L'q', 0xD83D, 0xDE00, L'r'};
    Localization::ConvertWideToMultiByte widePrefix(wide, 4);
    EXPECT_EQ(std::string(widePrefix.Get()), "pq\xF0\x9F\x98\x80");
    const wchar_t wideNul[] = {L'p', L'\0', L'q'};
    Localization::ConvertWideToMultiByte wideStopped(wideNul, 3);
    EXPECT_EQ(std::string(wideStopped.Get()), "p");
    EXPECT_EQ(wideStopped.GetLength(), 1u);

    // Any negative count reads to the terminator.
    Localization::ConvertMultiByteToWide negative("hello", -7);
    EXPECT_EQ(std::wstring(negative.Get()), L"hello");
    Localization::ConvertWideToMultiByte wideNegative(L"hello", -2);
    EXPECT_EQ(std::string(wideNegative.Get()), "hello");
}

TEST(LocalizationConvertCount, EmptyZeroCountAndNullGiveEmptyTerminatedText) {
    const char* narrowTexts[] = {"", nullptr};
    for (const char* text : narrowTexts) {
        Localization::ConvertMultiByteToWide wide(text);
        ASSERT_NE(wide.Get(), nullptr);
        EXPECT_EQ(wide.Get()[0], L'\0');
        EXPECT_EQ(wide.GetLength(), 0u);
    }
    const wchar_t* wideTexts[] = {L"", nullptr};
    for (const wchar_t* text : wideTexts) {
        Localization::ConvertWideToMultiByte narrow(text);
        ASSERT_NE(narrow.Get(), nullptr);
        EXPECT_STREQ(narrow.Get(), "");
        EXPECT_EQ(narrow.GetLength(), 0u);
    }
    Localization::ConvertMultiByteToWide zeroWide("abc", 0);
    EXPECT_EQ(zeroWide.GetLength(), 0u);
    EXPECT_EQ(zeroWide.Get()[0], L'\0');
    Localization::ConvertWideToMultiByte zeroNarrow(L"abc", 0);
    EXPECT_STREQ(zeroNarrow.Get(), "");
    Localization::ConvertMultiByteToWide emptyString{STDString()};
    EXPECT_EQ(emptyString.GetLength(), 0u);
    Localization::ConvertWideToMultiByte emptyWideString{STDWString()};
    EXPECT_EQ(emptyWideString.GetLength(), 0u);
}

constexpr uint32_t R = 0xFFFD;

struct MalformedCase {
    const char* name;
    std::string bytes;
    Units expected;
};

TEST(LocalizationConvertMalformed, EachByteThatCannotCompleteASequenceBecomesOneReplacement) {
    const std::vector<MalformedCase> cases = {
        {"stray continuation", "a\x80z", {'a', R, 'z'}},
        {"run of continuations", "\x80\xBF\x80", {R, R, R}},
        {"overlong two-byte NUL", "\xC0\x80", {R, R}},
        {"overlong two-byte slash", "\xC1\xAF/", {R, R, '/'}},
        {"overlong three-byte", "\xE0\x80\xAF", {R, R, R}},
        {"overlong three-byte just below U+0800", "\xE0\x9F\xBF", {R, R, R}},
        {"overlong four-byte", "\xF0\x8F\xBF\xBF", {R, R, R, R}},
        {"truncated two-byte at end", "a\xC3", {'a', R}},
        {"truncated three-byte at end", "\xE2\x82", {R, R}},
        {"truncated four-byte at end", "\xF0\x9F\x98", {R, R, R}},
        {"truncated three-byte before ASCII", "\xE2\x82z", {R, R, 'z'}},
        {"truncated four-byte before a valid one", "\xF0\x9F\xC3\xA9", {R, R, 0xE9}},
        {"high surrogate in UTF-8", "\xED\xA0\x80", {R, R, R}},
        {"low surrogate in UTF-8", "\xED\xBF\xBF", {R, R, R}},
        {"surrogate pair in UTF-8", "\xED\xA0\xBD\xED\xB8\x80", {R, R, R, R, R, R}},
        {"above U+10FFFF", "\xF4\x90\x80\x80", {R, R, R, R}},
        {"lead bytes F5 to FF", "\xF5\xF6\xF7\xF8\xFB\xFC\xFD\xFE\xFF", {R, R, R, R, R, R, R, R, R}},
        {"F5 with continuations", "\xF5\x80\x80\x80", {R, R, R, R}},
        {"valid text resumes after each fault",
         "\xC3\xA9\xFF\xE2\x82\xAC\xC0\xF0\x9F\x98\x80",
         {0xE9, R, 0x20AC, R, 0xD83D, 0xDE00}},
    };
    for (const MalformedCase& test : cases) {
        EXPECT_EQ(Decode(test.bytes), test.expected) << test.name;
        Localization::ConvertMultiByteToWide terminated(test.bytes.c_str());
        EXPECT_EQ(UnitsOf(terminated.Get(), terminated.GetLength()), test.expected)
            << test.name << " (terminated)";
    }
}

TEST(LocalizationConvertMalformed, LoneSurrogatesAndOutOfRangeElementsBecomeReplacement) {
    const std::string replacement = "\xEF\xBF\xBD";
    struct WideCase {
        const char* name;
        Units units;
        std::string expected;
    };
    const std::vector<WideCase> cases = {
        {"lone high surrogate", {'a', 0xD800, 'b'}, "a" + replacement + "b"},
        {"lone low surrogate", {'a', 0xDC00, 'b'}, "a" + replacement + "b"},
        {"high surrogate last", {'a', 0xDBFF}, "a" + replacement},
        {"low before high", {0xDC00, 0xD800}, replacement + replacement},
        {"two highs then a low", {0xD800, 0xD83D, 0xDE00}, replacement + "\xF0\x9F\x98\x80"},
        {"element above 0xFFFF", {0x1F600}, replacement},
        {"element above U+10FFFF", {0x110000, 'x'}, replacement + "x"},
        {"pair of the last plane", {0xDBFF, 0xDFFF}, "\xF4\x8F\xBF\xBF"},
    };
    for (const WideCase& test : cases) {
        EXPECT_EQ(Encode(test.units), test.expected) << test.name;
    }
    // A high surrogate cut from its low one by the count stands alone.
    const wchar_t pair[] = {L'x', 0xD83D, 0xDE00};
    Localization::ConvertWideToMultiByte cut(pair, 2);
    EXPECT_EQ(std::string(cut.Get()), "x" + replacement);
}

}  // namespace
}  // namespace zn
