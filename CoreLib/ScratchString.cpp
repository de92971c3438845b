// ScratchString.cpp: the growing text builders, narrow and wide.
#include "CoreLib/ScratchString.h"

#include "CoreLib/BoundedFormat.h"
#include "CoreLib/FixedString.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/Crt.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <new>

namespace zn {

namespace {

// What differs between the narrow and the wide builder: literals, lengths and the format family.
template <typename Char>
struct ScratchText;

template <>
struct ScratchText<char> {
    // The template's reports carry the name of the class the user holds.
    static constexpr const char* kGrowFunction = "zn::ScratchString::Grow";
    static constexpr const char* kAppendFunction = "zn::ScratchString::Append";
    static constexpr const char* kLong = "%ld";
    static constexpr const char* kUnsignedLong = "%lu";
    static constexpr const char* kInt = "%d";
    static constexpr const char* kUnsigned = "%u";
    static constexpr const char* kFloat = "%f";
    static constexpr const char* kDouble = "%g";
    static constexpr const char* kFloatPrecision = "%%.%df";
    static constexpr const char* kDoublePrecision = "%%.%dg";
    static size_t Length(const char* text) { return std::strlen(text); }
    static int Count(const char* format, va_list arguments) {
        return platform::VscprintfCount(format, arguments);
    }
    static void Format(char* buffer, unsigned int& size, const char* format, va_list arguments) {
        znvsnprintf(buffer, size, format, arguments);
    }
};

template <>
struct ScratchText<wchar_t> {
    static constexpr const char* kGrowFunction = "zn::ScratchStringW::Grow";
    static constexpr const char* kAppendFunction = "zn::ScratchStringW::Append";
    static constexpr const wchar_t* kLong = L"%ld";
    static constexpr const wchar_t* kUnsignedLong = L"%lu";
    static constexpr const wchar_t* kInt = L"%d";
    static constexpr const wchar_t* kUnsigned = L"%u";
    static constexpr const wchar_t* kFloat = L"%f";
    static constexpr const wchar_t* kDouble = L"%g";
    static constexpr const wchar_t* kFloatPrecision = L"%%.%df";
    static constexpr const wchar_t* kDoublePrecision = L"%%.%dg";
    static size_t Length(const wchar_t* text) { return std::wcslen(text); }
    static int Count(const wchar_t* format, va_list arguments) {
        return platform::VscwprintfCount(format, arguments);
    }
    static void Format(wchar_t* buffer, unsigned int& size, const wchar_t* format, va_list arguments) {
        znvsnwprintf(buffer, size, format, arguments);
    }
};

// Formats with the reporting bounded printf of the character type.
template <typename Char>
void FormatInto(Char* buffer, unsigned int size, const Char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    ScratchText<Char>::Format(buffer, size, format, arguments);
    va_end(arguments);
}

template <typename Char>
void CopyText(Char* target, const Char* text) {
    std::memcpy(target, text, (ScratchText<Char>::Length(text) + 1) * sizeof(Char));
}

}  // namespace

template <typename Char, typename Self, typename StdString>
ScratchStringCore<Char, Self, StdString>::ScratchStringCore(unsigned int initialSize,
                                                            unsigned int maximumSize, bool canGrow)
    : m_MaximumSize(maximumSize), m_CanGrow(canGrow) {
    if (g_ConversionBuffer == nullptr) {
        g_ConversionBuffer = new (std::nothrow) Char[g_ConversionBufferSize];
    }
    if (initialSize > g_Max_string_length) {
        initialSize = g_Max_string_length;
    }
    if (initialSize < g_Min_string_length) {
        initialSize = g_Min_string_length;
    }
    m_Buffer = new (std::nothrow) Char[initialSize]();
    m_AllocatedSize = m_Buffer != nullptr ? initialSize : 0;
    m_FloatFormat = new (std::nothrow) Char[g_FloatFormatBufferSize];
    m_DoubleFormat = new (std::nothrow) Char[g_DoubleFormatBufferSize];
    ++g_RefCounter;
    SetFloatPrecision(-1);
}

template <typename Char, typename Self, typename StdString>
ScratchStringCore<Char, Self, StdString>::~ScratchStringCore() {
    Destroy();
    if (--g_RefCounter == 0) {
        delete[] g_ConversionBuffer;
        g_ConversionBuffer = nullptr;
    }
}

template <typename Char, typename Self, typename StdString>
void ScratchStringCore<Char, Self, StdString>::Destroy() {
    delete[] m_Buffer;
    delete[] m_FloatFormat;
    delete[] m_DoubleFormat;
    m_Buffer = nullptr;
    m_FloatFormat = nullptr;
    m_DoubleFormat = nullptr;
    m_Size = 0;
    m_AllocatedSize = 0;
}

template <typename Char, typename Self, typename StdString>
const Char* ScratchStringCore<Char, Self, StdString>::EmptyText() {
    static const Char empty[1] = {};
    return empty;
}

template <typename Char, typename Self, typename StdString>
void ScratchStringCore<Char, Self, StdString>::Reset() {
    m_Size = 0;
    if (m_Buffer != nullptr) {
        m_Buffer[0] = Char();
    }
}

template <typename Char, typename Self, typename StdString>
bool ScratchStringCore<Char, Self, StdString>::Grow(unsigned int extra) {
    if (!m_CanGrow) {
        ZN_REPORT_AS(ScratchText<Char>::kGrowFunction,
                     "Scratchstring is not allowed to grow.  Choose a better initial size?");
        return false;
    }
    uint64_t grownSize = uint64_t{m_AllocatedSize} + extra;
    Char* grown = grownSize <= UINT32_MAX ? new (std::nothrow) Char[grownSize]() : nullptr;
    if (grown == nullptr) {
        ZN_REPORT_AS(ScratchText<Char>::kGrowFunction, "Scratchstring cannot allocate %llu characters",
                     static_cast<unsigned long long>(grownSize));
        return false;
    }
    if (m_Buffer != nullptr) {
        std::memcpy(grown, m_Buffer, m_AllocatedSize * sizeof(Char));
    }
    delete[] m_Buffer;
    m_Buffer = grown;
    m_AllocatedSize = static_cast<unsigned int>(grownSize);
    return true;
}

template <typename Char, typename Self, typename StdString>
bool ScratchStringCore<Char, Self, StdString>::Reserve(unsigned int& length, unsigned int& needed) {
    uint64_t wanted = uint64_t{length} + m_Size + 1;
    if (m_MaximumSize != MAX_SIZE_INFINITE && wanted > m_MaximumSize) {
        // A maximum lowered below the present text leaves nothing to append.
        uint64_t room = m_MaximumSize > m_Size + 1 ? m_MaximumSize - (m_Size + 1) : 0;
        length = static_cast<unsigned int>(room);
        wanted = uint64_t{length} + m_Size + 1;
    }
    if (wanted > UINT32_MAX) {
        ZN_REPORT_AS(ScratchText<Char>::kAppendFunction, "Scratchstring cannot hold %llu characters",
                     static_cast<unsigned long long>(wanted));
        return false;
    }
    needed = static_cast<unsigned int>(wanted);
    if (needed > m_AllocatedSize && !Grow(needed - m_AllocatedSize)) {
        return false;
    }
    return length != 0;
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::Append(const Char* const text, unsigned int length) {
    if (text == nullptr) {
        return Self_();
    }
    // Appending a part of itself must survive the move of the buffer.
    bool ownText = m_Buffer != nullptr && text >= m_Buffer && text < m_Buffer + m_AllocatedSize;
    ptrdiff_t ownOffset = ownText ? text - m_Buffer : 0;
    unsigned int needed = 0;
    if (!Reserve(length, needed)) {
        return Self_();
    }
    const Char* source = ownText ? m_Buffer + ownOffset : text;
    std::memmove(m_Buffer + m_Size, source, length * sizeof(Char));
    m_Size = needed - 1;
    m_Buffer[m_Size] = Char();
    return Self_();
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::AppendFormattedString(const Char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list counting;
    va_copy(counting, arguments);
    int counted = ScratchText<Char>::Count(format, counting);
    va_end(counting);
    unsigned int length = counted > 0 ? static_cast<unsigned int>(counted) : 0;
    unsigned int needed = 0;
    if (Reserve(length, needed)) {
        // Past the maximum the formatting runs out of room: the cut text stays, with the report.
        unsigned int room = m_AllocatedSize - m_Size;
        ScratchText<Char>::Format(m_Buffer + m_Size, room, format, arguments);
        m_Size = needed - 1;
        m_Buffer[m_Size] = Char();
    }
    va_end(arguments);
    return Self_();
}

template <typename Char, typename Self, typename StdString>
template <typename Number>
Self& ScratchStringCore<Char, Self, StdString>::AppendNumber(const Char* format, Number value) {
    if (g_ConversionBuffer == nullptr || format == nullptr) {
        return Self_();
    }
    FormatInto(g_ConversionBuffer, g_ConversionBufferSize, format, value);
    return Append(g_ConversionBuffer,
                  static_cast<unsigned int>(ScratchText<Char>::Length(g_ConversionBuffer)));
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(const Char* text) {
    if (text == nullptr) {
        return Self_();
    }
    return Append(text, static_cast<unsigned int>(ScratchText<Char>::Length(text)));
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(Char character) {
    return Append(&character, 1);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(long value) {
    return AppendNumber(ScratchText<Char>::kLong, value);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(unsigned long value) {
    return AppendNumber(ScratchText<Char>::kUnsignedLong, value);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(int value) {
    return AppendNumber(ScratchText<Char>::kInt, value);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(unsigned int value) {
    return AppendNumber(ScratchText<Char>::kUnsigned, value);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(float value) {
    return AppendNumber(m_FloatFormat, static_cast<double>(value));
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(double value) {
    return AppendNumber(m_DoubleFormat, value);
}

template <typename Char, typename Self, typename StdString>
Self& ScratchStringCore<Char, Self, StdString>::operator<<(const StdString& text) {
    return Append(text.ToChar(), static_cast<unsigned int>(text.size()));
}

template <typename Char, typename Self, typename StdString>
void ScratchStringCore<Char, Self, StdString>::Cut(unsigned int position, unsigned int count) {
    if (position >= m_Size || count == 0) {
        return;
    }
    if (count == MAX_SIZE_INFINITE || count >= m_Size - position) {
        m_Size = position;
    } else {
        std::memmove(m_Buffer + position, m_Buffer + position + count,
                     (m_Size - position - count) * sizeof(Char));
        m_Size -= count;
    }
    m_Buffer[m_Size] = Char();
}

template <typename Char, typename Self, typename StdString>
void ScratchStringCore<Char, Self, StdString>::Replace(Char from, Char to) {
    for (Char* character = m_Buffer; character != nullptr && *character != Char(); ++character) {
        if (*character == from) {
            *character = to;
        }
    }
}

template <typename Char, typename Self, typename StdString>
void ScratchStringCore<Char, Self, StdString>::SetFloatPrecision(int digits) {
    if (m_FloatFormat == nullptr || m_DoubleFormat == nullptr) {
        return;
    }
    if (digits >= 0) {
        FormatInto(m_FloatFormat, g_FloatFormatBufferSize, ScratchText<Char>::kFloatPrecision, digits);
        FormatInto(m_DoubleFormat, g_DoubleFormatBufferSize, ScratchText<Char>::kDoublePrecision, digits);
    } else {
        CopyText(m_FloatFormat, ScratchText<Char>::kFloat);
        CopyText(m_DoubleFormat, ScratchText<Char>::kDouble);
    }
}

ScratchString& ScratchString::operator<<(const FixedString& text) {
    const char* characters = text.ToChar();
    if (characters == nullptr) {
        return *this;
    }
    return Append(characters, static_cast<unsigned int>(std::strlen(characters)));
}

template class ScratchStringCore<char, ScratchString, STDString>;
template class ScratchStringCore<wchar_t, ScratchStringW, STDWString>;

}  // namespace zn
