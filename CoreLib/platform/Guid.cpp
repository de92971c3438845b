// Guid.cpp: GUIDs from libuuid.
#include "CoreLib/platform/Guid.h"

#include <uuid/uuid.h>

namespace zn::platform {

std::array<char, kGuidTextLength + 1> GenerateGuidText() {
    uuid_t guid;
    // Random when the system has a good random source, which every Linux we build for has.
    uuid_generate(guid);
    std::array<char, kGuidTextLength + 1> text{};
    uuid_unparse_lower(guid, text.data());
    return text;
}

}  // namespace zn::platform
