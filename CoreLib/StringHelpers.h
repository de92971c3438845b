// StringHelpers.h: the common text routines: a hash of a byte run, wildcard matching, character
// classes, case-insensitive search and base64.
#pragma once

#include "CoreLib/STDString.h"

namespace zn {

class StringHelpers {
public:
    // SuperFastHash (Paul Hsieh) of length bytes, seeded with the length; -1 hashes up to the
    // terminator. 0 for a null text and for a length that is (or reads as) 0 or negative.
    static unsigned int HashString(const char* text, int length);
    // True when text matches pattern without case: "?" is any one character, "*" any run, even
    // an empty one. An empty pattern matches only an empty text; a null argument matches nothing.
    static bool WildcardMatch(const char* text, const char* pattern);
    static bool WildcardMatch(const wchar_t* text, const wchar_t* pattern);
    // Writes replacement over every NUL among the first length bytes of text.
    static void ReplaceNullCharacters(char* text, unsigned int length, char replacement);
};

// ASCII case folding, independent of the process locale; other characters are returned as given.
template <typename Char>
constexpr Char AsciiToUpper(Char value) {
    return value >= Char('a') && value <= Char('z') ? Char(value - Char('a' - 'A')) : value;
}
template <typename Char>
constexpr Char AsciiToLower(Char value) {
    return value >= Char('A') && value <= Char('Z') ? Char(value + Char('a' - 'A')) : value;
}

// Space, tab, carriage return, line feed.
bool IsWhiteSpace(char value);
bool IsWhiteSpace(wchar_t value);
// "0" to "9".
bool IsNumeric(char value);
bool IsNumeric(wchar_t value);
// The ASCII letters and the underscore.
bool IsAlphabetical(char value);
bool IsAlphabetical(wchar_t value);
// Carriage return, line feed.
bool IsNewLine(char value);
bool IsNewLine(wchar_t value);

// The first place in text where needle occurs, comparing ASCII letters without case. An empty
// needle gives text; an empty text (with a non-empty needle), no match or a null argument gives null.
const char* stristr(const char* text, const char* needle);
char* stristr(char* text, const char* needle);
const wchar_t* stristr(const wchar_t* text, const wchar_t* needle);
wchar_t* stristr(wchar_t* text, const wchar_t* needle);

// RFC 4648 base64 with "+", "/" and "=" padding, on one line; empty for no bytes or null data.
STDString base64_encode(const unsigned char* data, unsigned int length);
// The bytes of text, read up to the first "=" or the first character outside the alphabet; a
// trailing group of 2 or 3 characters gives 1 or 2 bytes, a lone character none.
STDString base64_decode(const STDString& text);

}  // namespace zn
