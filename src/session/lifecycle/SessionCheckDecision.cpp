#include "session/lifecycle/SessionCheckDecision.h"

namespace tivra_internal {

CheckDecision decideSessionCheck(HubCounts counts) {
    const bool allLookReady = counts.downs > 0 && counts.notReady == 0;
    if (allLookReady && counts.ready > 0 && counts.pending > 0)
        return {CheckPath::Partial, counts};
    if (allLookReady && counts.ready == 1 && counts.pending == 0) {
        counts.notReady = 1;
        counts.ready = 0;
        return {CheckPath::Down, counts};
    }
    if (allLookReady && counts.ready > 1 && counts.pending == 0) {
        --counts.ready;
        return {CheckPath::Last, counts};
    }
    if (counts.ready == 0)
        return {CheckPath::Down, counts};
    if (counts.notReady == 1)
        return {CheckPath::Last, counts};
    if (counts.notReady > 1 || counts.pending > 0)
        return {CheckPath::Partial, counts};
    return {CheckPath::AllReady, counts};
}

} // namespace tivra_internal
