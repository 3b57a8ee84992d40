#include "support/HeapControl.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t t_allocations = 0;
thread_local long t_untilFailure = -1;

void* allocate(std::size_t size) noexcept {
    ++t_allocations;
    if (t_untilFailure >= 0 && t_untilFailure-- == 0)
        return nullptr;
    return std::malloc(size != 0 ? size : 1);
}

void* allocateOrThrow(std::size_t size) {
    if (void* memory = allocate(size))
        return memory;
    throw std::bad_alloc();
}

} // namespace

std::size_t allocationsOfThisThread() noexcept {
    return t_allocations;
}

FailedAllocation::FailedAllocation(long count) {
    t_untilFailure = count;
}

FailedAllocation::~FailedAllocation() {
    t_untilFailure = -1;
}

// Every form, so that a sanitizer sees matching pairs.
void* operator new(std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
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
