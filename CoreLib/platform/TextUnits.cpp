// TextUnits.cpp: UTF-8 and 16-bit units, both ways.
#include "CoreLib/platform/TextUnits.h"

#include <cstdint>
#include <cwchar>

namespace zn::platform {

namespace {
constexpr char32_t kReplacement = 0xFFFD;

void AppendCodePoint(char32_t codePoint, std::string& utf8) {
    if (codePoint < 0x80) {
        utf8 += static_cast<char>(codePoint);
    } else if (codePoint < 0x800) {
        utf8 += static_cast<char>(0xC0 | (codePoint >> 6));
        utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        utf8 += static_cast<char>(0xE0 | (codePoint >> 12));
        utf8 += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    } else {
        utf8 += static_cast<char>(0xF0 | (codePoint >> 18));
        utf8 += static_cast<char>(0x80 | ((codePoint >> 12) & 0x3F));
        utf8 += static_cast<char>(0x80 | ((codePoint >> 6) & 0x3F));
        utf8 += static_cast<char>(0x80 | (codePoint & 0x3F));
    }
}

void AppendAsUnits(char32_t codePoint, std::wstring& units) {
    if (codePoint < 0x10000) {
        units += static_cast<wchar_t>(codePoint);
        return;
    }
    codePoint -= 0x10000;
    units += static_cast<wchar_t>(0xD800 + (codePoint >> 10));
    units += static_cast<wchar_t>(0xDC00 + (codePoint & 0x3FF));
}

// Decodes one well-formed sequence at bytes[index]; a malformed one consumes its lead byte only
// and yields the replacement character.
char32_t DecodeOne(const unsigned char* bytes, size_t count, size_t& index) {
    unsigned char lead = bytes[index++];
    if (lead < 0x80) {
        return lead;
    }
    int trailing = 0;
    char32_t codePoint = 0;
    char32_t minimum = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        trailing = 1, codePoint = lead & 0x1F, minimum = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        trailing = 2, codePoint = lead & 0x0F, minimum = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        trailing = 3, codePoint = lead & 0x07, minimum = 0x10000;
    } else {
        return kReplacement;
    }
    if (index + static_cast<size_t>(trailing) > count) {
        return kReplacement;
    }
    for (int i = 0; i < trailing; ++i) {
        unsigned char next = bytes[index + static_cast<size_t>(i)];
        if ((next & 0xC0) != 0x80) {
            return kReplacement;
        }
        codePoint = (codePoint << 6) | (next & 0x3F);
    }
    if (codePoint < minimum || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
        return kReplacement;
    }
    index += static_cast<size_t>(trailing);
    return codePoint;
}
}  // namespace

void AppendUnitsAsUtf8(const wchar_t* units, std::string& utf8) {
    AppendUnitsAsUtf8(units, wcslen(units), utf8);
}

void AppendUnitsAsUtf8(const wchar_t* units, size_t count, std::string& utf8) {
    for (size_t index = 0; index < count; ++index) {
        auto unit = static_cast<uint32_t>(units[index]);
        if (unit >= 0xD800 && unit <= 0xDBFF && index + 1 < count) {
            auto low = static_cast<uint32_t>(units[index + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                AppendCodePoint(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), utf8);
                ++index;
                continue;
            }
        }
        bool lone = unit >= 0xD800 && unit <= 0xDFFF;
        AppendCodePoint(lone || unit > 0xFFFF ? kReplacement : static_cast<char32_t>(unit), utf8);
    }
}

void AppendUtf8AsUnits(const char* utf8, std::wstring& units) {
    size_t count = 0;
    while (utf8[count] != '\0') {
        ++count;
    }
    AppendUtf8AsUnits(utf8, count, units);
}

void AppendUtf8AsUnits(const char* utf8, size_t count, std::wstring& units) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(utf8);
    size_t index = 0;
    while (index < count) {
        AppendAsUnits(DecodeOne(bytes, count, index), units);
    }
}

}  // namespace zn::platform
