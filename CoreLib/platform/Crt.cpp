// Crt.cpp: the original run-time's rand, truncating formatting and bounded copies.
#include "CoreLib/platform/Crt.h"

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <wchar.h>

#include <atomic>
#include <cstring>

namespace zn::platform {

namespace {
std::atomic<uint32_t> s_RandState{1};

// Formatting runs under a UTF-8 character type so that %ls and %s conversions between narrow and
// wide text never depend on what locale the host has set.
locale_t Utf8Locale() {
    static locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return locale;
}

class ScopedUtf8Locale {
public:
    ScopedUtf8Locale() : m_Previous(Utf8Locale() ? uselocale(Utf8Locale()) : nullptr) {}
    ~ScopedUtf8Locale() {
        if (m_Previous != nullptr) {
            uselocale(m_Previous);
        }
    }
    ScopedUtf8Locale(const ScopedUtf8Locale&) = delete;
    ScopedUtf8Locale& operator=(const ScopedUtf8Locale&) = delete;

private:
    locale_t m_Previous;
};

// vswprintf answers -1 both for an overflow and for an error, and leaves an overflowed buffer
// unterminated; formatting again into a stream tells the two apart and gives the full text.
int WideOverflow(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments) {
    wchar_t* text = nullptr;
    size_t length = 0;
    FILE* stream = open_wmemstream(&text, &length);
    if (stream == nullptr) {
        buffer[0] = L'\0';
        return -1;
    }
    int written = vfwprintf(stream, format, arguments);
    fclose(stream);
    if (written < 0) {
        buffer[0] = L'\0';
    } else {
        size_t kept = length < size ? length : size - 1;
        std::wmemcpy(buffer, text, kept);
        buffer[kept] = L'\0';
    }
    free(text);
    return -1;
}
}  // namespace

void CrtSrand(uint32_t seed) {
    s_RandState.store(seed, std::memory_order_relaxed);
}

int CrtRand() {
    uint32_t state = s_RandState.load(std::memory_order_relaxed);
    uint32_t next;
    do {
        next = state * 214013u + 2531011u;
    } while (!s_RandState.compare_exchange_weak(state, next, std::memory_order_relaxed));
    return static_cast<int>((next >> 16) & 0x7fff);
}

int VsnprintfTruncate(char* buffer, size_t size, const char* format, va_list arguments) {
    if (buffer == nullptr || size == 0 || format == nullptr) {
        return -1;
    }
    ScopedUtf8Locale utf8;
    int written = vsnprintf(buffer, size, format, arguments);
    if (written < 0) {
        buffer[0] = '\0';
        return -1;
    }
    return static_cast<size_t>(written) >= size ? -1 : written;
}

int VsnwprintfTruncate(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments) {
    if (buffer == nullptr || size == 0 || format == nullptr) {
        return -1;
    }
    ScopedUtf8Locale utf8;
    va_list retry;
    va_copy(retry, arguments);
    int written = vswprintf(buffer, size, format, arguments);
    if (written < 0) {
        written = WideOverflow(buffer, size, format, retry);
    }
    va_end(retry);
    return written;
}

int VscprintfCount(const char* format, va_list arguments) {
    if (format == nullptr) {
        return -1;
    }
    ScopedUtf8Locale utf8;
    return vsnprintf(nullptr, 0, format, arguments);
}

// vswprintf has no counting form, so the text is formatted into a stream that grows as needed.
int VscwprintfCount(const wchar_t* format, va_list arguments) {
    if (format == nullptr) {
        return -1;
    }
    ScopedUtf8Locale utf8;
    wchar_t* text = nullptr;
    size_t length = 0;
    FILE* stream = open_wmemstream(&text, &length);
    if (stream == nullptr) {
        return -1;
    }
    int written = vfwprintf(stream, format, arguments);
    fclose(stream);
    free(text);
    return written;
}

int MemcpyS(void* destination, size_t destinationSize, const void* source, size_t count) {
    if (count == 0) {
        return kCrtOk;
    }
    if (destination == nullptr) {
        return kCrtInvalid;
    }
    if (source == nullptr || destinationSize < count) {
        std::memset(destination, 0, destinationSize);
        return source == nullptr ? kCrtInvalid : kCrtRange;
    }
    std::memcpy(destination, source, count);
    return kCrtOk;
}

int StrcpyS(char* destination, size_t destinationSize, const char* source) {
    if (destination == nullptr || destinationSize == 0) {
        return kCrtInvalid;
    }
    if (source == nullptr) {
        destination[0] = '\0';
        return kCrtInvalid;
    }
    size_t length = std::strlen(source);
    if (length >= destinationSize) {
        destination[0] = '\0';
        return kCrtRange;
    }
    std::memcpy(destination, source, length + 1);
    return kCrtOk;
}

}  // namespace zn::platform
