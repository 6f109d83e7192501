#pragma once

#include <atomic>
#include <cstdlib>
#include <new>

/// Counts what the whole program takes from the heap through operator new. Include it in one source of a test program.
/// The thread sanitizer has operators of its own: there nothing is counted, and isActive is false.
namespace AllocationCounter {
inline std::atomic<long> count{0};
#if defined(__SANITIZE_THREAD__)
inline constexpr bool isActive = false;
#else
inline constexpr bool isActive = true;
#endif
} // namespace AllocationCounter

#if !defined(__SANITIZE_THREAD__)

void *operator new(std::size_t size)
{
    AllocationCounter::count.fetch_add(1, std::memory_order_relaxed);
    if (void *memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    AllocationCounter::count.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
void *operator new[](std::size_t size)
{
    return operator new(size);
}
void operator delete(void *memory) noexcept
{
    std::free(memory);
}
void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void *memory) noexcept
{
    std::free(memory);
}
void operator delete[](void *memory, std::size_t) noexcept
{
    std::free(memory);
}
#endif
