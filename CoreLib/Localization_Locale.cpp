// Localization_Locale.cpp: the locale and keyboard layout of the service, and numbers as text.
#include "CoreLib/Localization.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/platform/Keyboard.h"
#include "CoreLib/platform/Locale.h"

#include <cstring>

namespace zn {

platform::LocaleInfo* Localization::s_LocaleIdentifier = nullptr;
platform::KeyboardLayout* Localization::s_KeyboardLocaleIdentifier = nullptr;
wchar_t* Localization::s_KeyboardLayoutName = nullptr;
char* Localization::s_WTMBBuffer = nullptr;
unsigned int Localization::s_WTMBBufferLength = 0;
wchar_t* Localization::s_MBTWBuffer = nullptr;
unsigned int Localization::s_MBTWBufferLength = 0;
wchar_t Localization::s_WFloatFormatBuffer[6] = {};
char Localization::s_FloatFormatBuffer[6] = {};

namespace {
// Room for any 32-bit integer and for the usual floats; "%f" of a float above about 1e24 does
// not fit, and is reported.
constexpr unsigned int kNumberBufferUnits = 32;
constexpr size_t kLayoutNameBytes = 18;

// Gives a block back to "GLOBAL" and forgets it; nothing for none.
template <typename T>
void FreeBlock(T*& block) {
    if (block != nullptr) {
        MemoryManager::GlobalFree(block, 0);
        block = nullptr;
    }
}

template <typename Char>
const Char* EmptyText() {
    static const Char empty[1] = {};
    return empty;
}

// Makes the shared buffer hold at least kNumberBufferUnits units, zeroed. What it held is not kept:
// every conversion prints anew. Null when the library is not started or "GLOBAL" has no memory;
// the conversion then gives an empty text without a report.
template <typename Char>
Char* PrepareBuffer(Char*& buffer, unsigned int& length) {
    if (!MemoryManager::IsCreated()) {
        return nullptr;
    }
    if (length < kNumberBufferUnits) {
        FreeBlock(buffer);
        buffer = static_cast<Char*>(MemoryManager::GlobalMalloc(kNumberBufferUnits * sizeof(Char), 0));
        length = buffer != nullptr ? kNumberBufferUnits : 0;
    }
    if (buffer != nullptr) {
        std::memset(buffer, 0, kNumberBufferUnits * sizeof(Char));
    }
    return buffer;
}
}  // namespace

Localization::Localization() {}

Localization::Localization(const wchar_t* const locale) {
    s_KeyboardLocaleIdentifier = platform::GetKeyboardLayout();
    if (s_KeyboardLayoutName == nullptr && MemoryManager::IsCreated()) {
        s_KeyboardLayoutName = static_cast<wchar_t*>(MemoryManager::GlobalMalloc(kLayoutNameBytes, 0));
        if (s_KeyboardLayoutName != nullptr) {
            std::memset(s_KeyboardLayoutName, 0, kLayoutNameBytes);
            platform::GetKeyboardLayoutName(s_KeyboardLocaleIdentifier,
                                            reinterpret_cast<char*>(s_KeyboardLayoutName));
        }
    }
    SetLocale(locale);
}

Localization::~Localization() {
    FreeBlock(s_KeyboardLayoutName);
    FreeBlock(s_MBTWBuffer);
    FreeBlock(s_WTMBBuffer);
    s_MBTWBufferLength = 0;
    s_WTMBBufferLength = 0;
}

void Localization::SetLocale(const wchar_t* const locale) {
    // The code page of the locale needs no setting: narrow text is UTF-8 in every locale.
    platform::SetProcessLocale(locale);
    platform::SetProcessNumericLocaleToC();
    platform::LocaleInfo* previous = s_LocaleIdentifier;
    s_LocaleIdentifier = platform::GetCurrentLocale();
    platform::FreeLocale(previous);
}

wchar_t* Localization::GetKeyboardLayoutNameA() {
    return s_KeyboardLayoutName;
}

platform::KeyboardLayout* Localization::GetKeyboardLocaleIdentifier() {
    return s_KeyboardLocaleIdentifier;
}

platform::LocaleInfo* Localization::GetLocaleIdentifier() {
    return s_LocaleIdentifier;
}

int Localization::UInt32ToWide(unsigned int value) {
    wchar_t* buffer = PrepareBuffer(s_MBTWBuffer, s_MBTWBufferLength);
    if (buffer == nullptr) {
        return -1;
    }
    int printed = platform::SnwprintfLocale(buffer, kNumberBufferUnits, s_LocaleIdentifier, L"%u", value);
    if (printed < 0) {
        ZN_REPORT("Error converting unsigned int to string. Destination buffer is too small.");
    }
    return printed;
}

// The int32 conversions carry the float text and the float formats the int32 text: the reports
// stand crossed as the library has always written them.
int Localization::Int32ToWide(int value) {
    wchar_t* buffer = PrepareBuffer(s_MBTWBuffer, s_MBTWBufferLength);
    if (buffer == nullptr) {
        return -1;
    }
    int printed = platform::SnwprintfLocale(buffer, kNumberBufferUnits, s_LocaleIdentifier, L"%d", value);
    if (printed < 0) {
        ZN_REPORT("Error converting float to string. Destination buffer is too small.");
    }
    return printed;
}

int Localization::Int32ToMultiByte(int value) {
    char* buffer = PrepareBuffer(s_WTMBBuffer, s_WTMBBufferLength);
    if (buffer == nullptr) {
        return -1;
    }
    int printed = platform::SnprintfLocale(buffer, kNumberBufferUnits, s_LocaleIdentifier, "%d", value);
    if (printed < 0) {
        ZN_REPORT("Error converting float to string. Destination buffer is too small.");
    }
    return printed;
}

// A format that does not fit the six-unit buffer with its terminator (a precision of 100 or more)
// is not used: the number then stays empty.
int Localization::FloatToWide(float value, int precision) {
    wchar_t* buffer = PrepareBuffer(s_MBTWBuffer, s_MBTWBufferLength);
    if (buffer == nullptr) {
        return -1;
    }
    const wchar_t* format = L"%f";
    if (precision >= 0) {
        if (platform::SnwprintfLocale(s_WFloatFormatBuffer, 6, s_LocaleIdentifier, L"%%.%df", precision) <
            0) {
            ZN_REPORT("Error converting int32 to string. Destination buffer is too small.");
            return -1;
        }
        format = s_WFloatFormatBuffer;
    }
    int printed = platform::SnwprintfLocale(buffer, kNumberBufferUnits, s_LocaleIdentifier, format,
                                            static_cast<double>(value));
    if (printed < 0) {
        ZN_REPORT("Error converting float to string. Destination buffer is too small.");
    }
    return printed;
}

int Localization::FloatToMultiByte(float value, int precision) {
    char* buffer = PrepareBuffer(s_WTMBBuffer, s_WTMBBufferLength);
    if (buffer == nullptr) {
        return -1;
    }
    const char* format = "%f";
    if (precision >= 0) {
        if (platform::SnprintfLocale(s_FloatFormatBuffer, 6, s_LocaleIdentifier, "%%.%df", precision) < 0) {
            ZN_REPORT("Error converting int32 to string. Destination buffer is too small.");
            return -1;
        }
        format = s_FloatFormatBuffer;
    }
    int printed = platform::SnprintfLocale(buffer, kNumberBufferUnits, s_LocaleIdentifier, format,
                                           static_cast<double>(value));
    if (printed < 0) {
        ZN_REPORT("Error converting float to string. Destination buffer is too small.");
    }
    return printed;
}

template <typename Char>
void Localization::NumberText<Char>::Set(const Char* text, int printed) {
    if (text == nullptr || printed < 0) {
        m_Text = text != nullptr ? text : EmptyText<Char>();
        m_Length = 0;
        return;
    }
    m_Text = text;
    m_Length = static_cast<unsigned int>(printed);
}

Localization::ConvertInt32ToMultiByte::ConvertInt32ToMultiByte(const int& value) {
    int printed = Int32ToMultiByte(value);
    Set(s_WTMBBuffer, printed);
}

Localization::ConvertInt32ToWide::ConvertInt32ToWide(const int& value) {
    int printed = Int32ToWide(value);
    Set(s_MBTWBuffer, printed);
}

Localization::ConvertUInt32ToWide::ConvertUInt32ToWide(const unsigned int& value) {
    int printed = UInt32ToWide(value);
    Set(s_MBTWBuffer, printed);
}

Localization::ConvertFloatToMultiByte::ConvertFloatToMultiByte(const float& value, int precision) {
    int printed = FloatToMultiByte(value, precision);
    Set(s_WTMBBuffer, printed);
}

Localization::ConvertFloatToWide::ConvertFloatToWide(const float& value, int precision) {
    int printed = FloatToWide(value, precision);
    Set(s_MBTWBuffer, printed);
}

}  // namespace zn
