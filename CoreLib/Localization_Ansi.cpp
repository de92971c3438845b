// Localization_Ansi.cpp: the text of translation files, with its escapes and its own form of the
// code points above 0xFFFF, to wide text and back.
#include "CoreLib/Localization.h"

#include "CoreLib/Report.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

namespace zn {

namespace {
// The escapes in the order they are replaced, each over the whole text before the next: the double
// backslash comes after the letters, so a double backslash before "n" ends as a backslash and a
// newline.
struct Escape {
    const char* sequence;
    const char* replacement;
};

constexpr Escape kEscapes[] = {
    {"\\n", "\n"}, {"\\t", "\t"},  {"\\v", "\v"}, {"\\b", "\b"}, {"\\r", "\r"}, {"\\f", "\f"},
    {"\\a", "\a"}, {"\\\\", "\\"}, {"\\?", "?"},  {"\\'", "'"},  {"\\0", ""},
};

constexpr const char* kDoUTFAsAnsiName = "zn::Localization::UTFAsAnsi::DoUTFAsAnsi";

// The continuation bits of byte, six of them.
unsigned int Low6(unsigned char byte) {
    return byte & 0x3Fu;
}
}  // namespace

Localization::AnsiAsUTF::AnsiAsUTF(const char* const text) {
    STDString copy(text);
    TranslateEscapeCharacters(copy);
    DoAnsiAsUTF(copy.ToChar());
}

void Localization::AnsiAsUTF::TranslateEscapeCharacters(STDString& text) {
    for (const Escape& escape : kEscapes) {
        // The library's replace searches from the start again after each shorter replacement, so a
        // run of backslashes shrinks to one.
        text.Replace(escape.sequence, escape.replacement);
    }
}

// Decodes by the lead byte alone: a byte below 0xE0 that is not ASCII (a stray continuation byte
// too) leads two bytes, below 0xF0 three, below 0xF5 four, and the bytes that follow give their low
// six bits whatever they are. A sequence cut by the end of the text ends the decoding.
void Localization::AnsiAsUTF::DoAnsiAsUTF(const char* text) {
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
    size_t length = std::strlen(text);
    m_Text.reserve(length);
    size_t at = 0;
    while (at < length) {
        unsigned char lead = bytes[at];
        if (lead < 0x80) {
            m_Text += static_cast<wchar_t>(lead);
            at += 1;
            continue;
        }
        if (lead >= 0xF5) {
            at += 1;
            continue;
        }
        size_t count = lead < 0xE0 ? 2 : (lead < 0xF0 ? 3 : 4);
        if (length - at < count) {
            return;
        }
        unsigned int codePoint = lead & (count == 2 ? 0x1Fu : (count == 3 ? 0x0Fu : 0x07u));
        for (size_t index = 1; index < count; ++index) {
            codePoint = (codePoint << 6) | Low6(bytes[at + index]);
        }
        if (count == 4) {
            // The high bits, then the low byte: the form translation texts are read in, which is
            // not a surrogate pair.
            m_Text += static_cast<wchar_t>(codePoint >> 8);
            m_Text += static_cast<wchar_t>(codePoint & 0xFF);
        } else {
            m_Text += static_cast<wchar_t>(codePoint);
        }
        at += count;
    }
}

Localization::UTFAsAnsi::UTFAsAnsi(const wchar_t* const text) {
    size_t length = text != nullptr ? std::wcslen(text) : 0;
    DoUTFAsAnsi(text, length);
}

void Localization::UTFAsAnsi::DoUTFAsAnsi(const wchar_t* text, size_t length) {
    // Four bytes a unit at most, and room behind.
    const size_t capacity = length * 4 + 2;
    m_Text.assign(capacity, '\0');
    size_t written = 0;
    for (size_t at = 0; at < length; ++at) {
        uint32_t codePoint = static_cast<uint32_t>(text[at]);
        if (codePoint >= 0xD800 && codePoint <= 0xDBFF) {
            if (at + 1 == length) {
                ZN_REPORT_AS(kDoUTFAsAnsiName, "Conversion failed.");
                break;
            }
            uint32_t next = static_cast<uint32_t>(text[at + 1]);
            if (next >= 0xDC00 && next <= 0xDFFF) {
                codePoint = 0x10000 + ((codePoint - 0xD800) << 10) + (next - 0xDC00);
                ++at;
            }
        }
        if (codePoint > 0x10FFFF) {
            codePoint = 0xFFFD;
        }
        size_t count = codePoint < 0x80 ? 1 : (codePoint < 0x800 ? 2 : (codePoint < 0x10000 ? 3 : 4));
        if (written + count >= capacity) {
            ZN_REPORT_AS(kDoUTFAsAnsiName, "Conversion failed.");
            break;
        }
        static constexpr unsigned char kLeadMarks[5] = {0x00, 0x00, 0xC0, 0xE0, 0xF0};
        for (size_t index = count - 1; index > 0; --index) {
            m_Text[written + index] = static_cast<char>(0x80 | (codePoint & 0x3F));
            codePoint >>= 6;
        }
        m_Text[written] = static_cast<char>(kLeadMarks[count] | codePoint);
        written += count;
    }
    m_Text.resize(written);
}

}  // namespace zn
