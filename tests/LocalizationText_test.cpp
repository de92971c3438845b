// LocalizationText_test.cpp: the locale and its names, numbers as text against printf, the text
// of translation files against iconv, and key texts from xkbcommon and from the name tables.
#include "CoreLib/Localization.h"

#include "CoreLib/Singleton.h"
#include "CoreLib/platform/Keyboard.h"
#include "CoreLib/platform/Locale.h"
#include "tests/support/CoreLibFixture.h"

#include "tests/support/IconvOracle.h"

#include <gtest/gtest.h>

#include <iconv.h>
#include <locale.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace zn {

// Reaches the private helper that has no public caller.
class LocalizationHacker {
public:
    static void Detect(uint32_t virtualKey, bool& extended, bool& extended2) {
        Localization::DetectWMKVirtualKeyExtensions(virtualKey, extended, extended2);
    }
};

namespace {

using Units = std::vector<uint32_t>;
using test::Iconv;

Units UnitsOf(const wchar_t* text, unsigned int length) {
    return Units(text, text + length);
}

std::string Utf8Of(const std::vector<char32_t>& codePoints) {
    return Iconv("UTF-8", "UTF-32LE", test::Utf32Bytes(codePoints));
}

// Code points of one to four UTF-8 bytes, never a backslash (an escape) nor NUL.
std::vector<char32_t> RandomCodePoints(std::mt19937& random) {
    std::vector<char32_t> codePoints(random() % 24);
    for (char32_t& codePoint : codePoints) {
        switch (random() % 4) {
            case 0:
                codePoint = std::uniform_int_distribution<char32_t>(0x01, 0x7F)(random);
                codePoint = codePoint == U'\\' ? U'x' : codePoint;
                break;
            case 1:
                codePoint = std::uniform_int_distribution<char32_t>(0x80, 0x7FF)(random);
                break;
            case 2:
                codePoint = std::uniform_int_distribution<char32_t>(0xE000, 0xFFFF)(random);
                break;
            default:
                codePoint = std::uniform_int_distribution<char32_t>(0x10000, 0x10FFFF)(random);
                break;
        }
    }
    return codePoints;
}

// The library started with its Localization service; the process locale, keyboard layout and key
// state are put back after each test.
class LocalizationService : public test::CoreLibFixture {
protected:
    void SetUp() override {
        test::CoreLibFixture::SetUp();
        Singleton<Localization>::_SDMInit();
        platform::SelectKeyboardLayout("us");
        SetKeys({});
    }
    void TearDown() override {
        SetKeys({});
        platform::SelectKeyboardLayout("us");
        setlocale(LC_ALL, "C");
        Singleton<Localization>::_SDMShutdown();
        test::CoreLibFixture::TearDown();
    }
    // Sets the key state: each virtual key given is down, or toggled for Caps Lock and Num Lock.
    static void SetKeys(std::initializer_list<unsigned int> keys) {
        unsigned char state[platform::kKeyStateSize] = {};
        for (unsigned int key : keys) {
            state[key] = (key == 0x14 || key == 0x90) ? 0x01 : 0x80;
        }
        platform::SetKeyboardState(state);
    }
    static std::wstring KeyText(unsigned int virtualKey, uint32_t scanCode = 0) {
        wchar_t out[32] = {};
        unsigned int length = Localization::VirtualKeyToUnicode(virtualKey, out, 32, scanCode);
        return std::wstring(out, length);
    }
};

class LocalizationLocale : public LocalizationService {};
class LocalizationNumbers : public LocalizationService {};
class LocalizationAnsi : public LocalizationService {};
class LocalizationKeys : public LocalizationService {};

// --- Locale ---

TEST(LocalizationLocaleNames, MapsNamesOfBothPlatformsToThisOnes) {
    struct Case {
        const wchar_t* name;
        std::vector<std::string> candidates;
    };
    const std::vector<Case> cases = {
        {L"", {"C.UTF-8"}},
        {L".UTF8", {"C.UTF-8"}},
        {L"C", {"C"}},
        {L"POSIX", {"POSIX"}},
        {L"German_Germany.1252", {"de_DE.UTF-8"}},
        {L"English_United States.1252", {"en_US.UTF-8"}},
        {L"french_canada", {"fr_CA.UTF-8"}},
        {L"German", {"de_DE.UTF-8"}},
        {L"deu", {"de_DE.UTF-8"}},
        {L"de-DE", {"de_DE.UTF-8", "de_DE"}},
        {L"de_DE.1252", {"de_DE.UTF-8", "de_DE"}},
        {L"pt_BR.ISO-8859-1", {"pt_BR.ISO-8859-1"}},
        {L"de", {"de_DE.UTF-8"}},
        {L"xx", {"xx.UTF-8", "xx"}},
        {L"xx-YY", {"xx_YY.UTF-8", "xx_YY"}},
        {L"German_Atlantis.1252", {"German_Atlantis.1252"}},
        {L"Klingon", {"Klingon"}},
    };
    for (const Case& test : cases) {
        EXPECT_EQ(platform::LocaleNameCandidates(test.name), test.candidates);
    }
}

TEST_F(LocalizationLocale, SetsEveryCategoryButKeepsNumbersInC) {
    Localization localization(L"");
    EXPECT_STREQ(setlocale(LC_CTYPE, nullptr), "C.UTF-8");
    EXPECT_STREQ(setlocale(LC_COLLATE, nullptr), "C.UTF-8");
    EXPECT_STREQ(setlocale(LC_NUMERIC, nullptr), "C");
    ASSERT_NE(Localization::GetLocaleIdentifier(), nullptr);

    // An unknown name leaves the locale as it was; the numbers go back to C all the same.
    setlocale(LC_NUMERIC, "C.UTF-8");
    localization.SetLocale(L"Klingon_Qo'noS.1252");
    EXPECT_STREQ(setlocale(LC_CTYPE, nullptr), "C.UTF-8");
    EXPECT_STREQ(setlocale(LC_NUMERIC, nullptr), "C");
    localization.SetLocale(nullptr);
    EXPECT_STREQ(setlocale(LC_CTYPE, nullptr), "C.UTF-8");
}

TEST_F(LocalizationLocale, ReadsTheLayoutEachTimeButItsNameOnce) {
    ASSERT_NE(platform::SelectKeyboardLayout("us"), nullptr);
    Localization first(L"C");
    EXPECT_EQ(Localization::GetKeyboardLocaleIdentifier(), platform::GetKeyboardLayout());
    ASSERT_NE(Localization::GetKeyboardLayoutNameA(), nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(Localization::GetKeyboardLayoutNameA()), "us");

    platform::KeyboardLayout* german = platform::SelectKeyboardLayout("de");
    ASSERT_NE(german, nullptr);
    {
        Localization second(L"C");
        EXPECT_EQ(Localization::GetKeyboardLocaleIdentifier(), german);
        EXPECT_STREQ(reinterpret_cast<const char*>(Localization::GetKeyboardLayoutNameA()), "us");
    }
    // The destructor gave the name back; the next one made reads it anew.
    EXPECT_EQ(Localization::GetKeyboardLayoutNameA(), nullptr);
    Localization third(L"C");
    EXPECT_STREQ(reinterpret_cast<const char*>(Localization::GetKeyboardLayoutNameA()), "de");
}

// --- Numbers ---

std::string Printed(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printed(const char* format, ...) {
    char buffer[128];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    return buffer;
}

std::wstring Widened(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

TEST_F(LocalizationNumbers, AgreeWithPrintfInTheCLocale) {
    Localization localization(L"C");
    for (int value : {INT_MIN, -1, 0, 7, 42, 1000000, INT_MAX}) {
        Localization::ConvertInt32ToMultiByte narrow(value);
        EXPECT_EQ(std::string(narrow.Get()), Printed("%d", value));
        EXPECT_EQ(narrow.GetLength(), Printed("%d", value).size());
        Localization::ConvertInt32ToWide wide(value);
        EXPECT_EQ(std::wstring(wide.Get(), wide.GetLength()), Widened(Printed("%d", value)));
    }
    for (unsigned int value : {0u, 1u, 4000000000u, UINT_MAX}) {
        Localization::ConvertUInt32ToWide wide(value);
        EXPECT_EQ(std::wstring(wide.Get(), wide.GetLength()), Widened(Printed("%u", value)));
    }
    EXPECT_STREQ(Localization::ConvertFloatToWide(1.5f, 2).Get(), L"1.50");
    EXPECT_STREQ(Localization::ConvertFloatToWide(1.5f, -1).Get(), L"1.500000");
    std::mt19937 random(0xF10A7);
    for (int round = 0; round < 500; ++round) {
        float value = std::uniform_real_distribution<float>(-1e6f, 1e6f)(random);
        int precision = static_cast<int>(random() % 12);
        std::string expected = Printed("%.*f", precision, static_cast<double>(value));
        Localization::ConvertFloatToMultiByte narrow(value, precision);
        ASSERT_EQ(std::string(narrow.Get(), narrow.GetLength()), expected);
        Localization::ConvertFloatToWide wide(value, precision);
        ASSERT_EQ(std::wstring(wide.Get(), wide.GetLength()), Widened(expected));
    }
}

TEST_F(LocalizationNumbers, ConversionsOfOneWidthShareOneBuffer) {
    Localization::ConvertInt32ToWide first(1);
    Localization::ConvertFloatToWide second(2.5f, 1);
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_STREQ(first.Get(), L"2.5");
    Localization::ConvertUInt32ToWide third(77);
    EXPECT_STREQ(first.Get(), L"77");

    Localization::ConvertInt32ToMultiByte narrowFirst(-5);
    Localization::ConvertFloatToMultiByte narrowSecond(0.25f, 3);
    EXPECT_EQ(narrowFirst.Get(), narrowSecond.Get());
    EXPECT_STREQ(narrowFirst.Get(), "0.250");
    EXPECT_NE(static_cast<const void*>(narrowFirst.Get()), static_cast<const void*>(first.Get()));
    EXPECT_STREQ(first.Get(), L"77");
}

TEST_F(LocalizationNumbers, FailuresAreReportedWithTheirCrossedTextsAndGiveEmptyText) {
    test::ScopedCapture capture;
    const std::string formatText = "Error converting int32 to string. Destination buffer is too small.";
    const std::string printText = "Error converting float to string. Destination buffer is too small.";
    // "%.1000f" does not fit the six-unit format buffer, nor "%.100f" with its terminator.
    Localization::ConvertFloatToWide wideFormat(1.5f, 1000);
    EXPECT_STREQ(wideFormat.Get(), L"");
    EXPECT_EQ(wideFormat.GetLength(), 0u);
    Localization::ConvertFloatToMultiByte narrowFormat(1.5f, 100);
    EXPECT_STREQ(narrowFormat.Get(), "");
    // 1e30 takes 38 characters with "%f": more than the 32-unit buffer holds.
    Localization::ConvertFloatToWide widePrint(1e30f, -1);
    EXPECT_STREQ(widePrint.Get(), L"");
    Localization::ConvertFloatToMultiByte narrowPrint(1e30f, 2);
    EXPECT_EQ(narrowPrint.GetLength(), 0u);
    Localization::ConvertFloatToMultiByte fits(1e20f, -1);
    EXPECT_STREQ(fits.Get(), Printed("%f", static_cast<double>(1e20f)).c_str());

    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{formatText, formatText, printText, printText}));
    const std::vector<test::CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 4u);
    EXPECT_EQ(reports[0].function, "zn::Localization::FloatToWide");
    EXPECT_EQ(reports[1].function, "zn::Localization::FloatToMultiByte");
    test::ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(LocalizationNumbers, KeepTheDecimalPointInACommaLocale) {
    locale_t german = newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(nullptr));
    if (german == static_cast<locale_t>(nullptr)) {
        GTEST_SKIP() << "the locale de_DE.UTF-8 is not installed (generate it with the locales package)";
    }
    freelocale(german);
    Localization localization(L"German_Germany.1252");
    EXPECT_STREQ(setlocale(LC_MONETARY, nullptr), "de_DE.UTF-8");
    EXPECT_STREQ(Localization::ConvertFloatToWide(1.5f, 2).Get(), L"1.50");

    // A host that sets the numbers to German afterwards changes printf, but not the conversions,
    // which print under the locale copied by SetLocale.
    setlocale(LC_ALL, "de_DE.UTF-8");
    ASSERT_EQ(Printed("%.2f", 1.5), "1,50");
    EXPECT_STREQ(Localization::ConvertFloatToWide(1.5f, 2).Get(), L"1.50");
    EXPECT_STREQ(Localization::ConvertFloatToMultiByte(1.5f, 2).Get(), "1.50");
    EXPECT_STREQ(Localization::ConvertFloatToMultiByte(-1234.5f, -1).Get(), "-1234.500000");
}

TEST_F(LocalizationNumbers, BuffersComeBackAfterTheServiceIsDestroyed) {
    { Localization temporary(L"C"); }
    Localization::ConvertInt32ToMultiByte again(123);
    EXPECT_STREQ(again.Get(), "123");
    Localization::ConvertInt32ToWide wide(-9);
    EXPECT_STREQ(wide.Get(), L"-9");
}

// --- Translation file text ---

Units Ansi(const char* text) {
    Localization::AnsiAsUTF wide(text);
    return UnitsOf(wide.Get(), wide.GetLength());
}

TEST_F(LocalizationAnsi, TranslatesEscapesInTheirOrder) {
    EXPECT_EQ(Ansi("a\\nb"), (Units{'a', '\n', 'b'}));
    EXPECT_EQ(Ansi("\\t\\v\\b\\r\\f\\a"), (Units{'\t', '\v', '\b', '\r', '\f', '\a'}));
    EXPECT_EQ(Ansi("\\?\\'x\\0y"), (Units{'?', '\'', 'x', 'y'}));
    EXPECT_EQ(Ansi("a\\\\c"), (Units{'a', '\\', 'c'}));
    // So do the other letters: here backslash and b is a backspace before the double backslash
    // is looked at.
    EXPECT_EQ(Ansi("a\\\\b"), (Units{'a', '\\', '\b'}));
    // The letters go first: a double backslash before n ends as a backslash and a newline.
    EXPECT_EQ(Ansi("\\\\n"), (Units{'\\', '\n'}));
    // Each shorter replacement searches from the start again: a run of backslashes becomes one.
    EXPECT_EQ(Ansi("\\\\\\\\"), (Units{'\\'}));
    EXPECT_EQ(Ansi("\\x\\"), (Units{'\\', 'x', '\\'}));
    EXPECT_EQ(Ansi(nullptr), Units{});
}

TEST_F(LocalizationAnsi, DecodesLikeIconvBelowTheSupplementaryPlanesAndSplitsAboveThem) {
    std::mt19937 random(0xA451);
    for (int round = 0; round < 2000; ++round) {
        std::vector<char32_t> codePoints = RandomCodePoints(random);
        Units expected;
        for (char32_t codePoint : codePoints) {
            if (codePoint > 0xFFFF) {
                expected.push_back(codePoint >> 8);
                expected.push_back(codePoint & 0xFF);
            } else {
                expected.push_back(codePoint);
            }
        }
        ASSERT_EQ(Ansi(Utf8Of(codePoints).c_str()), expected) << "round " << round;
    }
    // U+1F600: 0x1F6 and 0x00, not the pair D83D DE00.
    EXPECT_EQ(Ansi("\xF0\x9F\x98\x80"), (Units{0x1F6, 0x00}));
}

TEST_F(LocalizationAnsi, DropsHighBytesAndTakesEveryOtherByteAsALead) {
    EXPECT_EQ(Ansi("a\xF5"
                   "b\xFF\xF8"),
              (Units{'a', 'b'}));
    // A stray continuation byte leads two bytes; the byte behind gives its low six bits, whatever
    // it is.
    EXPECT_EQ(Ansi("\xBF"
                   "A!"),
              (Units{0x7C1, '!'}));
    EXPECT_EQ(Ansi("\xC3"
                   "A"),
              (Units{0xC1}));
    // A sequence cut by the end of the text ends the decoding, never read past the terminator.
    EXPECT_EQ(Ansi("ab\xE2\x82"), (Units{'a', 'b'}));
    EXPECT_EQ(Ansi("\xF0\x9F\x98"), Units{});
}

std::string Utf(const Units& units) {
    std::wstring wide(units.begin(), units.end());
    Localization::UTFAsAnsi narrow(wide.c_str());
    EXPECT_EQ(narrow.GetLength(), std::string(narrow.Get()).size());
    return std::string(narrow.Get(), narrow.GetLength());
}

TEST_F(LocalizationAnsi, EncodesLikeIconvWithSurrogatePairs) {
    std::mt19937 random(0x0FF1CE);
    for (int round = 0; round < 2000; ++round) {
        std::vector<char32_t> codePoints = RandomCodePoints(random);
        std::string utf8 = Utf8Of(codePoints);
        std::string utf16 = Iconv("UTF-16LE", "UTF-8", utf8);
        Units units;
        for (size_t at = 0; at + 1 < utf16.size(); at += 2) {
            units.push_back(static_cast<uint8_t>(utf16[at]) | (static_cast<uint8_t>(utf16[at + 1]) << 8));
        }
        ASSERT_EQ(Utf(units), utf8) << "round " << round;
    }
}

TEST_F(LocalizationAnsi, EncodesLoneSurrogatesAndStopsAtATrailingHighOne) {
    test::ScopedCapture capture;
    EXPECT_EQ(Utf({0xD800, 'x'}), "\xED\xA0\x80x");
    EXPECT_EQ(Utf({'y', 0xDC00}), "y\xED\xB0\x80");
    EXPECT_EQ(Utf({0x1F600}), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Utf({0x110000, 'z'}), "\xEF\xBF\xBDz");
    EXPECT_TRUE(capture.Reports().empty());

    EXPECT_EQ(Utf({'a', 0xE9, 0xDBFF}), "a\xC3\xA9");
    const std::vector<test::CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, "Conversion failed.");
    EXPECT_EQ(reports[0].function, "zn::Localization::UTFAsAnsi::DoUTFAsAnsi");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_EQ(Localization::UTFAsAnsi(nullptr).GetLength(), 0u);
}

// --- Keys ---

TEST_F(LocalizationKeys, TypesCharactersOfTheUsLayoutUnderTheKeyState) {
    Localization localization(L"C");
    EXPECT_EQ(KeyText('A'), L"a");
    EXPECT_EQ(KeyText('1'), L"1");
    EXPECT_EQ(KeyText(0xDE), L"'");
    wchar_t out[8] = {};
    EXPECT_EQ(Localization::ScanCodeToUnicode(0x1E, out, 8), 1u);
    EXPECT_EQ(std::wstring(out, 1), L"a");
    SetKeys({0xA0});
    EXPECT_EQ(KeyText('A'), L"A");
    EXPECT_EQ(KeyText('1'), L"!");
    SetKeys({0x14});
    EXPECT_EQ(KeyText('A'), L"A");
    EXPECT_EQ(KeyText('1'), L"1");
    SetKeys({0x11});
    EXPECT_EQ(KeyText('A'), L"\x01");
    // The keypad digits are digits whatever Num Lock says; Home is no character.
    SetKeys({});
    EXPECT_EQ(KeyText(0x67), L"7");
}

TEST_F(LocalizationKeys, NamesKeysWithoutCharactersAndTheControlCharacters) {
    Localization localization(L"C");
    EXPECT_EQ(KeyText(32), L"Space");
    EXPECT_EQ(KeyText(13), L"Enter");
    EXPECT_EQ(KeyText(27), L"Esc");
    EXPECT_EQ(KeyText(9), L"Tab");
    EXPECT_EQ(KeyText(8), L"Backspace");
    EXPECT_EQ(KeyText(16), L"Shift");
    EXPECT_EQ(KeyText(0xA0), L"Shift");
    EXPECT_EQ(KeyText(0xA1), L"Right Shift");
    EXPECT_EQ(KeyText(0x70), L"F1");
    EXPECT_EQ(KeyText(37), L"Left");
    EXPECT_EQ(KeyText(0x24), L"Home");
    EXPECT_EQ(KeyText(144), L"Num Lock");
    EXPECT_EQ(KeyText(108), L"Num Enter");
    EXPECT_EQ(KeyText(19), L"Pause");
    // A scan code given by the caller names its own key.
    EXPECT_EQ(KeyText(16, 0x36), L"Right Shift");
    wchar_t out[32] = {};
    EXPECT_EQ(Localization::ScanCodeToUnicode(0x2A, out, 32), 5u);
    EXPECT_STREQ(out, L"Shift");
    EXPECT_EQ(Localization::ScanCodeToUnicode(0x39, out, 32), 5u);
    EXPECT_STREQ(out, L"Space");
    // Cut to the room given, with its terminator.
    EXPECT_EQ(Localization::VirtualKeyToUnicode(0xA1, out, 6, 0), 5u);
    EXPECT_STREQ(out, L"Right");
}

TEST_F(LocalizationKeys, MapsScanCodesAndVirtualKeys) {
    Localization localization(L"C");
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x1E), static_cast<unsigned int>('A'));
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x2A), 0xA0u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x36), 0xA1u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0xE01D), 0xA3u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0xE04B), 37u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x4F), 35u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x39), 32u);
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x1234), 0u);

    struct Case {
        uint32_t virtualKey;
        uint32_t scanCode;
        bool extended;
    };
    const Case cases[] = {
        {'A', 0x1E, false},   {37, 0x4B, true},     {46, 0x53, true}, {93, 0x5D, true},
        {144, 0xE145, false}, {108, 0xE11C, false}, {19, 69, false},  {0x67, 0x47, false},
    };
    for (const Case& test : cases) {
        uint32_t scanCode = 0;
        bool extended = false;
        Localization::VirtualKeyToScanCode(test.virtualKey, scanCode, extended);
        EXPECT_EQ(scanCode, test.scanCode) << test.virtualKey;
        EXPECT_EQ(extended, test.extended) << test.virtualKey;
    }
    // Pause clears the mark; nothing happens for 0, 255 or a scan code already known.
    uint32_t scanCode = 0;
    bool extended = true;
    Localization::VirtualKeyToScanCode(19, scanCode, extended);
    EXPECT_FALSE(extended);
    for (uint32_t virtualKey : {0u, 255u}) {
        scanCode = 0;
        Localization::VirtualKeyToScanCode(virtualKey, scanCode, extended);
        EXPECT_EQ(scanCode, 0u);
    }
    scanCode = 0x99;
    Localization::VirtualKeyToScanCode('A', scanCode, extended);
    EXPECT_EQ(scanCode, 0x99u);

    bool first = false;
    bool second = false;
    LocalizationHacker::Detect(0xE000, first, second);
    EXPECT_TRUE(first && second);
    LocalizationHacker::Detect(0x0100, first, second);
    EXPECT_TRUE(!first && second);
    LocalizationHacker::Detect(0x41, first, second);
    EXPECT_TRUE(!first && !second);
}

TEST_F(LocalizationKeys, DeadKeysComposeAndLeaveNothingBehindWhenAskedTwice) {
    platform::KeyboardLayout* international = platform::SelectKeyboardLayout("us(intl)");
    ASSERT_NE(international, nullptr);
    unsigned char state[platform::kKeyStateSize] = {};
    wchar_t out[4] = {};
    EXPECT_EQ(platform::ToUnicodeEx(0xDE, 0, state, out, 4, 0, international), -1);
    EXPECT_EQ(out[0], L'\u00b4');
    EXPECT_EQ(platform::ToUnicodeEx('E', 0, state, out, 4, 0, international), 1);
    EXPECT_EQ(out[0], L'\u00e9');
    EXPECT_EQ(platform::ToUnicodeEx(0xDE, 0, state, out, 4, 0, international), -1);
    EXPECT_EQ(platform::ToUnicodeEx('X', 0, state, out, 4, 0, international), 2);
    EXPECT_EQ(std::wstring(out, 2), L"\u00b4x");

    Localization localization(L"C");
    EXPECT_EQ(KeyText(0xDE), L"");
    EXPECT_EQ(KeyText('E'), L"e");
}

TEST_F(LocalizationKeys, LettersAndKeyNamesFollowTheLayout) {
    platform::KeyboardLayout* german = platform::SelectKeyboardLayout("de");
    ASSERT_NE(german, nullptr);
    Localization localization(L"C");
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x15), static_cast<unsigned int>('Z'));
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x2C), static_cast<unsigned int>('Y'));
    EXPECT_EQ(KeyText('Z'), L"z");
    // Ctrl with Alt is AltGr: the third level.
    SetKeys({0xA2, 0xA5});
    EXPECT_EQ(KeyText('Q'), L"@");
    SetKeys({});
    // A virtual key the layout does not know is found by its scan code.
    EXPECT_EQ(KeyText(0, 0x1A), L"\u00fc");
    wchar_t out[16] = {};
    EXPECT_EQ(platform::GetKeyNameText(0x1A << 16, out, 16, german), 1);
    EXPECT_STREQ(out, L"\u00dc");
    EXPECT_EQ(platform::GetKeyNameText(0x2A << 16, out, 16, german), 5);
    EXPECT_STREQ(out, L"Shift");
    EXPECT_EQ(platform::SelectKeyboardLayout("no-such-layout"), nullptr);
    EXPECT_EQ(platform::GetKeyboardLayout(), german);
}

TEST_F(LocalizationKeys, WithoutAKeymapOnlyTheNameTablesAnswer) {
    EXPECT_EQ(platform::SelectKeyboardLayout(""), nullptr);
    Localization localization(L"C");
    EXPECT_EQ(Localization::GetKeyboardLocaleIdentifier(), nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(Localization::GetKeyboardLayoutNameA()), "");
    EXPECT_EQ(KeyText('A'), L"");
    EXPECT_EQ(KeyText(32), L"");
    EXPECT_EQ(Localization::ScanCodeToVirtualKey(0x1E), 0u);

    wchar_t out[32] = {};
    EXPECT_EQ(Localization::DirectInputKeyToUnicodeFallback(0x8100042A, out, 32), 1u);
    EXPECT_STREQ(out, L"Left Shift");
    EXPECT_EQ(Localization::DirectInputKeyToUnicodeFallback(0x81000444, out, 32), 1u);
    EXPECT_STREQ(out, L"F10");
    EXPECT_EQ(Localization::DirectInputKeyToUnicodeFallback(0x810004DD, out, 32), 1u);
    EXPECT_STREQ(out, L"Apps");
}

TEST(LocalizationKeysFallback, NameTablesGiveOneAndTheNameOrZero) {
    wchar_t out[40] = {};
    auto key = [&](unsigned int code) {
        out[0] = L'\0';
        return Localization::DirectInputKeyToUnicodeFallback(0x81000400 + code, out, 40) == 1
                   ? std::wstring(out)
                   : L"<none>";
    };
    EXPECT_EQ(key(0x0E), L"Backspace");
    EXPECT_EQ(key(0x3B), L"F1");
    EXPECT_EQ(key(0x53), L"<none>");  // the keypad's Del has no entry
    EXPECT_EQ(key(0x9C), L"Enter NumPad");
    EXPECT_EQ(key(0xC7), L"Home");
    EXPECT_EQ(key(0x1E), L"<none>");  // A: the layout names it
    EXPECT_EQ(key(0x01), L"<none>");  // Escape is below the range looked at
    EXPECT_EQ(key(0xDE), L"<none>");

    auto mouse = [&](unsigned int code) {
        out[0] = L'\0';
        return Localization::DirectInputMouseToUnicodeFallback(code, out, 40, 0) == 1 ? std::wstring(out)
                                                                                      : L"<none>";
    };
    EXPECT_EQ(mouse(0x82000101), L"Mouse");
    EXPECT_EQ(mouse(0x82000300), L"Mouse Horizontal");
    EXPECT_EQ(mouse(0x82000204), L"Mouse Vertical");
    EXPECT_EQ(mouse(0x82000308), L"Mouse Wheel");
    EXPECT_EQ(mouse(0x8200040E), L"Middle Mouse Button");
    EXPECT_EQ(mouse(0x82000413), L"Extra Mouse Button 5");
    EXPECT_EQ(mouse(0x82000414), L"<none>");

    for (unsigned int button = 0; button <= 90; ++button) {
        wchar_t pad[40] = {};
        wchar_t joystick[40] = {};
        unsigned int padFound = Localization::XInputGamePadToUnicodeFallback(button, pad, 40);
        EXPECT_EQ(Localization::DirectInputJoystickToUnicodeFallBack(button, joystick, 40), padFound);
        EXPECT_STREQ(pad, joystick);
    }
    EXPECT_EQ(Localization::XInputGamePadToUnicodeFallback(66, out, 40), 1u);
    EXPECT_STREQ(out, L"GamePad Left Stick Up-Left");
    EXPECT_EQ(Localization::XInputGamePadToUnicodeFallback(88, out, 40), 1u);
    EXPECT_STREQ(out, L"GamePad Right Thumb Right");
    EXPECT_EQ(Localization::XInputGamePadToUnicodeFallback(34, out, 40), 0u);

    // Cut to the room given; a name still counts as found.
    wchar_t small[5] = {L'x', L'x', L'x', L'x', L'x'};
    EXPECT_EQ(Localization::DirectInputKeyToUnicodeFallback(0x8100042A, small, 5), 1u);
    EXPECT_STREQ(small, L"Left");
}

}  // namespace
}  // namespace zn
