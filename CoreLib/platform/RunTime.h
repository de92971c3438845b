// RunTime.h: what the run-time's malloc knows about its own blocks.
#pragma once

#include <cstddef>

namespace zn::platform {

// The bytes the run-time really holds for a block from malloc (_msize), at least what was asked
// for; 0 for null.
size_t MallocUsableSize(void* block);

}  // namespace zn::platform
