#include "hub/ConflationChoice.h"

#include <tp/eprintf.h>

namespace tivra_internal {

namespace {

long usableThreshold(long threshold) {
    if (threshold < kMinJitThreshold) {
        eprintf(
            EPF_WARN,
            "Requested JIT_CONFLATION_THRESHOLD_PERCENT_LONG of %ld percent is smaller than the minimum of "
            "%ld; will use %ld percent",
            threshold, kMinJitThreshold, kMinJitThreshold);
        return kMinJitThreshold;
    }
    if (threshold > kMaxJitThreshold) {
        eprintf(
            EPF_WARN,
            "Requested JIT_CONFLATION_THRESHOLD_PERCENT_LONG of %ld percent is larger than the maximum of "
            "%ld; will use %ld percent",
            threshold, kMaxJitThreshold, kMaxJitThreshold);
        return kMaxJitThreshold;
    }
    return threshold;
}

} // namespace

ConflationChoice chooseConflation(long type, long threshold, HubVersion version) {
    if (type == kConflationTypeJit && !version.isAbove(7, 4)) {
        eprintf(
            EPF_WARN,
            "Cannot set CONFLATION_TYPE_LONG = 3 (JIT) when HUB version < 7.5 (detected %d.%d); API will use "
            "default trade-safe conflation",
            version.major, version.minor);
        return {};
    }
    if (type == kConflationTypeJitIntervalized && !version.isAbove(7, 7)) {
        eprintf(EPF_WARN,
                "Cannot set CONFLATION_TYPE_LONG = 4 (JIT INTERVALIZED) when HUB version < 7.8 (detected "
                "%d.%d); API will use default trade-safe conflation",
                version.major, version.minor);
        return {};
    }
    if (type != kConflationTypeJit && type != kConflationTypeJitIntervalized) {
        if (threshold != kDefaultJitThreshold)
            eprintf(EPF_WARN,
                    "Cannot set JIT_CONFLATION_THRESHOLD_PERCENT_LONG when CONFLATION_TYPE_LONG != JIT; "
                    "value will be ignored");
        return {type, false, kDefaultJitThreshold};
    }
    return {type, true, usableThreshold(threshold)};
}

void noteIgnoredInterval(long type, long interval) {
    if (interval == kDefaultConflationInterval)
        return;
    if (type == kConflationTypeJit)
        eprintf(EPF_WARN,
                "Cannot set CONFLATION_INTERVAL_LONG when CONFLATION_TYPE_LONG == 3 (JIT); value will be "
                "ignored");
    else if (type == kConflationTypeJitIntervalized)
        eprintf(EPF_WARN,
                "Cannot set CONFLATION_INTERVAL_LONG when CONFLATION_TYPE_LONG == 4 (JIT INTERVALIZED); "
                "value will be ignored");
}

} // namespace tivra_internal
