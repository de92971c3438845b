// WellKnownStrings.cpp: the table of the library's static FixedStrings and its two passes.
#include "CoreLib/WellKnownStrings.h"

#include <initializer_list>
#include <span>

namespace zn {

namespace {
// The library's vocabulary, in declaration order: {&Class::s_Name, "text"}.
constexpr std::initializer_list<WellKnownString> kLibraryStrings = {};

std::span<const WellKnownString> s_ExtraStrings;

void Assign(std::span<const WellKnownString> words) {
    for (const WellKnownString& word : words) {
        *word.m_Target = word.m_Text;
    }
}

void Release(std::span<const WellKnownString> words) {
    for (auto word = words.rbegin(); word != words.rend(); ++word) {
        *word->m_Target = FixedString();
    }
}
}  // namespace

void WellKnownStringsInit() {
    Assign(std::span<const WellKnownString>(kLibraryStrings.begin(), kLibraryStrings.size()));
    Assign(s_ExtraStrings);
}

void WellKnownStringsShutdown() {
    Release(s_ExtraStrings);
    Release(std::span<const WellKnownString>(kLibraryStrings.begin(), kLibraryStrings.size()));
}

void SetExtraWellKnownStrings(const WellKnownString* entries, size_t count) {
    s_ExtraStrings = entries == nullptr ? std::span<const WellKnownString>() : std::span(entries, count);
}

}  // namespace zn
