// StringTokenizer.h: scans a private copy of a text into tokens and lines for hand-written parsers,
// handing each result out in one slot of a ring of buffers, and splits strings on separators.
#pragma once

#include "CoreLib/STDString.h"
#include "CoreLib/Set.h"

namespace zn {

class Path;

// One slot of a tokenizer's ring: size characters from "GLOBAL", owned by the tokenizer.
struct TokBuffer {
    char* data = nullptr;
    unsigned int size = 0;
};

struct TokBufferW {
    wchar_t* data = nullptr;
    unsigned int size = 0;
};

// The scanner both widths share. Buffer is the ring slot, String the library string of the width.
// The text and the buffers come from "GLOBAL": use a tokenizer only while the library is started.
template <typename Char, typename Buffer, typename String>
class StringTokenizerCore {
public:
    using Predicate = bool (*)(Char);

    // A ring of bufferCount result buffers (one at least), all empty until used.
    explicit StringTokenizerCore(unsigned int bufferCount);
    ~StringTokenizerCore();
    StringTokenizerCore(const StringTokenizerCore&) = delete;
    StringTokenizerCore& operator=(const StringTokenizerCore&) = delete;

    // Frees the old text, scans a private copy of text (null: an empty text) from its start.
    void SetString(const Char* text);
    // Frees the old text and scans the whole file (found in the packs first) from its start: a
    // narrow tokenizer takes the bytes as they are, a wide one takes 16-bit little-endian units.
    // False, with no text, when the file cannot be read.
    bool SetFile(const Path& path);
    // Scans from the start of the text again.
    void Reset() { m_Position = 0; }

    // Moves to the next token: after white space, a run of digits and dots is one token; a
    // character isWordCharacter refuses is a token of its own; otherwise the token runs over the
    // characters it accepts and over digits. False at the end of the text.
    bool GoToNext(Predicate isWordCharacter);
    // Moves over the next line and its end: one carriage return or line feed, or one pair of them
    // in either order; so an empty line is a line of its own. False at the end of the text.
    bool GoToNextLine();

    // The next token, terminated, in the next ring buffer; null at the end of the text. It stays
    // valid until the ring comes round to its buffer again.
    Char* Next(Predicate isWordCharacter);
    // Skips tokens up to and including the first one equal to token, and returns the one after
    // it; null when the text ends first.
    Char* NextAfterToken(const Char* token, Predicate isWordCharacter);
    // The next line with its end characters, as Next.
    Char* NextLine();

    // The next token (taken with IsAlphabetical) as a number; a "-" or "+" token before it gives
    // its sign. Digits and dots are read whatever the process locale; 0 at the end of the text.
    float ReadFloat();

    // Adds to result each span of text in front of a character of separators, empty spans
    // included, and what follows the last separator unless it is empty.
    static void SplitString(const String& text, const Char* separators,
                            ObjectSet<String, DefaultComparator<String>>& result);
    // The same spans as a new array of count terminated copies, all from "GLOBAL"; release them
    // with FreeSplitString. No spans (or no memory) give null and 0.
    static void SplitString(const String& text, const Char* separators, Char**& tokens, int& count);
    // Frees what the second SplitString made and sets tokens to null and count to 0.
    static void FreeSplitString(Char**& tokens, int& count);

private:
    // The next slot of the ring, grown to hold size characters; null when "GLOBAL" has no memory.
    Char* GetBuffer(unsigned int size);
    // A terminated copy of the current token or line in the next slot.
    Char* CopyCurrent();
    void FreeText();

    Char* m_Text = nullptr;
    unsigned int m_Length = 0;
    unsigned int m_TokenStart = 0;
    unsigned int m_Position = 0;
    unsigned int m_BufferIndex = 0;
    Set<Buffer, NewInterface<Buffer>, DefaultComparator<Buffer>> m_Buffers;
};

class StringTokenizer : public StringTokenizerCore<char, TokBuffer, STDString>,
                        public TrackedObject<StringTokenizer> {
public:
    explicit StringTokenizer(unsigned int bufferCount) : StringTokenizerCore(bufferCount) {}
};

class StringTokenizerW : public StringTokenizerCore<wchar_t, TokBufferW, STDWString>,
                         public TrackedObject<StringTokenizerW> {
public:
    explicit StringTokenizerW(unsigned int bufferCount) : StringTokenizerCore(bufferCount) {}
};

extern template class StringTokenizerCore<char, TokBuffer, STDString>;
extern template class StringTokenizerCore<wchar_t, TokBufferW, STDWString>;

}  // namespace zn
