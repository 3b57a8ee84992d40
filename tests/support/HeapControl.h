#pragma once

#include <cstddef>

/// How often this thread has asked for memory with new since the program began. Counted by the operators that
/// a test program gets with HeapControl.cpp.
[[nodiscard]] std::size_t allocationsOfThisThread() noexcept;

/// Lets one allocation of this thread fail: the one behind `count` more, within the life of this.
class FailedAllocation {
public:
    explicit FailedAllocation(long count);
    ~FailedAllocation();
    FailedAllocation(const FailedAllocation&) = delete;
    FailedAllocation& operator=(const FailedAllocation&) = delete;
};
