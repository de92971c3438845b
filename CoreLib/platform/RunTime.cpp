// RunTime.cpp: block sizes of the run-time's malloc.
#include "CoreLib/platform/RunTime.h"

#include <malloc.h>

namespace zn::platform {

size_t MallocUsableSize(void* block) {
    return block == nullptr ? 0 : malloc_usable_size(block);
}

}  // namespace zn::platform
