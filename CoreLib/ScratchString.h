// ScratchString.h: growing text builders with stream operators and a limit on their length, for
// text that is built up, read once and thrown away. ScratchString holds char, ScratchStringW
// wchar_t; sizes count characters of the string's own type and include no terminator unless said.
#pragma once

#include "CoreLib/STDString.h"
#include "CoreLib/TrackedObject.h"

namespace zn {

class FixedString;

// The two builders share everything but their character type. Self is the concrete class, so the
// operators chain on it; StdString is the matching standard string.
template <typename Char, typename Self, typename StdString>
class ScratchStringCore {
public:
    // No limit on the length.
    static constexpr unsigned int MAX_SIZE_INFINITE = 0xFFFFFFFF;

    // initialSize is clipped into [1, 0xFFFF]; maximumSize bounds the text plus its terminator.
    ScratchStringCore(unsigned int initialSize, unsigned int maximumSize, bool canGrow);
    ~ScratchStringCore();
    // A copy would share the buffers and free them twice.
    ScratchStringCore(const ScratchStringCore&) = delete;
    ScratchStringCore& operator=(const ScratchStringCore&) = delete;

    // The text, always terminated.
    const Char* ToChar() const { return m_Buffer != nullptr ? m_Buffer : EmptyText(); }
    operator const Char*() const { return ToChar(); }
    operator StdString() const { return StdString(ToChar(), static_cast<int>(m_Size)); }

    void Reset();
    bool IsReset() const { return m_Size == 0; }

    void SetMaximumSize(unsigned int maximumSize) { m_MaximumSize = maximumSize; }
    unsigned int GetMaximumSize() const { return m_MaximumSize; }
    unsigned int GetAllocatedSize() const { return m_AllocatedSize; }
    unsigned int GetSize() const { return m_Size; }

    // Each appends; text beyond the maximum is dropped silently. Not thread-safe between
    // instances: the numbers are formatted in one buffer shared by all of them.
    Self& operator<<(const Char* text);
    Self& operator<<(Char character);
    Self& operator<<(long value);
    Self& operator<<(unsigned long value);
    Self& operator<<(int value);
    Self& operator<<(unsigned int value);
    Self& operator<<(float value);
    Self& operator<<(double value);
    Self& operator<<(const StdString& text);

    template <typename Value>
    Self& Concatenate(const Value& value) {
        return *this << value;
    }
    Self& Concatenate(const Char* text) { return *this << text; }
    Self& Concatenate(const Char* text, unsigned int length) { return Append(text, length); }

    // Appends printf-formatted text under the same limit.
    Self& AppendFormattedString(const Char* format, ...);

    // Removes count characters from position; MAX_SIZE_INFINITE or a count past the end cuts there.
    void Cut(unsigned int position, unsigned int count);
    void Replace(Char from, Char to);
    // Fixed decimals for the float and double operators; a negative count restores "%f" and "%g".
    void SetFloatPrecision(int digits);

protected:
    static constexpr unsigned int g_Max_string_length = 0xFFFF;
    static constexpr unsigned int g_Min_string_length = 1;
    static constexpr unsigned short g_ConversionBufferSize = 128;
    static constexpr unsigned short g_FloatFormatBufferSize = 8;
    static constexpr unsigned short g_DoubleFormatBufferSize = 16;
    // Shared by every instance of this character type, with no lock.
    static inline Char* g_ConversionBuffer = nullptr;
    // Live instances; the last to go frees g_ConversionBuffer.
    static inline int g_RefCounter = 0;

    // Adds exactly extra characters to the allocation; false, with a report, for a fixed string.
    bool Grow(unsigned int extra);
    Self& Append(const Char* const text, unsigned int length);
    // Frees the buffers and leaves the instance empty, without counting it out.
    void Destroy();

private:
    static const Char* EmptyText();
    Self& Self_() { return static_cast<Self&>(*this); }
    // Applies the limit to length and makes room; false when nothing is to be appended.
    bool Reserve(unsigned int& length, unsigned int& needed);
    template <typename Number>
    Self& AppendNumber(const Char* format, Number value);

    Char* m_Buffer = nullptr;
    unsigned int m_Size = 0;
    unsigned int m_AllocatedSize = 0;
    unsigned int m_MaximumSize;
    bool m_CanGrow;
    Char* m_FloatFormat = nullptr;
    Char* m_DoubleFormat = nullptr;
};

// Narrow scratch text.
class ScratchString : public TrackedObject<ScratchString>,
                      public ScratchStringCore<char, ScratchString, STDString> {
public:
    using Core = ScratchStringCore<char, ScratchString, STDString>;
    using Core::Concatenate;
    using Core::operator<<;

    ScratchString(unsigned int initialSize, unsigned int maximumSize, bool canGrow)
        : Core(initialSize, maximumSize, canGrow) {}

    ScratchString& operator<<(const FixedString& text);
    ScratchString& Concatenate(const FixedString& text) { return *this << text; }
};

// Wide scratch text: one 16-bit unit in each wchar_t.
class ScratchStringW : public TrackedObject<ScratchStringW>,
                       public ScratchStringCore<wchar_t, ScratchStringW, STDWString> {
public:
    using Core = ScratchStringCore<wchar_t, ScratchStringW, STDWString>;
    using Core::Concatenate;
    using Core::operator<<;

    ScratchStringW(unsigned int initialSize, unsigned int maximumSize, bool canGrow)
        : Core(initialSize, maximumSize, canGrow) {}
};

extern template class ScratchStringCore<char, ScratchString, STDString>;
extern template class ScratchStringCore<wchar_t, ScratchStringW, STDWString>;

}  // namespace zn
