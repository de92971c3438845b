// Crt.h: the few run-time functions whose results the library depends on and glibc gives otherwise.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace zn::platform {

// Largest value of CrtRand, the 15-bit range the library's random code divides by.
constexpr int kCrtRandMax = 32767;
// Seeds the process-wide generator.
void CrtSrand(uint32_t seed);
// Next value of the linear congruential generator, in [0, 32767].
int CrtRand();

// _vsnprintf_s(buffer, size, _TRUNCATE, ...): writes at most size - 1 characters and a terminator;
// returns the count written, or -1 when the text did not fit (a text of exactly size characters
// does not fit) or could not be formatted. size 0 writes nothing and returns -1. Narrow text given
// to %ls and wide text given to %s are converted as UTF-8 whatever the process locale.
int VsnprintfTruncate(char* buffer, size_t size, const char* format, va_list arguments);
// The wide form, _vsnwprintf_s with _TRUNCATE; the result on overflow is the truncated text.
int VsnwprintfTruncate(wchar_t* buffer, size_t size, const wchar_t* format, va_list arguments);

// _vscprintf: the length the formatted text would have, without its terminator; -1 when the
// format cannot be applied.
int VscprintfCount(const char* format, va_list arguments);
// _vscwprintf, the wide form.
int VscwprintfCount(const wchar_t* format, va_list arguments);

// Error results of the bounded copies, the run-time's errno values.
constexpr int kCrtOk = 0;
constexpr int kCrtInvalid = 22;  // EINVAL
constexpr int kCrtRange = 34;    // ERANGE
// memcpy_s: copies count bytes when they fit the destination; otherwise clears the destination
// and returns an error, as the run-time does.
int MemcpyS(void* destination, size_t destinationSize, const void* source, size_t count);
// strcpy_s: copies the text and its terminator when they fit; otherwise the destination becomes
// empty and an error is returned.
int StrcpyS(char* destination, size_t destinationSize, const char* source);

}  // namespace zn::platform
