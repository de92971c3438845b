// FixedString.h: a handle on an interned string. Equal texts share one entry of the global string
// table, so comparing two FixedStrings compares two pointers and copying one is one atomic increment.
#pragma once

namespace zn {

class FixedString {
public:
    // The null string: no entry, IsValid false.
    FixedString() = default;
    // Interns length characters of text, or up to its terminator for -1; a null text gives the
    // null string without touching the table.
    FixedString(const char* text, int length = -1);
    FixedString(const FixedString& other);
    ~FixedString();

    FixedString& operator=(const FixedString& other);
    // Interns text (null gives the null string); the old entry is released only afterwards, so a
    // string can be assigned a part of its own text.
    FixedString& operator=(const char* text);

    // The characters, null for the null string.
    const char* ToChar() const { return m_Handle; }
    bool IsValid() const { return m_Handle != nullptr; }
    // True for the null string and for "".
    bool IsEmpty() const;
    unsigned int GetLength() const;
    // References on the entry, the table's own included: 2 for a text held by one FixedString.
    unsigned int GetRefCount() const;

    // Same entry: "" and the null string differ.
    bool Equals(const FixedString& other) const { return m_Handle == other.m_Handle; }
    // Same pointer, or both non-null and equal byte for byte.
    bool Equals(const char* text) const;
    // As Equals, with ASCII letters compared without case.
    bool EqualsNoCase(const FixedString& other) const { return EqualsNoCase(other.m_Handle); }
    bool EqualsNoCase(const char* text) const;
    // True when text occurs in this string; an empty or null string or text never contains or is
    // contained, except that a non-null string contains its own characters.
    bool Contains(const FixedString& other) const { return Contains(other.m_Handle); }
    bool Contains(const char* text) const;
    // As Contains, with ASCII letters compared without case.
    bool ContainsNoCase(const FixedString& other) const { return ContainsNoCase(other.m_Handle); }
    bool ContainsNoCase(const char* text) const;

private:
    // Points at the entry's characters; this object owns one reference on the entry.
    char* m_Handle = nullptr;

    friend class FixedStringHacker;
};

static_assert(sizeof(FixedString) == sizeof(void*), "a FixedString is exactly its handle");

inline bool operator==(const FixedString& left, const FixedString& right) {
    return left.Equals(right);
}
inline bool operator!=(const FixedString& left, const FixedString& right) {
    return !left.Equals(right);
}
inline bool operator==(const FixedString& left, const char* right) {
    return left.Equals(right);
}
inline bool operator!=(const FixedString& left, const char* right) {
    return !left.Equals(right);
}
inline bool operator==(const char* left, const FixedString& right) {
    return right.Equals(left);
}
inline bool operator!=(const char* left, const FixedString& right) {
    return !right.Equals(left);
}

// Reaches the handle of a FixedString, for code that stores handles in a table of its own.
class FixedStringHacker {
public:
    static char* GetHandle(const FixedString& string) { return string.m_Handle; }
    // Makes string hold handle, taking a reference on it (if not null) and giving up the old one.
    static void SetHandle(FixedString& string, char* handle);
};

// The hash policy of containers keyed by FixedString: the handle's address, never the text, so the
// index of a text differs from run to run and must not be stored.
class FixedStringRefMapHashFunctor {
public:
    static unsigned int KeyToHashIndex(const FixedString& key, unsigned int bucketCount);
    static bool Assert() { return true; }
};

// A new random GUID as lowercase text ("xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx"), interned inside a
// RequestTable bracket, so it may be made at run time.
FixedString GenerateGUID();

}  // namespace zn
