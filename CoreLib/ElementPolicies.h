// ElementPolicies.h: how containers get storage for their elements (MallocInterface, NewInterface),
// how a Set orders them (DefaultComparator), and how lists and maps get nodes (ObjectAllocator) and
// reset dropped values (DummyResetFunctor).
#pragma once

#include "CoreLib/MemoryManager.h"
#include "CoreLib/TrackedObject.h"

#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

namespace zn {

// Plain values on raw "GLOBAL" storage with no header: no constructor or destructor ever runs, and
// containers fill the elements by assignment.
template <typename T>
class MallocInterface {
public:
    static_assert(std::is_trivially_copyable_v<T>, "MallocInterface holds plain values; use NewInterface");

    // count uninitialised elements; null for 0 or when the heap has no memory.
    static T* Allocate(unsigned int count) {
        if (count == 0) {
            return nullptr;
        }
        return static_cast<T*>(MemoryManager::GlobalMalloc(static_cast<size_t>(count) * sizeof(T), 0));
    }
    // Gives the block back; null does nothing.
    static void Free(T* elements) {
        if (elements != nullptr) {
            MemoryManager::GlobalFree(elements, 0);
        }
    }
};

// Elements with constructors: one block from "GLOBAL" with the owner header and the element count
// in front; every element is default-constructed on allocation and destroyed in reverse order on
// release.
template <typename T>
class NewInterface {
public:
    // The count word in front of the elements; the block behind the owner header is aligned to it.
    static constexpr size_t kCountSize = sizeof(size_t);
    static_assert(alignof(T) <= kCountSize && alignof(T) <= MemObject::kHeaderSize,
                  "NewInterface elements are aligned to the width of the block header");

    // count default-constructed elements; null for 0 or when the heap has no memory.
    static T* Allocate(unsigned int count) {
        if (count == 0) {
            return nullptr;
        }
        void* block =
            MemObject::operator new[](kCountSize + static_cast<size_t>(count) * sizeof(T), GetHeapGLOBAL());
        if (block == nullptr) {
            return nullptr;
        }
        *static_cast<size_t*>(block) = count;
        T* elements = reinterpret_cast<T*>(static_cast<char*>(block) + kCountSize);
        for (unsigned int index = 0; index < count; ++index) {
            ::new (static_cast<void*>(elements + index)) T();
        }
        return elements;
    }
    // Destroys the elements, last first, and gives the block back; null does nothing.
    static void Free(T* elements) {
        if (elements == nullptr) {
            return;
        }
        size_t count = CountOf(elements);
        for (size_t index = count; index > 0; --index) {
            elements[index - 1].~T();
        }
        MemObject::operator delete[](BlockOf(elements), size_t{0});
    }
    // The element count stored in front of a block from Allocate.
    static size_t CountOf(const T* elements) {
        return *reinterpret_cast<const size_t*>(BlockOf(const_cast<T*>(elements)));
    }

private:
    static void* BlockOf(T* elements) { return reinterpret_cast<char*>(elements) - kCountSize; }
};

// The ordering policy of Set: the element's own operators.
template <typename T>
class DefaultComparator {
public:
    static bool Less(const T& left, const T& right) { return left < right; }
    static bool Equal(const T& left, const T& right) { return left == right; }
};

// The node allocator of lists and maps: nodes come from the global operator new(size, Heap&).
class ObjectAllocator {
public:
    // A node built from args, or null when the run-time has no memory.
    template <typename Node, typename... Args>
    static Node* New(Args&&... args) {
        try {
            return new (GetHeapGLOBAL()) Node{std::forward<Args>(args)...};
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    // Destroys and frees a node from New; null does nothing.
    template <typename Node>
    static void Delete(Node* node) {
        if (node != nullptr) {
            node->~Node();
            ::operator delete(static_cast<void*>(node), GetHeapGLOBAL());
        }
    }
};

// The reset policy of lists and maps for values they drop: does nothing.
template <typename T>
class DummyResetFunctor {
public:
    void operator()(T&) const {}
};

namespace detail {

// Where an access outside a container's storage goes: a per-thread element, set to the empty
// element each time it is handed out, so the access neither reads nor writes outside the block.
template <typename T>
T& SpareElement() {
    thread_local T spare{};
    spare = T();
    return spare;
}

}  // namespace detail

}  // namespace zn
