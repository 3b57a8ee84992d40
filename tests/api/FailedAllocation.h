#pragma once

/// Lets one allocation of this thread fail: the one behind `count` more, within the life of this.
class FailedAllocation {
public:
    explicit FailedAllocation(long count);
    ~FailedAllocation();
    FailedAllocation(const FailedAllocation&) = delete;
    FailedAllocation& operator=(const FailedAllocation&) = delete;
};
