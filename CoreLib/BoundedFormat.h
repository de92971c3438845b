// BoundedFormat.h: printf into fixed buffers, never past their end, with truncation reported.
#pragma once

#include <cstdarg>

#define ZN_PRINTF_FORMAT(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))

// Formats into buffer. size is the capacity in and the remaining capacity out. A text that does
// not fit with its terminator (a text of exactly the capacity included) is truncated, size becomes
// 0 and the result is false; a capacity of 0 writes nothing and is false.
bool znvsnprintf_s(char* buffer, unsigned int& size, const char* format, va_list arguments);
// znvsnprintf_s with a report when the text is truncated.
void znvsnprintf(char* buffer, unsigned int& size, const char* format, va_list arguments);
bool znsnprintf_s(char* buffer, unsigned int& size, const char* format, ...) ZN_PRINTF_FORMAT(3, 4);
void znsnprintf(char* buffer, unsigned int& size, const char* format, ...) ZN_PRINTF_FORMAT(3, 4);
// The capacity by value; a capacity of 0 is reported before the formatting is tried.
void znsprintf(char* buffer, unsigned int maxCharsToWrite, const char* format, ...) ZN_PRINTF_FORMAT(3, 4);

// The wide twins: capacities and results count wchar_t units.
bool znvsnwprintf_s(wchar_t* buffer, unsigned int& size, const wchar_t* format, va_list arguments);
void znvsnwprintf(wchar_t* buffer, unsigned int& size, const wchar_t* format, va_list arguments);
bool znsnwprintf_s(wchar_t* buffer, unsigned int& size, const wchar_t* format, ...);
void znsnwprintf(wchar_t* buffer, unsigned int& size, const wchar_t* format, ...);
void znswprintf(wchar_t* buffer, unsigned int maxCharsToWrite, const wchar_t* format, ...);

// Formats (at most 10239 characters) and sends the text to the debug output.
void znOutputDebugString(const char* format, ...) ZN_PRINTF_FORMAT(1, 2);
void znOutputDebugString(const wchar_t* format, ...);
