#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

void* countedAllocation(std::size_t size) {
    ++allocations;
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

} // namespace

namespace tivra_internal {

std::size_t allocationsOfThisThread() noexcept {
    return allocations;
}

} // namespace tivra_internal

void* operator new(std::size_t size) {
    return countedAllocation(size);
}
void* operator new[](std::size_t size) {
    return countedAllocation(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++allocations;
    return std::malloc(size != 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    ++allocations;
    return std::malloc(size != 0 ? size : 1);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
