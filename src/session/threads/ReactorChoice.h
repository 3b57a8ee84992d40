#pragma once

namespace tivra_internal {

/// Which reactor serves the next hub or queue.
struct ReactorChoice {
    int index;
    bool create; ///< no reactor of that index exists yet
};

/// Round-robin over the reactors; a new one only while the hubs have used up the existing ones and the
/// configuration allows more. `maxThreads` 0 means no limit.
[[nodiscard]] inline ReactorChoice chooseReactor(int lastUsedIndex, int reactorCount, bool multithreaded,
                                                 long maxThreads) {
    const int following = lastUsedIndex + 1;
    if (following != reactorCount)
        return {following, false};
    const bool mayGrow = multithreaded ? (maxThreads == 0 || maxThreads > reactorCount) : reactorCount == 0;
    if (mayGrow)
        return {following, true};
    return {0, false};
}

} // namespace tivra_internal
