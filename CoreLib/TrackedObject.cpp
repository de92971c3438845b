// TrackedObject.cpp: the owner header in front of library objects.
#include "CoreLib/TrackedObject.h"

#include "CoreLib/MemoryManager.h"

#include <new>

namespace zn {

namespace {
void* AllocateWithOwner(size_t size, Heap& heap) {
    size_t request = size + MemObject::kHeaderSize;
    void* block;
    {
        CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
        block = heap.Alloc(request, 0);
    }
    if (block == nullptr) {
        return nullptr;
    }
    *static_cast<Heap**>(block) = &heap;
    return static_cast<char*>(block) + MemObject::kHeaderSize;
}

void FreeWithOwner(void* p) {
    if (p == nullptr) {
        return;
    }
    void* block = static_cast<char*>(p) - MemObject::kHeaderSize;
    Heap* owner = *static_cast<Heap**>(block);
    CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
    size_t freed = 0;
    owner->Free(block, freed, 0);
}
}  // namespace

void* MemObject::operator new(size_t size, Heap& heap) noexcept {
    return AllocateWithOwner(size, heap);
}

void* MemObject::operator new[](size_t size, Heap& heap) noexcept {
    return AllocateWithOwner(size, heap);
}

void MemObject::operator delete(void* p, size_t) noexcept {
    FreeWithOwner(p);
}

void MemObject::operator delete[](void* p, size_t) noexcept {
    FreeWithOwner(p);
}

size_t MemObject::SizeOfAlloc(void* p, unsigned int alignment) {
    if (p == nullptr) {
        return 0;
    }
    Heap* owner = *reinterpret_cast<Heap**>(static_cast<char*>(p) - kHeaderSize);
    CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
    return owner->SizeOf(p, alignment);
}

size_t MemObject::SizeOfElement(void* p, unsigned int alignment) {
    return SizeOfAlloc(p, alignment) - kHeaderSize;
}

}  // namespace zn

void* operator new(size_t size, zn::Heap& /*heap*/) {
    void* block = ::operator new(size);
    // Where a tracking build records the block.
    if (zn::MemoryManager::IsCreated()) {
        zn::CSLock guard(&zn::MemoryManager::GetInstance().GetCriticalSection());
    }
    return block;
}

void* operator new[](size_t size, zn::Heap& /*heap*/) {
    void* block = ::operator new[](size);
    if (zn::MemoryManager::IsCreated()) {
        zn::CSLock guard(&zn::MemoryManager::GetInstance().GetCriticalSection());
    }
    return block;
}

void operator delete(void* p, zn::Heap& /*heap*/) noexcept {
    ::operator delete(p);
}

void operator delete[](void* p, zn::Heap& /*heap*/) noexcept {
    ::operator delete[](p);
}
