// Allocator.h: allocator objects for code that takes its heap as a value, and the two singleton
// allocators over "GLOBAL" and "LARGEBLOCK".
#pragma once

#include "CoreLib/Singleton.h"
#include "CoreLib/TrackedObject.h"

#include <cstddef>

namespace zn {

class Heap;

// Holds the heap that an owner allocates from; the destructor does not touch the heap.
class Allocator {
public:
    Allocator() = default;
    Allocator(const Allocator& other) = default;
    Allocator& operator=(const Allocator& other) = default;
    virtual ~Allocator() = default;

    void SetHeap(Heap* heap) { m_Heap = heap; }
    Heap* GetHeap() const { return m_Heap; }

private:
    Heap* m_Heap = nullptr;
};

// Raw blocks from "GLOBAL", without alignment.
class GlobalAllocator : public TrackedObject<GlobalAllocator> {
public:
    void* Malloc(size_t size);
    void* Realloc(void* p, size_t size);
    void Free(void* p);
};

// Raw blocks from "LARGEBLOCK", without alignment.
class LargeBlockAllocater : public TrackedObject<LargeBlockAllocater> {
public:
    void* Malloc(size_t size);
    void* Realloc(void* p, size_t size);
    void Free(void* p);
};

}  // namespace zn
