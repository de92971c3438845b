// Localization.h: conversions between narrow text (UTF-8 throughout the library) and wide text (one
// 16-bit unit in each wchar_t, surrogate pairs above U+FFFF); the locale, numbers as text, and the
// characters and names of keys.
#pragma once

#include "CoreLib/STDString.h"
#include "CoreLib/Singleton.h"
#include "CoreLib/TrackedObject.h"

#include <cstdint>
#include <string>

namespace zn {

class Path;

namespace platform {
struct KeyboardLayout;
struct LocaleInfo;
}  // namespace platform

class Localization : public Singleton<Localization>, public TrackedObject<Localization> {
public:
    // Converts wide text to UTF-8 once, in its constructor, and owns the result: a temporary for
    // handing wide text to narrow interfaces. A lone surrogate, or an element above 0xFFFF, becomes
    // U+FFFD. A null text gives "". Safe on any thread: it shares nothing.
    class ConvertWideToMultiByte : public TrackedObject<ConvertWideToMultiByte> {
    public:
        // A count of -1 (any negative count) converts up to the terminator; otherwise at most count
        // units are read, and a NUL among them ends the text, so a text needs no terminator.
        explicit ConvertWideToMultiByte(const wchar_t* const text, int count = -1);
        explicit ConvertWideToMultiByte(const Path& path);
        explicit ConvertWideToMultiByte(const STDWString& text);

        // The terminated UTF-8 text; valid as long as this object.
        const char* Get() const { return m_Buffer.c_str(); }
        // Bytes, without the terminator.
        unsigned int GetLength() const { return m_Length; }

    private:
        unsigned int m_Length = 0;
        // The standard string of the platform conversion; its block comes from the run-time heap,
        // as the characters of every library string do.
        std::string m_Buffer;
    };

    // Converts UTF-8 to wide text once, in its constructor, and owns the result. Each byte that
    // does not begin or complete a well-formed sequence becomes one U+FFFD. A null text gives "".
    class ConvertMultiByteToWide : public TrackedObject<ConvertMultiByteToWide> {
    public:
        // count as for ConvertWideToMultiByte, in bytes.
        explicit ConvertMultiByteToWide(const char* const text, int count = -1);
        explicit ConvertMultiByteToWide(const STDString& text);

        const wchar_t* Get() const { return m_Buffer.c_str(); }
        // 16-bit units, without the terminator.
        unsigned int GetLength() const { return m_Length; }

    private:
        unsigned int m_Length = 0;
        std::wstring m_Buffer;
    };

    // The text of a number conversion: it points into the buffer that all conversions of its width
    // share, so it is valid only until the next one of that width anywhere. Copy it at once.
    template <typename Char>
    class NumberText {
    public:
        const Char* Get() const { return m_Text; }
        // Units, without the terminator; 0 after a reported failure, with an empty text.
        unsigned int GetLength() const { return m_Length; }

    protected:
        void Set(const Char* text, int printed);

    private:
        unsigned int m_Length = 0;
        const Char* m_Text = nullptr;
    };

    // The number conversions: "%d", "%u", and "%f" or "%.<precision>f" for a precision of 0 or
    // more, under the locale of SetLocale, whose decimal separator is always ".". They need the
    // started library, and run on one thread only.
    class ConvertInt32ToMultiByte : public NumberText<char>, public TrackedObject<ConvertInt32ToMultiByte> {
    public:
        explicit ConvertInt32ToMultiByte(const int& value);
    };
    class ConvertInt32ToWide : public NumberText<wchar_t>, public TrackedObject<ConvertInt32ToWide> {
    public:
        explicit ConvertInt32ToWide(const int& value);
    };
    class ConvertUInt32ToWide : public NumberText<wchar_t>, public TrackedObject<ConvertUInt32ToWide> {
    public:
        explicit ConvertUInt32ToWide(const unsigned int& value);
    };
    class ConvertFloatToMultiByte : public NumberText<char>, public TrackedObject<ConvertFloatToMultiByte> {
    public:
        ConvertFloatToMultiByte(const float& value, int precision);
    };
    class ConvertFloatToWide : public NumberText<wchar_t>, public TrackedObject<ConvertFloatToWide> {
    public:
        ConvertFloatToWide(const float& value, int precision);
    };

    // Decodes the UTF-8 of a translation file after turning its escapes (backslash and n, t, v, b,
    // r, f, a, backslash, ?, ', 0) into the characters they stand for. A code point above 0xFFFF
    // gives two units: its bits above the low eight, then its low eight bits; not a surrogate pair.
    // A byte of 0xF5 or above is dropped. Owns its result; a null text gives "".
    class AnsiAsUTF : public TrackedObject<AnsiAsUTF> {
    public:
        explicit AnsiAsUTF(const char* const text);

        const wchar_t* Get() const { return m_Text.ToChar(); }
        unsigned int GetLength() const { return m_Text.Length(); }

    private:
        static void TranslateEscapeCharacters(STDString& text);
        void DoAnsiAsUTF(const char* text);

        STDWString m_Text;
    };

    // Encodes wide text as UTF-8 for a file: a surrogate pair gives one four-byte sequence, any other
    // unit its own sequence (a lone surrogate too). A high surrogate as the last unit ends the text
    // there, with a report. Owns its result; a null text gives "".
    class UTFAsAnsi : public TrackedObject<UTFAsAnsi> {
    public:
        explicit UTFAsAnsi(const wchar_t* const text);

        const char* Get() const { return m_Text.ToChar(); }
        unsigned int GetLength() const { return m_Text.Length(); }

    private:
        void DoUTFAsAnsi(const wchar_t* text, size_t length);

        STDString m_Text;
    };

    // Does nothing: the start-up step makes the service with no locale and no keyboard layout.
    Localization();
    // Reads the process's keyboard layout, and its name if none was read yet, then sets the locale.
    explicit Localization(const wchar_t* const locale);
    // Frees the layout name and the number buffers; the locale object stays for the process.
    ~Localization();
    Localization(const Localization&) = delete;
    Localization& operator=(const Localization&) = delete;

    // Sets every category of the process locale (a name of this platform, or of the original one:
    // "German_Germany.1252", "de-DE"; "" is "C.UTF-8"; an unknown name changes nothing), then the
    // numeric category back to "C", and keeps a copy for the number conversions.
    void SetLocale(const wchar_t* const locale);

    // The virtual key of a scan code (0xE0 prefix for the extended keys) in the layout.
    static unsigned int ScanCodeToVirtualKey(uint32_t scanCode);
    // The text of the key of a scan code, as VirtualKeyToUnicode.
    static unsigned int ScanCodeToUnicode(uint32_t scanCode, wchar_t* out, unsigned int size);
    // The characters of a virtual key under the key state, or else the key's name ("Enter",
    // "Space", "Shift"): the units written to out, 0 for none or a dead key. A scanCode of 0 is
    // looked up.
    static unsigned int VirtualKeyToUnicode(unsigned int virtualKey, wchar_t* out, unsigned int size,
                                            uint32_t scanCode);
    // The scan code of a virtual key, only when scanCode is 0: extended is set for the navigation
    // keys and cleared for Pause, and Num Lock and the separator come with the marks 0xE100.
    static void VirtualKeyToScanCode(uint32_t virtualKey, uint32_t& scanCode, bool& extended);

    // The English names that stand when the layout gives none: 1 and the name in out (cut to size
    // with its terminator), or 0 for a code without a name. A keyboard key is 0x81000400 plus its
    // DirectInput code, a mouse control 0x82000000 and up, a pad control the library's pad code.
    static unsigned int DirectInputKeyToUnicodeFallback(unsigned int key, wchar_t* out, unsigned int size);
    static unsigned int DirectInputMouseToUnicodeFallback(unsigned int button, wchar_t* out,
                                                          unsigned int size, uint32_t unused);
    static unsigned int DirectInputJoystickToUnicodeFallBack(unsigned int button, wchar_t* out,
                                                             unsigned int size);
    static unsigned int XInputGamePadToUnicodeFallback(unsigned int button, wchar_t* out, unsigned int size);

    // The layout's name as narrow characters in spite of the type (read it through a char
    // pointer); null before a Localization was made with a locale.
    static wchar_t* GetKeyboardLayoutNameA();
    // The layout read by the last Localization made with a locale; null for none.
    static platform::KeyboardLayout* GetKeyboardLocaleIdentifier();
    // The locale of the number conversions; null until SetLocale, and then the calling thread's
    // locale is used.
    static platform::LocaleInfo* GetLocaleIdentifier();

private:
    // Print into the shared buffers; the printed units, or -1 after a report.
    static int UInt32ToWide(unsigned int value);
    static int Int32ToWide(int value);
    static int Int32ToMultiByte(int value);
    static int FloatToWide(float value, int precision);
    static int FloatToMultiByte(float value, int precision);
    // Whether a virtual key carries the extended marks 0xE000, and 0xE100.
    static void DetectWMKVirtualKeyExtensions(uint32_t virtualKey, bool& extended, bool& extended2);

    static platform::LocaleInfo* s_LocaleIdentifier;
    static platform::KeyboardLayout* s_KeyboardLocaleIdentifier;
    // 18 bytes holding narrow characters.
    static wchar_t* s_KeyboardLayoutName;
    static char* s_WTMBBuffer;
    static unsigned int s_WTMBBufferLength;
    static wchar_t* s_MBTWBuffer;
    static unsigned int s_MBTWBufferLength;
    static wchar_t s_WFloatFormatBuffer[6];
    static char s_FloatFormatBuffer[6];

    friend class LocalizationHacker;
};

}  // namespace zn
