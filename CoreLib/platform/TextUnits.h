// TextUnits.h: UTF-8 bytes to and from 16-bit text units held in wchar_t.
#pragma once

#include <string>

namespace zn::platform {

// Appends the UTF-8 form of the units; a surrogate pair becomes one code point, and a lone
// surrogate or a unit above 0xFFFF becomes U+FFFD, as the Win32 conversion does.
void AppendUnitsAsUtf8(const wchar_t* units, std::string& utf8);
void AppendUnitsAsUtf8(const wchar_t* units, size_t count, std::string& utf8);
// Appends the 16-bit units of UTF-8 text; code points above 0xFFFF become surrogate pairs and
// every malformed sequence becomes one U+FFFD.
void AppendUtf8AsUnits(const char* utf8, std::wstring& units);
void AppendUtf8AsUnits(const char* utf8, size_t count, std::wstring& units);

}  // namespace zn::platform
