// Locale.cpp: locale names of both platforms, the process locale, and printing under a locale.
#include "CoreLib/platform/Locale.h"

#include "CoreLib/platform/TextUnits.h"

#include <locale.h>
#include <stdio.h>
#include <wchar.h>

#include <strings.h>
#include <cctype>
#include <cstdarg>
#include <new>

namespace zn::platform {

struct LocaleInfo {
    locale_t locale;
};

namespace {

struct LanguageName {
    const char* english;       // "German"
    const char* abbreviation;  // the original platform's three letters, "deu"
    const char* code;          // "de"
    const char* country;       // the country taken when the name gives none, "DE"
};

const LanguageName kLanguages[] = {
    {"english", "enu", "en", "US"},   {"german", "deu", "de", "DE"},    {"french", "fra", "fr", "FR"},
    {"spanish", "esn", "es", "ES"},   {"italian", "ita", "it", "IT"},   {"portuguese", "ptg", "pt", "PT"},
    {"dutch", "nld", "nl", "NL"},     {"swedish", "sve", "sv", "SE"},   {"danish", "dan", "da", "DK"},
    {"norwegian", "nor", "nb", "NO"}, {"finnish", "fin", "fi", "FI"},   {"polish", "plk", "pl", "PL"},
    {"czech", "csy", "cs", "CZ"},     {"hungarian", "hun", "hu", "HU"}, {"russian", "rus", "ru", "RU"},
    {"turkish", "trk", "tr", "TR"},   {"greek", "ell", "el", "GR"},     {"japanese", "jpn", "ja", "JP"},
    {"korean", "kor", "ko", "KR"},    {"chinese", "chs", "zh", "CN"},
};

struct CountryName {
    const char* english;
    const char* code;
};

const CountryName kCountries[] = {
    {"united states", "US"}, {"usa", "US"},    {"america", "US"},        {"united kingdom", "GB"},
    {"great britain", "GB"}, {"uk", "GB"},     {"england", "GB"},        {"ireland", "IE"},
    {"australia", "AU"},     {"canada", "CA"}, {"germany", "DE"},        {"austria", "AT"},
    {"switzerland", "CH"},   {"france", "FR"}, {"belgium", "BE"},        {"spain", "ES"},
    {"mexico", "MX"},        {"italy", "IT"},  {"portugal", "PT"},       {"brazil", "BR"},
    {"netherlands", "NL"},   {"sweden", "SE"}, {"denmark", "DK"},        {"norway", "NO"},
    {"finland", "FI"},       {"poland", "PL"}, {"czech republic", "CZ"}, {"czechia", "CZ"},
    {"hungary", "HU"},       {"russia", "RU"}, {"turkey", "TR"},         {"greece", "GR"},
    {"japan", "JP"},         {"korea", "KR"},  {"china", "CN"},          {"taiwan", "TW"},
};

const LanguageName* FindLanguage(const std::string& name) {
    for (const LanguageName& language : kLanguages) {
        if (strcasecmp(name.c_str(), language.english) == 0 ||
            strcasecmp(name.c_str(), language.abbreviation) == 0 || name == language.code) {
            return &language;
        }
    }
    return nullptr;
}

const char* FindCountry(const std::string& name) {
    for (const CountryName& country : kCountries) {
        if (strcasecmp(name.c_str(), country.english) == 0) {
            return country.code;
        }
    }
    return nullptr;
}

// "de", "de_DE", "pt_BR": two or three lower-case letters, then optionally "_" and two upper-case
// letters, the shape of this platform's names and of the original's "de-DE" once its dash is gone.
bool IsLanguageCountryCode(const std::string& name) {
    size_t at = 0;
    while (at < name.size() && std::islower(static_cast<unsigned char>(name[at]))) {
        ++at;
    }
    if (at < 2 || at > 3) {
        return false;
    }
    if (at == name.size()) {
        return true;
    }
    return name.size() == at + 3 && name[at] == '_' &&
           std::isupper(static_cast<unsigned char>(name[at + 1])) &&
           std::isupper(static_cast<unsigned char>(name[at + 2]));
}

// "Language[_Country]" of the original platform, the code page already cut off; "" when the
// language or the country is not known.
std::string MapEnglishNames(const std::string& name) {
    size_t separator = name.find('_');
    const LanguageName* language = FindLanguage(name.substr(0, separator));
    if (language == nullptr) {
        return std::string();
    }
    const char* country = language->country;
    if (separator != std::string::npos) {
        const char* named = FindCountry(name.substr(separator + 1));
        if (named == nullptr) {
            return std::string();
        }
        country = named;
    }
    return std::string(language->code) + "_" + country + ".UTF-8";
}

class ScopedLocale {
public:
    explicit ScopedLocale(const LocaleInfo* locale)
        : m_Previous(locale != nullptr ? uselocale(locale->locale) : static_cast<locale_t>(nullptr)) {}
    ~ScopedLocale() {
        if (m_Previous != nullptr) {
            uselocale(m_Previous);
        }
    }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;

private:
    locale_t m_Previous;
};

}  // namespace

std::vector<std::string> LocaleNameCandidates(const wchar_t* name) {
    std::string text;
    AppendUnitsAsUtf8(name, text);
    if (text.empty()) {
        return {"C.UTF-8"};
    }
    if (text == "C" || text == "POSIX") {
        return {text};
    }
    size_t dot = text.find('.');
    std::string base = text.substr(0, dot);
    std::string codeset = dot == std::string::npos ? std::string() : text.substr(dot + 1);
    // ".UTF8" of the original platform: the user's language with UTF-8, here the neutral one.
    if (base.empty()) {
        return {"C.UTF-8"};
    }
    std::string dashless = base;
    for (char& character : dashless) {
        if (character == '-') {
            character = '_';
        }
    }
    // A language alone, by its name, its three letters or its code, takes its usual country.
    bool withCountry = dashless.find('_') != std::string::npos;
    if (!(withCountry && IsLanguageCountryCode(dashless))) {
        std::string mapped = MapEnglishNames(base);
        if (!mapped.empty()) {
            return {mapped};
        }
    }
    if (IsLanguageCountryCode(dashless)) {
        // A code page number belongs to the original platform; a codeset name is this one's.
        bool numeric = !codeset.empty() && std::isdigit(static_cast<unsigned char>(codeset[0]));
        if (!codeset.empty() && !numeric) {
            return {dashless + "." + codeset};
        }
        return {dashless + ".UTF-8", dashless};
    }
    return {text};
}

bool SetProcessLocale(const wchar_t* name) {
    if (name == nullptr) {
        return true;
    }
    for (const std::string& candidate : LocaleNameCandidates(name)) {
        if (setlocale(LC_ALL, candidate.c_str()) != nullptr) {
            return true;
        }
    }
    return false;
}

void SetProcessNumericLocaleToC() {
    setlocale(LC_NUMERIC, "C");
}

LocaleInfo* GetCurrentLocale() {
    locale_t copy = duplocale(LC_GLOBAL_LOCALE);
    if (copy == static_cast<locale_t>(nullptr)) {
        return nullptr;
    }
    LocaleInfo* locale = new (std::nothrow) LocaleInfo{copy};
    if (locale == nullptr) {
        freelocale(copy);
    }
    return locale;
}

void FreeLocale(LocaleInfo* locale) {
    if (locale != nullptr) {
        freelocale(locale->locale);
        delete locale;
    }
}

int SnprintfLocale(char* buffer, size_t size, const LocaleInfo* locale, const char* format, ...) {
    if (buffer == nullptr || size == 0 || format == nullptr) {
        return -1;
    }
    ScopedLocale scoped(locale);
    va_list arguments;
    va_start(arguments, format);
    int written = vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (written < 0 || static_cast<size_t>(written) >= size) {
        buffer[0] = '\0';
        return -1;
    }
    return written;
}

int SnwprintfLocale(wchar_t* buffer, size_t size, const LocaleInfo* locale, const wchar_t* format, ...) {
    if (buffer == nullptr || size == 0 || format == nullptr) {
        return -1;
    }
    ScopedLocale scoped(locale);
    va_list arguments;
    va_start(arguments, format);
    // vswprintf answers -1 for a text that does not fit with its terminator.
    int written = vswprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (written < 0) {
        buffer[0] = L'\0';
        return -1;
    }
    return written;
}

}  // namespace zn::platform
