// WellKnownStrings.h: the library's static FixedString vocabulary, interned at start-up in
// declaration order and released at shutdown, so no FixedString is made by a global constructor.
#pragma once

#include "CoreLib/FixedString.h"

#include <cstddef>

namespace zn {

// One word of the vocabulary: the static it fills and its text.
struct WellKnownString {
    FixedString* m_Target;
    const char* m_Text;
};

// Assigns every word its text: the library's own in declaration order, then the extra table's.
void WellKnownStringsInit();
// Releases every word, in the reverse order.
void WellKnownStringsShutdown();
// Adds a table of words of its own for the next start-up and shutdown (a host's vocabulary, or a
// test's); null or 0 entries removes it. The table must outlive its use.
void SetExtraWellKnownStrings(const WellKnownString* entries, size_t count);

}  // namespace zn
