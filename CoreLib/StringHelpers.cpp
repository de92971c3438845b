// StringHelpers.cpp: hashing, wildcard matching, character classes, stristr and base64.
#include "CoreLib/StringHelpers.h"

#include <cstdint>
#include <cstring>

namespace zn {

namespace {
// Two bytes as one little-endian 16-bit value, whatever the host's byte order.
uint32_t Read16(const unsigned char* bytes) {
    return uint32_t(bytes[0]) | (uint32_t(bytes[1]) << 8);
}

// A byte as the algorithm's signed char, widened to 32 bits.
uint32_t SignedByte(unsigned char byte) {
    return static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(byte)));
}

template <typename Char>
bool WildcardMatchFrom(const Char* text, const Char* pattern) {
    for (;;) {
        if (*pattern == Char(0)) {
            return *text == Char(0);
        }
        if (*pattern == Char('*')) {
            // A run of stars matches what one star matches; skipping the run avoids retrying it.
            while (pattern[1] == Char('*')) {
                ++pattern;
            }
            if (WildcardMatchFrom(text, pattern + 1)) {
                return true;
            }
            if (*text == Char(0)) {
                return false;
            }
            ++text;
            continue;
        }
        if (*text == Char(0)) {
            return false;
        }
        if (*pattern != Char('?') && AsciiToUpper(*text) != AsciiToUpper(*pattern)) {
            return false;
        }
        ++text;
        ++pattern;
    }
}

template <typename Char>
const Char* FindNoCase(const Char* text, const Char* needle) {
    if (text == nullptr || needle == nullptr) {
        return nullptr;
    }
    if (*needle == Char(0)) {
        return text;
    }
    for (; *text != Char(0); ++text) {
        size_t matched = 0;
        while (needle[matched] != Char(0) && AsciiToLower(text[matched]) == AsciiToLower(needle[matched])) {
            ++matched;
        }
        if (needle[matched] == Char(0)) {
            return text;
        }
    }
    return nullptr;
}

template <typename Char>
bool IsWhiteSpaceOf(Char value) {
    return value == Char(' ') || value == Char('\t') || value == Char('\r') || value == Char('\n');
}
template <typename Char>
bool IsNumericOf(Char value) {
    return value >= Char('0') && value <= Char('9');
}
template <typename Char>
bool IsAlphabeticalOf(Char value) {
    return (value >= Char('a') && value <= Char('z')) || (value >= Char('A') && value <= Char('Z')) ||
           value == Char('_');
}
template <typename Char>
bool IsNewLineOf(Char value) {
    return value == Char('\r') || value == Char('\n');
}

constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kBase64Padding = '=';

// The 6-bit value of an alphabet character, or -1.
int Base64Value(char character) {
    if (character >= 'A' && character <= 'Z') {
        return character - 'A';
    }
    if (character >= 'a' && character <= 'z') {
        return character - 'a' + 26;
    }
    if (character >= '0' && character <= '9') {
        return character - '0' + 52;
    }
    if (character == '+') {
        return 62;
    }
    if (character == '/') {
        return 63;
    }
    return -1;
}
}  // namespace

unsigned int StringHelpers::HashString(const char* text, int length) {
    if (text == nullptr) {
        return 0;
    }
    if (length == -1) {
        length = static_cast<int>(std::strlen(text));
    }
    if (length <= 0) {
        return 0;
    }
    const auto* data = reinterpret_cast<const unsigned char*>(text);
    uint32_t hash = static_cast<uint32_t>(length);
    const int tail = length & 3;
    for (int block = length >> 2; block > 0; --block, data += 4) {
        hash += Read16(data);
        uint32_t mixed = (Read16(data + 2) << 11) ^ hash;
        hash = (hash << 16) ^ mixed;
        hash += hash >> 11;
    }
    switch (tail) {
        case 3:
            hash += Read16(data);
            hash ^= hash << 16;
            hash ^= SignedByte(data[2]) << 18;
            hash += hash >> 11;
            break;
        case 2:
            hash += Read16(data);
            hash ^= hash << 11;
            hash += hash >> 17;
            break;
        case 1:
            hash += SignedByte(data[0]);
            hash ^= hash << 10;
            hash += hash >> 1;
            break;
        default:
            break;
    }
    hash ^= hash << 3;
    hash += hash >> 5;
    hash ^= hash << 4;
    hash += hash >> 17;
    hash ^= hash << 25;
    hash += hash >> 6;
    return hash;
}

bool StringHelpers::WildcardMatch(const char* text, const char* pattern) {
    return text != nullptr && pattern != nullptr && WildcardMatchFrom(text, pattern);
}

bool StringHelpers::WildcardMatch(const wchar_t* text, const wchar_t* pattern) {
    return text != nullptr && pattern != nullptr && WildcardMatchFrom(text, pattern);
}

void StringHelpers::ReplaceNullCharacters(char* text, unsigned int length, char replacement) {
    if (text == nullptr) {
        return;
    }
    for (unsigned int index = 0; index < length; ++index) {
        if (text[index] == '\0') {
            text[index] = replacement;
        }
    }
}

bool IsWhiteSpace(char value) {
    return IsWhiteSpaceOf(value);
}
bool IsWhiteSpace(wchar_t value) {
    return IsWhiteSpaceOf(value);
}
bool IsNumeric(char value) {
    return IsNumericOf(value);
}
bool IsNumeric(wchar_t value) {
    return IsNumericOf(value);
}
bool IsAlphabetical(char value) {
    return IsAlphabeticalOf(value);
}
bool IsAlphabetical(wchar_t value) {
    return IsAlphabeticalOf(value);
}
bool IsNewLine(char value) {
    return IsNewLineOf(value);
}
bool IsNewLine(wchar_t value) {
    return IsNewLineOf(value);
}

const char* stristr(const char* text, const char* needle) {
    return FindNoCase(text, needle);
}
char* stristr(char* text, const char* needle) {
    return const_cast<char*>(FindNoCase<char>(text, needle));
}
const wchar_t* stristr(const wchar_t* text, const wchar_t* needle) {
    return FindNoCase(text, needle);
}
wchar_t* stristr(wchar_t* text, const wchar_t* needle) {
    return const_cast<wchar_t*>(FindNoCase<wchar_t>(text, needle));
}

STDString base64_encode(const unsigned char* data, unsigned int length) {
    STDString encoded;
    if (data == nullptr || length == 0) {
        return encoded;
    }
    encoded.reserve((length + 2) / 3 * 4);
    for (unsigned int offset = 0; offset < length; offset += 3) {
        const unsigned int present = length - offset < 3 ? length - offset : 3;
        // The group's bytes, zero-filled, as one 24-bit value.
        uint32_t group = uint32_t(data[offset]) << 16;
        if (present > 1) {
            group |= uint32_t(data[offset + 1]) << 8;
        }
        if (present > 2) {
            group |= uint32_t(data[offset + 2]);
        }
        for (unsigned int sextet = 0; sextet < 4; ++sextet) {
            encoded +=
                sextet <= present ? kBase64Alphabet[(group >> (18 - 6 * sextet)) & 0x3F] : kBase64Padding;
        }
    }
    return encoded;
}

STDString base64_decode(const STDString& text) {
    STDString decoded;
    decoded.reserve(text.size() / 4 * 3 + 2);
    uint32_t group = 0;
    unsigned int sextets = 0;
    for (char character : text) {
        const int value = Base64Value(character);
        // "=" is outside the alphabet too: both end the decoding.
        if (value < 0) {
            break;
        }
        group = (group << 6) | static_cast<uint32_t>(value);
        if (++sextets == 4) {
            decoded += static_cast<char>(group >> 16);
            decoded += static_cast<char>(group >> 8);
            decoded += static_cast<char>(group);
            group = 0;
            sextets = 0;
        }
    }
    // A partial group of n characters carries n - 1 whole bytes at the top of its bits.
    if (sextets >= 2) {
        group <<= 6 * (4 - sextets);
        decoded += static_cast<char>(group >> 16);
        if (sextets == 3) {
            decoded += static_cast<char>(group >> 8);
        }
    }
    return decoded;
}

}  // namespace zn
