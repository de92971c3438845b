// STDString.h: the engine's mutable strings, STDString (char) and STDWString (wchar_t, one 16-bit
// unit per element). Each is a standard basic_string on StringAllocator with the library's own
// vocabulary added: case-insensitive comparison and search, trimming, substrings and replacement.
#pragma once

#include "CoreLib/StringAllocator.h"
#include "CoreLib/TrackedObject.h"

#include <concepts>
#include <string>
#include <utility>

namespace zn {

// The vocabulary both widths share; Self is the string class itself, which the results take.
// Position and count arguments past the end are clamped: the vocabulary never throws.
template <typename Char, typename Self>
class STDStringCore : public std::basic_string<Char, std::char_traits<Char>, StringAllocator<Char>> {
public:
    using Base = std::basic_string<Char, std::char_traits<Char>, StringAllocator<Char>>;
    // A count or start that stands for "to the end" or "from the end".
    static constexpr unsigned int kToEnd = 0xFFFFFFFFu;

    using Base::Base;
    STDStringCore() = default;
    STDStringCore(const Base& other) : Base(other) {}
    STDStringCore(Base&& other) noexcept : Base(std::move(other)) {}

    unsigned int Length() const { return static_cast<unsigned int>(this->size()); }
    bool IsEmpty() const { return this->empty(); }
    // Removes every character.
    void Empty() { this->clear(); }
    const Char* ToChar() const { return this->c_str(); }
    // The character at index, or 0 past the end.
    Char GetAt(unsigned int index) const {
        return index < this->size() ? this->Base::operator[](index) : Char(0);
    }
    // Changes the character at index; nothing past the end.
    void SetAt(unsigned int index, Char value) {
        if (index < this->size()) {
            this->Base::operator[](index) = value;
        }
    }
    // Unchecked, as the standard operator.
    Char& operator[](unsigned int index) { return this->Base::operator[](index); }
    const Char& operator[](unsigned int index) const { return this->Base::operator[](index); }

    // <0, 0 or >0 as this string sorts before, with or after the text; a null text is "".
    int Compare(const Char* text) const;
    int Compare(const Self& other) const;
    // As Compare, with ASCII letters folded to lower case.
    int CompareNoCase(const Char* text) const;
    int CompareNoCase(const Self& other) const;
    bool Equals(const Char* text) const { return Compare(text) == 0; }
    bool Equals(const Self& other) const { return Compare(other) == 0; }
    bool EqualsNoCase(const Char* text) const { return CompareNoCase(text) == 0; }
    bool EqualsNoCase(const Self& other) const { return CompareNoCase(other) == 0; }
    // True when the first count characters equal text's without case, both stopping at a terminator.
    bool EqualsNoCase(const Char* text, unsigned int count) const;

    // True when text occurs in the string; "" occurs in every string, null in none.
    bool Contains(const Char* text) const { return Find(text, 0) >= 0; }
    bool Contains(const Self& other) const { return Find(other.ToChar(), 0) >= 0; }
    bool ContainsNoCase(const Char* text) const { return FindNoCase(text, 0) >= 0; }
    bool ContainsNoCase(const Self& other) const { return FindNoCase(other.ToChar(), 0) >= 0; }

    // count characters from start (fewer at the end); empty when start is past the end.
    Self GetSubstring(unsigned int start, unsigned int count) const;
    // From start up to, not including, the first character of terminators, or to the end.
    Self GetSubstring(unsigned int start, const Char* terminators) const;
    Self Mid(unsigned int start, unsigned int count = kToEnd) const { return GetSubstring(start, count); }
    // The first count characters, or the whole string.
    Self Left(unsigned int count) const { return GetSubstring(0, count); }
    // The last count characters, or the whole string.
    Self Right(unsigned int count) const;

    // Positions of the first match at or after start, or -1.
    int Find(Char value, unsigned int start = 0) const;
    int Find(const Char* text, unsigned int start = 0) const;
    int FindNoCase(const Char* text, unsigned int start = 0) const;
    // Position of the last value at or before start (kToEnd: the whole string), or -1.
    int FindReverse(Char value, unsigned int start = kToEnd) const;
    // Position of the first character at or after start that is one of characters, or -1.
    int FindOneOf(const Char* characters, unsigned int start = 0) const;

    // ASCII letters only, whatever the process locale.
    void ToUpper();
    void ToLower();
    void Reverse();
    // Removes the run of value at the start or at the end.
    void TrimLeft(Char value = Char(' '));
    void TrimRight(Char value = Char(' '));
    // Removes spaces, tabs, carriage returns and line feeds from both ends.
    void TrimWhiteSpaceLeftAndRight();

    // Appends; a null text appends nothing.
    Self& Concatenate(Char value);
    Self& Concatenate(const Char* text);
    Self& Concatenate(Char* text) { return Concatenate(static_cast<const Char*>(text)); }
    Self& Concatenate(const Self& other);
    Self& operator+=(Char value) { return Concatenate(value); }
    Self& operator+=(const Char* text) { return Concatenate(text); }
    Self& operator+=(Char* text) { return Concatenate(static_cast<const Char*>(text)); }
    Self& operator+=(const Self& other) { return Concatenate(other); }

    // Replaces the first occurrence of from, then again the first one counted from the start of
    // the string, until none is left. Nothing for a null argument, an empty from, or a from longer
    // than the string. When to contains from, each search goes on after the text just put in, so
    // every original occurrence is replaced once and the call ends.
    void Replace(const Char* from, const Char* to);
    // As Replace, finding from without case.
    void ReplaceNoCase(const Char* from, const Char* to);
    // Puts text in front of the character at position (at the end for the length); nothing for a
    // null text or a position past the end.
    void Insert(const Char* text, unsigned int position);
    // Erases count characters from start (fewer at the end); nothing when start is past the end.
    void RemoveRange(unsigned int start, unsigned int count);
    // Pads with NUL characters up to length, or cuts the string to it; always true.
    bool Resize(unsigned int length);

private:
    // Skips tabs and spaces among the first limit characters and returns the last character looked
    // at; null for a null text. For limit 0 the result is the address one before text, which
    // must not be read.
    static const Char* ConsumeWhitespace(const Char* text, unsigned int limit);

    template <bool kNoCase>
    void ReplaceAll(const Char* from, const Char* to);

    friend class STDStringHacker;
};

class STDString : public STDStringCore<char, STDString>, public TrackedObject<STDString> {
public:
    using Core = STDStringCore<char, STDString>;

    STDString() = default;
    // One character.
    explicit STDString(char value) : Core(1, value) {}
    // Empty, with room for capacity characters.
    explicit STDString(unsigned int capacity) { reserve(capacity); }
    explicit STDString(int capacity) { reserve(capacity > 0 ? static_cast<unsigned int>(capacity) : 0u); }
    // A copy of the text up to its terminator; null gives an empty string.
    STDString(const char* text) : Core(text != nullptr ? text : "") {}
    // length characters of text (a negative length: up to the terminator); null gives an empty string.
    STDString(const char* text, int length);
    STDString(const Base& other) : Core(other) {}
    STDString(Base&& other) noexcept : Core(std::move(other)) {}
    STDString(const STDString& other) = default;
    STDString(STDString&& other) noexcept = default;
    ~STDString() = default;

    STDString& operator=(const STDString& other) = default;
    STDString& operator=(STDString&& other) noexcept = default;
    // A null text empties the string.
    STDString& operator=(const char* text);
    STDString& operator=(char value);

    // An empty string for callers that need a reference to one.
    static const STDString EmptyString;
};

class STDWString : public STDStringCore<wchar_t, STDWString>, public TrackedObject<STDWString> {
public:
    using Core = STDStringCore<wchar_t, STDWString>;

    STDWString() = default;
    explicit STDWString(wchar_t value) : Core(1, value) {}
    explicit STDWString(unsigned int capacity) { reserve(capacity); }
    explicit STDWString(int capacity) { reserve(capacity > 0 ? static_cast<unsigned int>(capacity) : 0u); }
    STDWString(const wchar_t* text) : Core(text != nullptr ? text : L"") {}
    STDWString(const wchar_t* text, int length);
    STDWString(const Base& other) : Core(other) {}
    STDWString(Base&& other) noexcept : Core(std::move(other)) {}
    STDWString(const STDWString& other) = default;
    STDWString(STDWString&& other) noexcept = default;
    ~STDWString() = default;

    STDWString& operator=(const STDWString& other) = default;
    STDWString& operator=(STDWString&& other) noexcept = default;
    STDWString& operator=(const wchar_t* text);
    STDWString& operator=(wchar_t value);

    static const STDWString EmptyString;
};

// The two string classes the free operators below apply to.
template <typename S>
concept LibraryString = std::same_as<S, STDString> || std::same_as<S, STDWString>;

template <LibraryString S>
S operator+(const S& left, const S& right) {
    S result(left);
    result += right;
    return result;
}
template <LibraryString S>
S operator+(const S& left, typename S::value_type right) {
    S result(left);
    result += right;
    return result;
}
template <LibraryString S>
S operator+(typename S::value_type left, const S& right) {
    S result(left);
    result += right;
    return result;
}
template <LibraryString S>
S operator+(const S& left, const typename S::value_type* right) {
    S result(left);
    result += right;
    return result;
}
template <LibraryString S>
S operator+(const typename S::value_type* left, const S& right) {
    S result(left);
    result += right;
    return result;
}

// Comparisons are by character value; a null text compares as "".
template <LibraryString S>
bool operator==(const S& left, const S& right) {
    return left.Compare(right) == 0;
}
template <LibraryString S>
bool operator==(const S& left, const typename S::value_type* right) {
    return left.Compare(right) == 0;
}
template <LibraryString S>
bool operator==(const typename S::value_type* left, const S& right) {
    return right.Compare(left) == 0;
}
template <LibraryString S>
bool operator!=(const S& left, const S& right) {
    return left.Compare(right) != 0;
}
template <LibraryString S>
bool operator!=(const S& left, const typename S::value_type* right) {
    return left.Compare(right) != 0;
}
template <LibraryString S>
bool operator!=(const typename S::value_type* left, const S& right) {
    return right.Compare(left) != 0;
}
template <LibraryString S>
bool operator<(const S& left, const S& right) {
    return left.Compare(right) < 0;
}
template <LibraryString S>
bool operator<(const S& left, const typename S::value_type* right) {
    return left.Compare(right) < 0;
}
template <LibraryString S>
bool operator<(const typename S::value_type* left, const S& right) {
    return right.Compare(left) > 0;
}
template <LibraryString S>
bool operator>(const S& left, const S& right) {
    return left.Compare(right) > 0;
}
template <LibraryString S>
bool operator>(const S& left, const typename S::value_type* right) {
    return left.Compare(right) > 0;
}
template <LibraryString S>
bool operator>(const typename S::value_type* left, const S& right) {
    return right.Compare(left) < 0;
}
template <LibraryString S>
bool operator<=(const S& left, const S& right) {
    return left.Compare(right) <= 0;
}
template <LibraryString S>
bool operator<=(const S& left, const typename S::value_type* right) {
    return left.Compare(right) <= 0;
}
template <LibraryString S>
bool operator<=(const typename S::value_type* left, const S& right) {
    return right.Compare(left) >= 0;
}
template <LibraryString S>
bool operator>=(const S& left, const S& right) {
    return left.Compare(right) >= 0;
}
template <LibraryString S>
bool operator>=(const S& left, const typename S::value_type* right) {
    return left.Compare(right) >= 0;
}
template <LibraryString S>
bool operator>=(const typename S::value_type* left, const S& right) {
    return right.Compare(left) <= 0;
}

extern template class STDStringCore<char, STDString>;
extern template class STDStringCore<wchar_t, STDWString>;

}  // namespace zn
