// Localization.cpp: the UTF-8 and wide text conversions.
#include "CoreLib/Localization.h"

#include "CoreLib/Path.h"
#include "CoreLib/platform/TextUnits.h"

#include <cstddef>

namespace zn {

namespace {
// The characters a conversion reads: up to the terminator, or at most count of them and never past
// a NUL, since the text of a counted conversion is read as if copied into a zeroed buffer.
template <typename Char>
size_t ConvertedLength(const Char* text, int count) {
    if (text == nullptr) {
        return 0;
    }
    const size_t limit = count < 0 ? static_cast<size_t>(-1) : static_cast<size_t>(count);
    size_t length = 0;
    while (length < limit && text[length] != Char(0)) {
        ++length;
    }
    return length;
}
}  // namespace

Localization::ConvertWideToMultiByte::ConvertWideToMultiByte(const wchar_t* const text, int count) {
    const size_t units = ConvertedLength(text, count);
    if (units > 0) {
        // ASCII is the common case: one byte a unit, so one allocation at most.
        m_Buffer.reserve(units);
        platform::AppendUnitsAsUtf8(text, units, m_Buffer);
    }
    m_Length = static_cast<unsigned int>(m_Buffer.size());
}

Localization::ConvertWideToMultiByte::ConvertWideToMultiByte(const Path& path)
    : ConvertWideToMultiByte(path.ToWChar(), static_cast<int>(path.Length())) {}

Localization::ConvertWideToMultiByte::ConvertWideToMultiByte(const STDWString& text)
    : ConvertWideToMultiByte(text.ToChar(), static_cast<int>(text.Length())) {}

Localization::ConvertMultiByteToWide::ConvertMultiByteToWide(const char* const text, int count) {
    const size_t bytes = ConvertedLength(text, count);
    if (bytes > 0) {
        // A byte never yields more than one unit, so this is the only allocation.
        m_Buffer.reserve(bytes);
        platform::AppendUtf8AsUnits(text, bytes, m_Buffer);
    }
    m_Length = static_cast<unsigned int>(m_Buffer.size());
}

Localization::ConvertMultiByteToWide::ConvertMultiByteToWide(const STDString& text)
    : ConvertMultiByteToWide(text.ToChar(), static_cast<int>(text.Length())) {}

}  // namespace zn
