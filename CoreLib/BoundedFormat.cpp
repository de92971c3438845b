// BoundedFormat.cpp: the truncating printf family over the run-time's _TRUNCATE formatting.
#include "CoreLib/BoundedFormat.h"

#include "CoreLib/Report.h"
#include "CoreLib/platform/Crt.h"
#include "CoreLib/platform/System.h"
#include "CoreLib/platform/TextUnits.h"

#include <string>

namespace {
constexpr unsigned int kDebugStringCapacity = 10240;

const char* const kNarrowOverflow =
    "znvsnprintf is going out of range! Use znvsnprintf_s if you want it to truncate\nString format:\n%s";
const char* const kWideOverflow =
    "znvsnwprintf is going out of range! Use znvsnwprintf_s if you want it to truncate\nString format:\n%s";

// The report route is narrow: a wide format is shown as UTF-8.
std::string FormatForReport(const wchar_t* format) {
    std::string utf8;
    if (format != nullptr) {
        zn::platform::AppendUnitsAsUtf8(format, utf8);
    }
    return utf8;
}

bool FinishFormat(int written, unsigned int& size) {
    if (written < 0) {
        size = 0;
        return false;
    }
    if (static_cast<unsigned int>(written) > size) {
        ZN_REPORT("More chars written than the buffer is big?");
    }
    size -= static_cast<unsigned int>(written);
    return true;
}
}  // namespace

bool znvsnprintf_s(char* buffer, unsigned int& size, const char* format, va_list arguments) {
    if (size == 0) {
        return false;
    }
    return FinishFormat(zn::platform::VsnprintfTruncate(buffer, size, format, arguments), size);
}

void znvsnprintf(char* buffer, unsigned int& size, const char* format, va_list arguments) {
    if (!znvsnprintf_s(buffer, size, format, arguments)) {
        ZN_REPORT(kNarrowOverflow, format);
    }
}

bool znsnprintf_s(char* buffer, unsigned int& size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    bool fitted = znvsnprintf_s(buffer, size, format, arguments);
    va_end(arguments);
    return fitted;
}

void znsnprintf(char* buffer, unsigned int& size, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    znvsnprintf(buffer, size, format, arguments);
    va_end(arguments);
}

void znsprintf(char* buffer, unsigned int maxCharsToWrite, const char* format, ...) {
    if (maxCharsToWrite == 0) {
        ZN_REPORT("Performing a znsprintf with 0 maxCharsToWrite! (Fatal)");
    }
    va_list arguments;
    va_start(arguments, format);
    znvsnprintf(buffer, maxCharsToWrite, format, arguments);
    va_end(arguments);
}

bool znvsnwprintf_s(wchar_t* buffer, unsigned int& size, const wchar_t* format, va_list arguments) {
    if (size == 0) {
        return false;
    }
    return FinishFormat(zn::platform::VsnwprintfTruncate(buffer, size, format, arguments), size);
}

void znvsnwprintf(wchar_t* buffer, unsigned int& size, const wchar_t* format, va_list arguments) {
    if (!znvsnwprintf_s(buffer, size, format, arguments)) {
        ZN_REPORT(kWideOverflow, FormatForReport(format).c_str());
    }
}

bool znsnwprintf_s(wchar_t* buffer, unsigned int& size, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    bool fitted = znvsnwprintf_s(buffer, size, format, arguments);
    va_end(arguments);
    return fitted;
}

void znsnwprintf(wchar_t* buffer, unsigned int& size, const wchar_t* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    znvsnwprintf(buffer, size, format, arguments);
    va_end(arguments);
}

void znswprintf(wchar_t* buffer, unsigned int maxCharsToWrite, const wchar_t* format, ...) {
    if (maxCharsToWrite == 0) {
        ZN_REPORT("Performing a znswprintf with 0 maxCharsToWrite! (Fatal)");
    }
    va_list arguments;
    va_start(arguments, format);
    znvsnwprintf(buffer, maxCharsToWrite, format, arguments);
    va_end(arguments);
}

void znOutputDebugString(const char* format, ...) {
    char text[kDebugStringCapacity] = {};
    unsigned int size = kDebugStringCapacity - 1;
    va_list arguments;
    va_start(arguments, format);
    znvsnprintf(text, size, format, arguments);
    va_end(arguments);
    zn::platform::OutputDebugStringA(text);
}

void znOutputDebugString(const wchar_t* format, ...) {
    wchar_t text[kDebugStringCapacity] = {};
    unsigned int size = kDebugStringCapacity - 1;
    va_list arguments;
    va_start(arguments, format);
    znvsnwprintf(text, size, format, arguments);
    va_end(arguments);
    zn::platform::OutputDebugStringW(text);
}
