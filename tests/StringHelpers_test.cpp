// StringHelpers_test.cpp: the hash against a second implementation, base64 against coreutils,
// wildcard matching, stristr and the character classes.
#include "CoreLib/StringHelpers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace zn {
namespace {

// SuperFastHash written from Paul Hsieh's published description, one step at a time on a byte
// vector: the seed is the length; each 4-byte block is two little-endian 16-bit halves; a tail of
// 1 to 3 bytes takes its own mixing, with its lone byte as a signed char; then the avalanche.
uint32_t ReferenceSuperFastHash(const std::vector<uint8_t>& bytes) {
    if (bytes.empty()) {
        return 0;
    }
    auto half = [&](size_t at) { return static_cast<uint32_t>(bytes[at] + 256u * bytes[at + 1]); };
    auto signedByte = [&](size_t at) {
        int32_t value = static_cast<int8_t>(bytes[at]);
        return static_cast<uint32_t>(value);
    };
    uint32_t hash = static_cast<uint32_t>(bytes.size());
    size_t at = 0;
    size_t blocks = bytes.size() / 4;
    for (size_t block = 0; block < blocks; ++block) {
        hash = hash + half(at);
        uint32_t temp = (half(at + 2) << 11) ^ hash;
        hash = (hash << 16) ^ temp;
        hash = hash + (hash >> 11);
        at += 4;
    }
    size_t tail = bytes.size() % 4;
    if (tail == 3) {
        hash = hash + half(at);
        hash = hash ^ (hash << 16);
        hash = hash ^ (signedByte(at + 2) << 18);
        hash = hash + (hash >> 11);
    } else if (tail == 2) {
        hash = hash + half(at);
        hash = hash ^ (hash << 11);
        hash = hash + (hash >> 17);
    } else if (tail == 1) {
        hash = hash + signedByte(at);
        hash = hash ^ (hash << 10);
        hash = hash + (hash >> 1);
    }
    hash = hash ^ (hash << 3);
    hash = hash + (hash >> 5);
    hash = hash ^ (hash << 4);
    hash = hash + (hash >> 17);
    hash = hash ^ (hash << 25);
    hash = hash + (hash >> 6);
    return hash;
}

std::vector<uint8_t> RandomBytes(std::mt19937& random, size_t count) {
    std::vector<uint8_t> bytes(count);
    for (auto& byte : bytes) {
        byte = static_cast<uint8_t>(random() & 0xFF);
    }
    return bytes;
}

TEST(StringHelpersHash, MatchesReferenceOnRandomInputsOfEveryTail) {
    std::mt19937 random(20240517);
    for (size_t length = 1; length <= 67; ++length) {
        for (int round = 0; round < 20; ++round) {
            std::vector<uint8_t> bytes = RandomBytes(random, length);
            unsigned int hash = StringHelpers::HashString(reinterpret_cast<const char*>(bytes.data()),
                                                          static_cast<int>(length));
            ASSERT_EQ(hash, ReferenceSuperFastHash(bytes)) << "length " << length << " round " << round;
        }
    }
}

TEST(StringHelpersHash, TailByteIsSignedAndOrderMatters) {
    auto hashOf = [](const std::string& text) {
        return StringHelpers::HashString(text.data(), static_cast<int>(text.size()));
    };
    // A lone tail byte of 0x80 is -128: 1 + 0xFFFFFF80 wraps to 0xFFFFFF81 before the mixing.
    uint32_t hash = 0xFFFFFF81u;
    hash ^= hash << 10;
    hash += hash >> 1;
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    EXPECT_EQ(hashOf("\x80"), hash);
    EXPECT_NE(hashOf("ab"), hashOf("ba"));
    EXPECT_NE(hashOf("abcd"), hashOf("cdab"));
    EXPECT_NE(hashOf(std::string(1, '\0')), hashOf(std::string(2, '\0')));
}

TEST(StringHelpersHash, TerminatedLengthAndNonPositiveLengths) {
    EXPECT_EQ(StringHelpers::HashString("abc", -1), StringHelpers::HashString("abc", 3));
    EXPECT_EQ(StringHelpers::HashString("a longer text of 27 chars!", -1),
              StringHelpers::HashString("a longer text of 27 chars!", 26));
    EXPECT_EQ(StringHelpers::HashString("abc", 0), 0u);
    EXPECT_EQ(StringHelpers::HashString("abc", -2), 0u);
    EXPECT_EQ(StringHelpers::HashString("abc", -100), 0u);
    EXPECT_EQ(StringHelpers::HashString("", -1), 0u);
    EXPECT_EQ(StringHelpers::HashString(nullptr, 5), 0u);
    EXPECT_EQ(StringHelpers::HashString(nullptr, -1), 0u);
    EXPECT_NE(StringHelpers::HashString("abc", 3), 0u);
    // Only length bytes are read.
    EXPECT_EQ(StringHelpers::HashString("abcdef", 3), StringHelpers::HashString("abcxyz", 3));
}

std::string ReadWholeFile(const std::string& path) {
    std::string content;
    if (FILE* file = fopen(path.c_str(), "rb")) {
        char chunk[512];
        size_t got;
        while ((got = fread(chunk, 1, sizeof(chunk), file)) > 0) {
            content.append(chunk, got);
        }
        fclose(file);
    }
    return content;
}

bool WriteWholeFile(const std::string& path, const std::string& content) {
    FILE* file = fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    bool written = fwrite(content.data(), 1, content.size(), file) == content.size();
    return fclose(file) == 0 && written;
}

TEST(StringHelpersBase64, AgreesWithCoreutilsInBothDirections) {
    constexpr unsigned int kLongest = 300;
    char folderTemplate[] = "/tmp/corelib_base64_XXXXXX";
    ASSERT_NE(mkdtemp(folderTemplate), nullptr);
    const std::string folder = folderTemplate;
    std::mt19937 random(77);
    std::vector<std::string> raws;
    std::vector<std::string> ours;
    for (unsigned int length = 0; length <= kLongest; ++length) {
        std::vector<uint8_t> bytes = RandomBytes(random, length);
        raws.emplace_back(bytes.begin(), bytes.end());
        STDString encoded = base64_encode(bytes.data(), length);
        ours.emplace_back(encoded.ToChar(), encoded.Length());
        ASSERT_TRUE(WriteWholeFile(folder + "/raw_" + std::to_string(length), raws.back()));
        ASSERT_TRUE(WriteWholeFile(folder + "/ours_" + std::to_string(length), ours.back()));
    }
    // coreutils encodes our inputs and decodes our encodings, one file each.
    std::string script =
        "cd " + folder + " && for i in $(seq 0 " + std::to_string(kLongest) +
        "); do base64 -w0 raw_$i > theirs_$i && base64 -d ours_$i > decoded_$i || exit 1; done";
    FILE* pipe = popen(script.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    ASSERT_EQ(pclose(pipe), 0) << script;
    for (unsigned int length = 0; length <= kLongest; ++length) {
        const std::string suffix = std::string("_") + std::to_string(length);
        std::string theirs = ReadWholeFile(folder + "/theirs" + suffix);
        EXPECT_EQ(ours[length], theirs) << "length " << length;
        STDString decoded = base64_decode(STDString(theirs.c_str()));
        EXPECT_EQ(std::string(decoded.data(), decoded.size()), raws[length]) << "length " << length;
        EXPECT_EQ(ReadWholeFile(folder + "/decoded" + suffix), raws[length]) << "length " << length;
    }
    std::filesystem::remove_all(folder);
}

TEST(StringHelpersBase64, PaddingAndKnownVectors) {
    const unsigned char one[] = {0xFF};
    STDString encodedOne = base64_encode(one, 1);
    EXPECT_EQ(encodedOne.Length(), 4u);
    EXPECT_EQ(encodedOne, "/w==");
    const unsigned char three[] = {'M', 'a', 'n'};
    EXPECT_EQ(base64_encode(three, 3), "TWFu");
    EXPECT_EQ(base64_encode(three, 2), "TWE=");
    EXPECT_EQ(base64_encode(three, 0), "");
    EXPECT_EQ(base64_encode(nullptr, 3), "");
    const unsigned char plusSlash[] = {0xFB, 0xFF};
    EXPECT_EQ(base64_encode(plusSlash, 2), "+/8=");
}

TEST(StringHelpersBase64, DecodingStopsAtPaddingAndForeignCharacters) {
    EXPECT_EQ(base64_decode(STDString("TWFu")), "Man");
    EXPECT_EQ(base64_decode(STDString("TWE=TWFu")), "Ma");
    EXPECT_EQ(base64_decode(STDString("TWFu\nTWFu")), "Man");
    EXPECT_EQ(base64_decode(STDString("TW")), "M");
    EXPECT_EQ(base64_decode(STDString("TWE")), "Ma");
    EXPECT_EQ(base64_decode(STDString("TWFuT")), "Man");
    EXPECT_EQ(base64_decode(STDString("")), "");
    EXPECT_EQ(base64_decode(STDString("*TWFu")), "");
    STDString zeros = base64_decode(STDString("AAAA"));
    EXPECT_EQ(zeros.Length(), 3u);
    EXPECT_EQ(zeros[0u], '\0');
}

struct WildcardCase {
    const char* text;
    const char* pattern;
    bool matches;
};

TEST(StringHelpersWildcard, Table) {
    const WildcardCase cases[] = {
        {"anything", "*", true},
        {"", "*", true},
        {"", "**", true},
        {"", "?", false},
        {"", "", true},
        {"a", "", false},
        {"abc", "abc", true},
        {"abc", "ABC", true},
        {"ABC", "abc", true},
        {"abc", "ab", false},
        {"ab", "abc", false},
        {"abc", "a?c", true},
        {"ac", "a?c", false},
        {"abc", "???", true},
        {"abc", "????", false},
        {"texture.dds", "*.dds", true},
        {"texture.DDS", "*.dds", true},
        {"texture.dds.bak", "*.dds", false},
        {"a.dds.dds", "*.dds", true},
        {"abc", "a*", true},
        {"abc", "*c", true},
        {"abc", "*b*", true},
        {"abc", "*d*", false},
        {"abc", "a***c", true},
        {"ac", "a***c", true},
        {"abcbd", "a*b?", true},
        {"abcbde", "a*b?", false},
        {"mississippi", "m*iss*ppi", true},
        {"mississippi", "m*iss*pi*x", false},
        {"a_b", "A_B", true},
        {"[x]", "[?]", true},
        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaab", "*a*a*a*a*a*a*c", false},
    };
    for (const WildcardCase& entry : cases) {
        EXPECT_EQ(StringHelpers::WildcardMatch(entry.text, entry.pattern), entry.matches)
            << "'" << entry.text << "' against '" << entry.pattern << "'";
    }
    EXPECT_FALSE(StringHelpers::WildcardMatch(nullptr, "*"));
    EXPECT_FALSE(StringHelpers::WildcardMatch("a", nullptr));
}

TEST(StringHelpersWildcard, WideForm) {
    EXPECT_TRUE(StringHelpers::WildcardMatch(L"Level01.MAP", L"level??.map"));
    EXPECT_TRUE(StringHelpers::WildcardMatch(L"", L"*"));
    EXPECT_FALSE(StringHelpers::WildcardMatch(L"", L"?"));
    EXPECT_TRUE(StringHelpers::WildcardMatch(L"", L""));
    EXPECT_FALSE(StringHelpers::WildcardMatch(L"x", L""));
    EXPECT_TRUE(StringHelpers::WildcardMatch(L"a\x00E9z", L"A?Z"));
    EXPECT_FALSE(StringHelpers::WildcardMatch(L"\x00E9", L"\x00C9"));
    EXPECT_TRUE(StringHelpers::WildcardMatch(L"path/to/file", L"*/*/f*"));
    EXPECT_FALSE(StringHelpers::WildcardMatch(L"path/to", L"*/*/*"));
}

TEST(StringHelpersNulls, ReplaceNullCharacters) {
    char bytes[] = {'a', '\0', 'b', '\0', '\0', 'c', '\0'};
    StringHelpers::ReplaceNullCharacters(bytes, 5, '.');
    EXPECT_EQ(std::string(bytes, 7), std::string("a.b..c\0", 7));
    StringHelpers::ReplaceNullCharacters(nullptr, 5, '.');
}

TEST(StringHelpersStristr, FourForms) {
    const char* text = "The Quick Brown Fox";
    EXPECT_EQ(stristr(text, "quick"), text + 4);
    EXPECT_EQ(stristr(text, "FOX"), text + 16);
    EXPECT_EQ(stristr(text, "foxes"), nullptr);
    EXPECT_EQ(stristr(text, ""), text);
    EXPECT_EQ(stristr("", ""), static_cast<const char*>(""));
    EXPECT_EQ(stristr("", "a"), nullptr);
    EXPECT_EQ(stristr(text, static_cast<const char*>(nullptr)), nullptr);
    EXPECT_EQ(stristr(static_cast<const char*>(nullptr), "a"), nullptr);
    char mutableText[] = "aAbB";
    char* found = stristr(mutableText, "ab");
    ASSERT_EQ(found, mutableText + 1);
    *found = 'x';
    EXPECT_STREQ(mutableText, "axbB");
    const wchar_t* wide = L"Wide TEXT";
    EXPECT_EQ(stristr(wide, L"text"), wide + 5);
    EXPECT_EQ(stristr(wide, L""), wide);
    EXPECT_EQ(stristr(L"", L"x"), nullptr);
    EXPECT_EQ(stristr(wide, L"texts"), nullptr);
    wchar_t mutableWide[] = L"xyZ";
    EXPECT_EQ(stristr(mutableWide, L"z"), mutableWide + 2);
    // Bytes above 127 are compared as they are.
    EXPECT_EQ(stristr("\xC4", "\xE4"), nullptr);
}

TEST(StringHelpersClasses, NarrowAndWide) {
    for (int value = 0; value < 256; ++value) {
        char narrow = static_cast<char>(value);
        wchar_t wide = static_cast<wchar_t>(value);
        bool white = value == ' ' || value == '\t' || value == '\r' || value == '\n';
        bool digit = value >= '0' && value <= '9';
        bool letter = (value >= 'a' && value <= 'z') || (value >= 'A' && value <= 'Z') || value == '_';
        bool newLine = value == '\r' || value == '\n';
        EXPECT_EQ(IsWhiteSpace(narrow), white) << value;
        EXPECT_EQ(IsWhiteSpace(wide), white) << value;
        EXPECT_EQ(IsNumeric(narrow), digit) << value;
        EXPECT_EQ(IsNumeric(wide), digit) << value;
        EXPECT_EQ(IsAlphabetical(narrow), letter) << value;
        EXPECT_EQ(IsAlphabetical(wide), letter) << value;
        EXPECT_EQ(IsNewLine(narrow), newLine) << value;
        EXPECT_EQ(IsNewLine(wide), newLine) << value;
    }
    EXPECT_FALSE(IsAlphabetical(L'\x00E9'));
    EXPECT_FALSE(IsWhiteSpace(L'\x00A0'));
    EXPECT_FALSE(IsNumeric(L'\x0660'));
}

}  // namespace
}  // namespace zn
