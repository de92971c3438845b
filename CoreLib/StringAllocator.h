// StringAllocator.h: the allocator of the library's standard strings. Its blocks come from the plain
// run-time heap with no owner header, exactly as the standard allocator's do, so string characters
// live outside the named heaps and short strings stay in the inline buffer without any allocation.
#pragma once

#include <cstddef>
#include <memory>

namespace zn {

template <typename T>
class StringAllocator {
public:
    using value_type = T;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using propagate_on_container_move_assignment = std::true_type;
    using is_always_equal = std::true_type;

    StringAllocator() noexcept = default;
    template <typename U>
    StringAllocator(const StringAllocator<U>&) noexcept {}

    // count elements from the run-time heap; failure is the standard allocator's.
    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* p, std::size_t count) noexcept { std::allocator<T>().deallocate(p, count); }
};

// Every StringAllocator can free what any other made: they share one heap.
template <typename T, typename U>
bool operator==(const StringAllocator<T>&, const StringAllocator<U>&) noexcept {
    return true;
}
template <typename T, typename U>
bool operator!=(const StringAllocator<T>&, const StringAllocator<U>&) noexcept {
    return false;
}

}  // namespace zn
