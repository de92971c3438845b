// StringTokenizer.cpp: the token and line scanner of both widths, its ring of result buffers, and
// the splitting of strings on separators.
#include "CoreLib/StringTokenizer.h"

#include "CoreLib/FileReader.h"
#include "CoreLib/MemoryManager.h"
#include "CoreLib/StringHelpers.h"

#include <charconv>
#include <string>

namespace zn {

namespace {
template <typename Char>
Char* AllocateCharacters(size_t count) {
    return static_cast<Char*>(MemoryManager::GlobalMalloc(count * sizeof(Char), 0));
}

template <typename Char>
void FreeCharacters(Char* characters) {
    if (characters != nullptr) {
        MemoryManager::GlobalFree(characters, 0);
    }
}

// A terminated copy of count characters from "GLOBAL"; null when the heap has no memory.
template <typename Char>
Char* CopyOf(const Char* characters, size_t count) {
    Char* copy = AllocateCharacters<Char>(count + 1);
    if (copy != nullptr) {
        std::char_traits<Char>::copy(copy, characters, count);
        copy[count] = Char(0);
    }
    return copy;
}

// The whole content of a reader as a terminated text from "GLOBAL"; false when no memory can be had.
// Narrow text is the bytes as they are.
bool ReadWholeText(FileReader& reader, char*& text, unsigned int& length) {
    const unsigned int size = reader.GetFileSize();
    text = AllocateCharacters<char>(static_cast<size_t>(size) + 1);
    if (text == nullptr) {
        return false;
    }
    length = reader.Read(text, 1, size);
    text[length] = '\0';
    return true;
}

// Wide text is stored as 16-bit little-endian units; an odd last byte is no unit. The bytes are
// read into the front of the text's own block and widened from the back, where every unit's
// element lies at or behind its two bytes, so no unit is overwritten before it is read.
bool ReadWholeText(FileReader& reader, wchar_t*& text, unsigned int& length) {
    const unsigned int size = reader.GetFileSize();
    const unsigned int units = size / 2;
    text = AllocateCharacters<wchar_t>(static_cast<size_t>(units) + 1);
    if (text == nullptr) {
        return false;
    }
    unsigned char* bytes = reinterpret_cast<unsigned char*>(text);
    length = reader.Read(bytes, 1, units * 2) / 2;
    for (unsigned int unit = length; unit-- > 0;) {
        const unsigned int low = bytes[2 * unit];
        const unsigned int high = bytes[2 * unit + 1];
        text[unit] = static_cast<wchar_t>(low | (high << 8));
    }
    text[length] = L'\0';
    return true;
}

// The number a token of digits and dots starts with, as atof reads it but in any locale.
template <typename Char>
float ParseNumber(const Char* token) {
    std::string digits;
    for (; *token != Char(0) && (IsNumeric(*token) || *token == Char('.')); ++token) {
        digits += static_cast<char>(*token);
    }
    double value = 0.0;
    std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return static_cast<float>(value);
}

// Calls visit(start, length) for each span SplitString yields.
template <typename String, typename Char, typename Visit>
void ForEachSpan(const String& text, const Char* separators, Visit visit) {
    size_t start = 0;
    if (separators != nullptr) {
        for (size_t found = text.find_first_of(separators); found != String::npos;
             found = text.find_first_of(separators, start)) {
            visit(start, found - start);
            start = found + 1;
        }
    }
    if (start < text.size()) {
        visit(start, text.size() - start);
    }
}
}  // namespace

template <typename Char, typename Buffer, typename String>
StringTokenizerCore<Char, Buffer, String>::StringTokenizerCore(unsigned int bufferCount)
    : m_Buffers(bufferCount > 0 ? bufferCount : 1) {
    const unsigned int slots = bufferCount > 0 ? bufferCount : 1;
    for (unsigned int slot = 0; slot < slots; ++slot) {
        m_Buffers.Add(Buffer());
    }
    // The first token goes to slot 0.
    m_BufferIndex = m_Buffers.GetSize() - 1;
}

template <typename Char, typename Buffer, typename String>
StringTokenizerCore<Char, Buffer, String>::~StringTokenizerCore() {
    FreeText();
    for (unsigned int slot = 0; slot < m_Buffers.GetSize(); ++slot) {
        FreeCharacters(m_Buffers[slot].data);
    }
}

template <typename Char, typename Buffer, typename String>
void StringTokenizerCore<Char, Buffer, String>::FreeText() {
    FreeCharacters(m_Text);
    m_Text = nullptr;
    m_Length = 0;
}

template <typename Char, typename Buffer, typename String>
void StringTokenizerCore<Char, Buffer, String>::SetString(const Char* text) {
    FreeText();
    const size_t length = text == nullptr ? 0 : std::char_traits<Char>::length(text);
    m_Text = CopyOf(text == nullptr ? String().c_str() : text, length);
    m_Length = m_Text == nullptr ? 0 : static_cast<unsigned int>(length);
    m_TokenStart = 0;
    m_Position = 0;
}

template <typename Char, typename Buffer, typename String>
bool StringTokenizerCore<Char, Buffer, String>::SetFile(const Path& path) {
    FreeText();
    m_TokenStart = 0;
    m_Position = 0;
    FileReader reader(path, false, false);
    if (!reader.IsLoaded()) {
        return false;
    }
    if (!ReadWholeText(reader, m_Text, m_Length)) {
        m_Text = nullptr;
        m_Length = 0;
        return false;
    }
    return true;
}

template <typename Char, typename Buffer, typename String>
bool StringTokenizerCore<Char, Buffer, String>::GoToNext(Predicate isWordCharacter) {
    m_TokenStart = m_Position;
    while (m_TokenStart < m_Length && IsWhiteSpace(m_Text[m_TokenStart])) {
        ++m_TokenStart;
    }
    if (m_TokenStart >= m_Length) {
        // The scan stays at the end instead of creeping past it on every further call.
        m_TokenStart = m_Length;
        m_Position = m_Length;
        return false;
    }
    m_Position = m_TokenStart + 1;
    const Char first = m_Text[m_TokenStart];
    if (IsNumeric(first)) {
        while (m_Position < m_Length && (IsNumeric(m_Text[m_Position]) || m_Text[m_Position] == Char('.'))) {
            ++m_Position;
        }
        return true;
    }
    if (isWordCharacter == nullptr || !isWordCharacter(first)) {
        return true;
    }
    while (m_Position < m_Length && (isWordCharacter(m_Text[m_Position]) || IsNumeric(m_Text[m_Position]))) {
        ++m_Position;
    }
    return true;
}

template <typename Char, typename Buffer, typename String>
bool StringTokenizerCore<Char, Buffer, String>::GoToNextLine() {
    if (m_Position >= m_Length) {
        return false;
    }
    m_TokenStart = m_Position;
    while (m_Position < m_Length && !IsNewLine(m_Text[m_Position])) {
        ++m_Position;
    }
    if (m_Position >= m_Length) {
        return true;
    }
    // The text is terminated, so the character after the line end can always be read.
    const Char end = m_Text[m_Position];
    const Char after = m_Text[m_Position + 1];
    m_Position += IsNewLine(after) && after != end ? 2 : 1;
    return true;
}

template <typename Char, typename Buffer, typename String>
Char* StringTokenizerCore<Char, Buffer, String>::GetBuffer(unsigned int size) {
    m_BufferIndex = (m_BufferIndex + 1) % m_Buffers.GetSize();
    Buffer& slot = m_Buffers[m_BufferIndex];
    if (slot.size < size) {
        FreeCharacters(slot.data);
        slot.data = AllocateCharacters<Char>(size);
        slot.size = slot.data == nullptr ? 0 : size;
    }
    return slot.data;
}

template <typename Char, typename Buffer, typename String>
Char* StringTokenizerCore<Char, Buffer, String>::CopyCurrent() {
    const unsigned int length = m_Position - m_TokenStart;
    Char* buffer = GetBuffer(length + 1);
    if (buffer != nullptr) {
        std::char_traits<Char>::copy(buffer, m_Text + m_TokenStart, length);
        buffer[length] = Char(0);
    }
    return buffer;
}

template <typename Char, typename Buffer, typename String>
Char* StringTokenizerCore<Char, Buffer, String>::Next(Predicate isWordCharacter) {
    return GoToNext(isWordCharacter) ? CopyCurrent() : nullptr;
}

template <typename Char, typename Buffer, typename String>
Char* StringTokenizerCore<Char, Buffer, String>::NextAfterToken(const Char* token,
                                                                Predicate isWordCharacter) {
    if (token == nullptr) {
        return nullptr;
    }
    const size_t tokenLength = std::char_traits<Char>::length(token);
    while (GoToNext(isWordCharacter)) {
        const size_t length = m_Position - m_TokenStart;
        if (length == tokenLength &&
            std::char_traits<Char>::compare(m_Text + m_TokenStart, token, length) == 0) {
            return Next(isWordCharacter);
        }
    }
    return nullptr;
}

template <typename Char, typename Buffer, typename String>
Char* StringTokenizerCore<Char, Buffer, String>::NextLine() {
    return GoToNextLine() ? CopyCurrent() : nullptr;
}

template <typename Char, typename Buffer, typename String>
float StringTokenizerCore<Char, Buffer, String>::ReadFloat() {
    const Char* token = Next(IsAlphabetical);
    float sign = 1.0f;
    if (token != nullptr && token[0] != Char(0) && token[1] == Char(0) &&
        (token[0] == Char('-') || token[0] == Char('+'))) {
        sign = token[0] == Char('-') ? -1.0f : 1.0f;
        token = Next(IsAlphabetical);
    }
    return token == nullptr ? 0.0f : sign * ParseNumber(token);
}

template <typename Char, typename Buffer, typename String>
void StringTokenizerCore<Char, Buffer, String>::SplitString(
    const String& text, const Char* separators, ObjectSet<String, DefaultComparator<String>>& result) {
    ForEachSpan(text, separators,
                [&](size_t start, size_t length) { result.Add(String(text.substr(start, length))); });
}

template <typename Char, typename Buffer, typename String>
void StringTokenizerCore<Char, Buffer, String>::SplitString(const String& text, const Char* separators,
                                                            Char**& tokens, int& count) {
    tokens = nullptr;
    count = 0;
    size_t spans = 0;
    ForEachSpan(text, separators, [&](size_t, size_t) { ++spans; });
    if (spans == 0) {
        return;
    }
    tokens = static_cast<Char**>(MemoryManager::GlobalMalloc(spans * sizeof(Char*), 0));
    if (tokens == nullptr) {
        return;
    }
    bool complete = true;
    ForEachSpan(text, separators, [&](size_t start, size_t length) {
        Char* copy = complete ? CopyOf(text.data() + start, length) : nullptr;
        complete = copy != nullptr;
        if (complete) {
            tokens[count++] = copy;
        }
    });
    if (!complete) {
        FreeSplitString(tokens, count);
    }
}

template <typename Char, typename Buffer, typename String>
void StringTokenizerCore<Char, Buffer, String>::FreeSplitString(Char**& tokens, int& count) {
    if (tokens != nullptr) {
        for (int index = 0; index < count; ++index) {
            FreeCharacters(tokens[index]);
        }
        MemoryManager::GlobalFree(tokens, 0);
    }
    tokens = nullptr;
    count = 0;
}

template class StringTokenizerCore<char, TokBuffer, STDString>;
template class StringTokenizerCore<wchar_t, TokBufferW, STDWString>;

}  // namespace zn
