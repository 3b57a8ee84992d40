#include "session/threads/ReactorChoice.h"

namespace tivra_internal {

ReactorChoice chooseReactor(int lastUsedIndex, int reactorCount, bool multithreaded, long maxThreads) {
    const int following = lastUsedIndex + 1;
    if (following != reactorCount)
        return {following, false};
    const bool mayGrow = multithreaded ? (maxThreads == 0 || maxThreads > reactorCount) : reactorCount == 0;
    if (mayGrow)
        return {following, true};
    return {0, false};
}

} // namespace tivra_internal
