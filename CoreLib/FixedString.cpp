// FixedString.cpp: handles on interned strings, their comparisons, and GUIDs as interned text.
#include "CoreLib/FixedString.h"

#include "CoreLib/GlobalStringTable.h"
#include "CoreLib/platform/Guid.h"

#include <cstdint>
#include <cstring>
#include <optional>

namespace zn {

namespace {
// ASCII letters only, whatever locale the host has set: the comparisons must not change with it.
int FoldCase(char c) {
    auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte;
}

// Compares at most count characters without case, stopping at a terminator; 0 when equal.
int CompareNoCase(const char* left, const char* right, size_t count) {
    for (size_t index = 0; index < count; ++index) {
        int leftChar = FoldCase(left[index]);
        int rightChar = FoldCase(right[index]);
        if (leftChar != rightChar || leftChar == 0) {
            return leftChar - rightChar;
        }
    }
    return 0;
}

// The verdict of the tests Contains and ContainsNoCase share, or nothing when the texts have to be
// searched.
std::optional<bool> ContainsWithoutSearch(const char* haystack, const char* needle) {
    if (haystack == needle) {
        return haystack != nullptr;
    }
    if (haystack == nullptr || needle == nullptr || *haystack == '\0' || *needle == '\0') {
        return false;
    }
    return std::nullopt;
}
}  // namespace

FixedString::FixedString(const char* text, int length)
    : m_Handle(text == nullptr ? nullptr : GlobalStringTable::Add(text, length)) {}

FixedString::FixedString(const FixedString& other) : m_Handle(other.m_Handle) {
    GlobalStringTable::IncRefCount(m_Handle);
}

FixedString::~FixedString() {
    GlobalStringTable::DecRefCount(m_Handle);
}

FixedString& FixedString::operator=(const FixedString& other) {
    if (m_Handle == other.m_Handle) {
        return *this;
    }
    // The new reference first, then the old one goes: no entry that either string names is ever
    // left without a reference in between.
    char* incoming = other.m_Handle;
    GlobalStringTable::IncRefCount(incoming);
    GlobalStringTable::DecRefCount(m_Handle);
    m_Handle = incoming;
    return *this;
}

FixedString& FixedString::operator=(const char* text) {
    if (text == m_Handle) {
        return *this;
    }
    char* previous = m_Handle;
    m_Handle = text == nullptr ? nullptr : GlobalStringTable::Add(text, -1);
    GlobalStringTable::DecRefCount(previous);
    return *this;
}

bool FixedString::IsEmpty() const {
    return m_Handle == nullptr || GlobalStringTable::GetLength(m_Handle) == 0;
}

unsigned int FixedString::GetLength() const {
    return GlobalStringTable::GetLength(m_Handle);
}

unsigned int FixedString::GetRefCount() const {
    return GlobalStringTable::GetRefCount(m_Handle);
}

bool FixedString::Equals(const char* text) const {
    if (m_Handle == text) {
        return true;
    }
    if (m_Handle == nullptr || text == nullptr) {
        return false;
    }
    return std::strcmp(m_Handle, text) == 0;
}

bool FixedString::EqualsNoCase(const char* text) const {
    if (m_Handle == text) {
        return true;
    }
    if (m_Handle == nullptr || text == nullptr) {
        return false;
    }
    return CompareNoCase(m_Handle, text, SIZE_MAX) == 0;
}

bool FixedString::Contains(const char* text) const {
    if (std::optional<bool> verdict = ContainsWithoutSearch(m_Handle, text)) {
        return *verdict;
    }
    return std::strstr(m_Handle, text) != nullptr;
}

bool FixedString::ContainsNoCase(const char* text) const {
    if (std::optional<bool> verdict = ContainsWithoutSearch(m_Handle, text)) {
        return *verdict;
    }
    size_t needleLength = std::strlen(text);
    unsigned int length = GetLength();
    for (unsigned int position = 0; position < length; ++position) {
        if (CompareNoCase(m_Handle + position, text, needleLength) == 0) {
            return true;
        }
    }
    return false;
}

void FixedStringHacker::SetHandle(FixedString& string, char* handle) {
    // The new reference first: when handle is the string's own, giving up the old reference first
    // could free the entry before it is taken again.
    GlobalStringTable::IncRefCount(handle);
    GlobalStringTable::DecRefCount(string.m_Handle);
    string.m_Handle = handle;
}

unsigned int FixedStringRefMapHashFunctor::KeyToHashIndex(const FixedString& key, unsigned int bucketCount) {
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(key.ToChar()) % bucketCount);
}

FixedString GenerateGUID() {
    std::array<char, platform::kGuidTextLength + 1> text = platform::GenerateGuidText();
    // GUIDs are made at run time too, when interning is otherwise an error.
    GlobalStringTable::RequestTable();
    FixedString guid(text.data(), static_cast<int>(platform::kGuidTextLength));
    GlobalStringTable::ReleaseTable();
    return guid;
}

}  // namespace zn
