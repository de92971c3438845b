// Guid.h: new GUIDs as text.
#pragma once

#include <array>
#include <cstddef>

namespace zn::platform {

constexpr size_t kGuidTextLength = 36;

// A new random (version 4) GUID in lowercase hexadecimal groups 8-4-4-4-12, NUL-terminated.
std::array<char, kGuidTextLength + 1> GenerateGuidText();

}  // namespace zn::platform
