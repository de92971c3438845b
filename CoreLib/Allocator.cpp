// Allocator.cpp: the singleton allocators over the memory manager's static routes.
#include "CoreLib/Allocator.h"

#include "CoreLib/MemoryManager.h"

namespace zn {

void* GlobalAllocator::Malloc(size_t size) {
    return MemoryManager::GlobalMalloc(size, 0);
}

void* GlobalAllocator::Realloc(void* p, size_t size) {
    return MemoryManager::GlobalRealloc(p, size, 0);
}

void GlobalAllocator::Free(void* p) {
    MemoryManager::GlobalFree(p, 0);
}

void* LargeBlockAllocater::Malloc(size_t size) {
    return MemoryManager::LargeBlockMalloc(size, 0);
}

void* LargeBlockAllocater::Realloc(void* p, size_t size) {
    return MemoryManager::LargeBlockRealloc(p, size, 0);
}

void LargeBlockAllocater::Free(void* p) {
    MemoryManager::LargeBlockFree(p, 0);
}

}  // namespace zn
