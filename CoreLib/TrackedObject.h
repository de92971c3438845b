// TrackedObject.h: the allocation operators of library objects. Every block carries its heap in a
// pointer-sized header in front of the object, so delete needs no knowledge of where it came from
// and works from any thread.
#pragma once

#include <cstddef>

namespace zn {

class Heap;

// Declares the operators; has no data and no virtual functions.
class MemObject {
public:
    // The width of the owner header in front of every object.
    static constexpr size_t kHeaderSize = sizeof(void*);

    // A block from heap with the owner header written; null when the heap has no memory, and then
    // the new-expression yields null without running the constructor.
    static void* operator new(size_t size, Heap& heap) noexcept;
    static void* operator new[](size_t size, Heap& heap) noexcept;
    static void* operator new(size_t, void* place) noexcept { return place; }
    // Reads the owner from the header and gives the block back to it; null does nothing.
    static void operator delete(void* p, size_t size) noexcept;
    static void operator delete[](void* p, size_t size) noexcept;
    // Pair the placement forms for a constructor that throws; they do nothing.
    static void operator delete(void*, Heap&) noexcept {}
    static void operator delete[](void*, Heap&) noexcept {}
    static void operator delete(void*, void*) noexcept {}

    // The platform's size of what it makes of p (passed as given, not the block start); 0 for null.
    static size_t SizeOfAlloc(void* p, unsigned int alignment);
    // SizeOfAlloc less the header.
    static size_t SizeOfElement(void* p, unsigned int alignment);
};

Heap& GetHeapGLOBAL();

// Base of nearly every class of the library (class Path : public TrackedObject<Path>): new T takes
// its block from "GLOBAL" with the owner header. Adds no data and no virtual functions.
template <typename T>
class TrackedObject {
public:
    static void* operator new(size_t size) noexcept { return MemObject::operator new(size, GetHeapGLOBAL()); }
    static void* operator new[](size_t size) noexcept {
        return MemObject::operator new[](size, GetHeapGLOBAL());
    }
    static void* operator new(size_t size, Heap& heap) noexcept {
        return MemObject::operator new(size, heap);
    }
    static void* operator new[](size_t size, Heap& heap) noexcept {
        return MemObject::operator new[](size, heap);
    }
    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void* p) noexcept { MemObject::operator delete (p, size_t{0}); }
    static void operator delete[](void* p) noexcept { MemObject::operator delete[](p, size_t{0}); }
    static void operator delete(void*, Heap&) noexcept {}
    static void operator delete[](void*, Heap&) noexcept {}
    static void operator delete(void*, void*) noexcept {}
};

}  // namespace zn

// Blocks from the plain run-time; the heap is not used and the blocks carry no owner header, so
// they must not reach MemObject's delete.
void* operator new(size_t size, zn::Heap& heap);
void* operator new[](size_t size, zn::Heap& heap);
void operator delete(void* p, zn::Heap& heap) noexcept;
void operator delete[](void* p, zn::Heap& heap) noexcept;
