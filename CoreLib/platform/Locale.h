// Locale.h: the process locale, locale objects for formatting, and the printing that takes one.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace zn::platform {

// A locale object of the run-time, a copy taken at one moment: later changes of the process
// locale do not reach it.
struct LocaleInfo;

// The names to try, in order, for a locale name in the original platform's forms or in this one's.
// "" is the neutral locale "C.UTF-8" (no environment variable is read); "C" and "POSIX" stand as
// they are; "de_DE.UTF-8" and "de_DE" (tried with ".UTF-8" first) are this platform's names;
// "de-DE" is taken as "de_DE"; "German_Germany.1252", "German" and "deu" are mapped through the
// English language and country names to "de_DE.UTF-8". Code pages are dropped: narrow text is
// UTF-8 in every locale. A name that fits no form is tried as it is.
std::vector<std::string> LocaleNameCandidates(const wchar_t* name);

// _wsetlocale(LC_ALL, name): sets every category of the process locale to the first candidate
// that exists, and returns true. False when none exists; the process locale is then unchanged.
// A null name changes nothing and returns true.
bool SetProcessLocale(const wchar_t* name);
// setlocale(LC_NUMERIC, "C"): the decimal separator becomes "." for the whole process.
void SetProcessNumericLocaleToC();
// _get_current_locale: a new object holding the process locale as it is now; null when no memory
// could be had. Give it back with FreeLocale.
LocaleInfo* GetCurrentLocale();
// Frees an object of GetCurrentLocale; null does nothing.
void FreeLocale(LocaleInfo* locale);

// _snprintf_l and _snwprintf_l: format under the numeric and other rules of locale (null: the
// calling thread's locale) into size units. Returns the units written without the terminator, or
// -1 when the text and its terminator do not fit (a text of exactly size units does not fit, so
// the buffer is always terminated) or cannot be formatted; the buffer is then empty.
int SnprintfLocale(char* buffer, size_t size, const LocaleInfo* locale, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int SnwprintfLocale(wchar_t* buffer, size_t size, const LocaleInfo* locale, const wchar_t* format, ...);

}  // namespace zn::platform
