// STDString.cpp: the vocabulary of STDString and STDWString, written once for both widths.
#include "CoreLib/STDString.h"

#include "CoreLib/StringHelpers.h"

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace zn {

namespace {
template <typename Char>
size_t TextLength(const Char* text) {
    return text == nullptr ? 0 : std::char_traits<Char>::length(text);
}

// Characters compare as unsigned values, so bytes above 127 sort after the ASCII ones.
template <typename Char>
auto Unit(Char value) {
    return static_cast<std::make_unsigned_t<Char>>(value);
}

template <typename Char>
auto FoldedUnit(Char value) {
    return Unit(AsciiToLower(value));
}

// Lexicographic comparison of two runs, ASCII letters folded to lower case; <0, 0 or >0.
template <typename Char>
int CompareRunsNoCase(const Char* left, size_t leftLength, const Char* right, size_t rightLength) {
    size_t common = std::min(leftLength, rightLength);
    for (size_t index = 0; index < common; ++index) {
        auto leftUnit = FoldedUnit(left[index]);
        auto rightUnit = FoldedUnit(right[index]);
        if (leftUnit != rightUnit) {
            return leftUnit < rightUnit ? -1 : 1;
        }
    }
    if (leftLength == rightLength) {
        return 0;
    }
    return leftLength < rightLength ? -1 : 1;
}

// First position at or after start where needle occurs in haystack, or npos.
template <bool kNoCase, typename Char>
size_t SearchRun(const Char* haystack, size_t haystackLength, const Char* needle, size_t needleLength,
                 size_t start) {
    if (start > haystackLength || needleLength > haystackLength - start) {
        return std::basic_string<Char>::npos;
    }
    for (size_t position = start; position + needleLength <= haystackLength; ++position) {
        size_t matched = 0;
        while (matched < needleLength &&
               (kNoCase ? FoldedUnit(haystack[position + matched]) == FoldedUnit(needle[matched])
                        : haystack[position + matched] == needle[matched])) {
            ++matched;
        }
        if (matched == needleLength) {
            return position;
        }
    }
    return std::basic_string<Char>::npos;
}

template <typename Char>
int ToIndex(size_t position) {
    return position == std::basic_string<Char>::npos ? -1 : static_cast<int>(position);
}

template <typename Char>
bool IsTrimmedWhiteSpace(Char value) {
    return value == Char(' ') || value == Char('\t') || value == Char('\r') || value == Char('\n');
}
}  // namespace

template <typename Char, typename Self>
int STDStringCore<Char, Self>::Compare(const Char* text) const {
    if (text == nullptr) {
        return this->empty() ? 0 : 1;
    }
    return this->compare(text);
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::Compare(const Self& other) const {
    return this->compare(other);
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::CompareNoCase(const Char* text) const {
    return CompareRunsNoCase(this->data(), this->size(), text, TextLength(text));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::CompareNoCase(const Self& other) const {
    return CompareRunsNoCase(this->data(), this->size(), other.data(), other.size());
}

template <typename Char, typename Self>
bool STDStringCore<Char, Self>::EqualsNoCase(const Char* text, unsigned int count) const {
    if (text == nullptr) {
        return count == 0 || this->empty();
    }
    // c_str() reads its terminator at the end, so both sides stop as the C run-time's do.
    const Char* own = this->c_str();
    for (unsigned int index = 0; index < count; ++index) {
        if (FoldedUnit(own[index]) != FoldedUnit(text[index])) {
            return false;
        }
        if (own[index] == Char(0)) {
            return true;
        }
    }
    return true;
}

template <typename Char, typename Self>
Self STDStringCore<Char, Self>::GetSubstring(unsigned int start, unsigned int count) const {
    if (start >= this->size()) {
        return Self();
    }
    return Self(this->Base::substr(start, count));
}

template <typename Char, typename Self>
Self STDStringCore<Char, Self>::GetSubstring(unsigned int start, const Char* terminators) const {
    if (start >= this->size()) {
        return Self();
    }
    size_t end = terminators == nullptr ? Base::npos : this->find_first_of(terminators, start);
    return Self(this->Base::substr(start, end == Base::npos ? Base::npos : end - start));
}

template <typename Char, typename Self>
Self STDStringCore<Char, Self>::Right(unsigned int count) const {
    if (count >= this->size()) {
        return Self(static_cast<const Base&>(*this));
    }
    return Self(this->Base::substr(this->size() - count));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::Find(Char value, unsigned int start) const {
    return ToIndex<Char>(this->find(value, start));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::Find(const Char* text, unsigned int start) const {
    if (text == nullptr) {
        return -1;
    }
    return ToIndex<Char>(SearchRun<false>(this->data(), this->size(), text, TextLength(text), start));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::FindNoCase(const Char* text, unsigned int start) const {
    if (text == nullptr) {
        return -1;
    }
    return ToIndex<Char>(SearchRun<true>(this->data(), this->size(), text, TextLength(text), start));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::FindReverse(Char value, unsigned int start) const {
    return ToIndex<Char>(this->rfind(value, start == kToEnd ? Base::npos : start));
}

template <typename Char, typename Self>
int STDStringCore<Char, Self>::FindOneOf(const Char* characters, unsigned int start) const {
    if (characters == nullptr) {
        return -1;
    }
    return ToIndex<Char>(this->find_first_of(characters, start));
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::ToUpper() {
    std::transform(this->begin(), this->end(), this->begin(), AsciiToUpper<Char>);
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::ToLower() {
    std::transform(this->begin(), this->end(), this->begin(), AsciiToLower<Char>);
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::Reverse() {
    std::reverse(this->begin(), this->end());
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::TrimLeft(Char value) {
    this->erase(0, std::min(this->find_first_not_of(value), this->size()));
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::TrimRight(Char value) {
    size_t last = this->find_last_not_of(value);
    this->erase(last == Base::npos ? 0 : last + 1);
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::TrimWhiteSpaceLeftAndRight() {
    auto kept = std::find_if_not(this->begin(), this->end(), IsTrimmedWhiteSpace<Char>);
    this->erase(this->begin(), kept);
    auto last = std::find_if_not(this->rbegin(), this->rend(), IsTrimmedWhiteSpace<Char>);
    this->erase(last.base(), this->end());
}

template <typename Char, typename Self>
Self& STDStringCore<Char, Self>::Concatenate(Char value) {
    this->push_back(value);
    return static_cast<Self&>(*this);
}

template <typename Char, typename Self>
Self& STDStringCore<Char, Self>::Concatenate(const Char* text) {
    if (text != nullptr) {
        this->append(text);
    }
    return static_cast<Self&>(*this);
}

template <typename Char, typename Self>
Self& STDStringCore<Char, Self>::Concatenate(const Self& other) {
    this->append(other);
    return static_cast<Self&>(*this);
}

template <typename Char, typename Self>
template <bool kNoCase>
void STDStringCore<Char, Self>::ReplaceAll(const Char* from, const Char* to) {
    if (from == nullptr || to == nullptr) {
        return;
    }
    // Private copies: either argument may point into this string, which the loop rewrites.
    const Base pattern(from);
    const Base replacement(to);
    if (pattern.empty() || pattern.size() > this->size()) {
        return;
    }
    // A shorter replacement shrinks the string at every step, so searching again from the start
    // ends. No occurrence can start before position + 1 - pattern length, as every earlier one would
    // have been found first; that is where the search resumes, with the same result. A replacement
    // at least as long may recreate the pattern without end; the search then goes on after it.
    const bool restartFromBeginning = replacement.size() < pattern.size();
    size_t searchFrom = 0;
    for (;;) {
        size_t position =
            SearchRun<kNoCase>(this->data(), this->size(), pattern.data(), pattern.size(), searchFrom);
        if (position == Base::npos) {
            return;
        }
        this->Base::replace(position, pattern.size(), replacement);
        if (restartFromBeginning) {
            searchFrom = position + 1 > pattern.size() ? position + 1 - pattern.size() : 0;
        } else {
            searchFrom = position + replacement.size();
        }
    }
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::Replace(const Char* from, const Char* to) {
    ReplaceAll<false>(from, to);
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::ReplaceNoCase(const Char* from, const Char* to) {
    ReplaceAll<true>(from, to);
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::Insert(const Char* text, unsigned int position) {
    if (text != nullptr && position <= this->size()) {
        const Base copy(text);
        this->Base::insert(position, copy);
    }
}

template <typename Char, typename Self>
void STDStringCore<Char, Self>::RemoveRange(unsigned int start, unsigned int count) {
    if (start < this->size()) {
        this->erase(start, count);
    }
}

template <typename Char, typename Self>
bool STDStringCore<Char, Self>::Resize(unsigned int length) {
    if (length > this->size()) {
        this->append(length - this->size(), Char(0));
    } else {
        this->erase(length);
    }
    return true;
}

template <typename Char, typename Self>
const Char* STDStringCore<Char, Self>::ConsumeWhitespace(const Char* text, unsigned int limit) {
    if (text == nullptr) {
        return nullptr;
    }
    if (limit == 0) {
        // Computed on the address, as text - 1 may lie outside any object.
        return reinterpret_cast<const Char*>(reinterpret_cast<uintptr_t>(text) - sizeof(Char));
    }
    unsigned int index = 0;
    while (index + 1 < limit && (text[index] == Char(' ') || text[index] == Char('\t'))) {
        ++index;
    }
    return text + index;
}

template class STDStringCore<char, STDString>;
template class STDStringCore<wchar_t, STDWString>;

const STDString STDString::EmptyString;
const STDWString STDWString::EmptyString;

namespace {
template <typename Char>
size_t ClampedLength(const Char* text, int length) {
    if (text == nullptr) {
        return 0;
    }
    return length < 0 ? std::char_traits<Char>::length(text) : static_cast<size_t>(length);
}
}  // namespace

STDString::STDString(const char* text, int length)
    : Core(text != nullptr ? text : "", ClampedLength(text, length)) {}

STDString& STDString::operator=(const char* text) {
    Base::operator=(text != nullptr ? text : "");
    return *this;
}

STDString& STDString::operator=(char value) {
    Base::operator=(value);
    return *this;
}

STDWString::STDWString(const wchar_t* text, int length)
    : Core(text != nullptr ? text : L"", ClampedLength(text, length)) {}

STDWString& STDWString::operator=(const wchar_t* text) {
    Base::operator=(text != nullptr ? text : L"");
    return *this;
}

STDWString& STDWString::operator=(wchar_t value) {
    Base::operator=(value);
    return *this;
}

}  // namespace zn
