#include "config/SessionConfigImpl.h"

#include <tp/eprintf.h>

#include "config/ParameterTable.h"

namespace tivra_internal {

using tivra::SessionConfig;

namespace {

constexpr long kWatchlistRequestQueueSize = 10000000;

/// Zero as a lower limit, and the smallest request queue, are the defaults too, and the log calls them so.
const char* lowerLimitWord(const ParameterInfo& info) {
    return info.minimum == info.defaultValue ? "default" : "minimum";
}

long correct(const ParameterInfo& info, long value) {
    if (value < info.minimum) {
        eprintf(EPF_WARN, "%s set to invalid value of %ld; will set to %s of %ld", info.name, value,
                lowerLimitWord(info), info.minimum);
        return info.minimum;
    }
    if (value > info.maximum) {
        eprintf(EPF_WARN, "%s set to invalid value of %ld; will set to maximum of %ld", info.name, value,
                info.maximum);
        return info.maximum;
    }
    eprintf(EPF_INFO, "%s=%ld", info.name, value);
    return value;
}

} // namespace

std::atomic<long>* SessionConfigImpl::longField(SessionConfig::Parameters parameter) {
    switch (parameter) {
    case SessionConfig::MAX_USER_THREADS_LONG:
        return &maxUserThreads;
    case SessionConfig::MAX_HUB_THREADS_LONG:
        return &maxHubThreads;
    case SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG:
        return &maxRequestQueueSize;
    case SessionConfig::MAX_WATCHLIST_SIZE_LONG:
        return &maxWatchlistSize;
    case SessionConfig::QUEUE_DEPTH_THRESHOLD_PERCENT_LONG:
        return &queueThreshold;
    default:
        return nullptr;
    }
}

void SessionConfigImpl::set(SessionConfig::Parameters parameter, long value) {
    const ParameterInfo* info = findParameter(parameter, ParameterType::Long);
    std::atomic<long>* field = longField(parameter);
    if (info == nullptr || field == nullptr) {
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to SessionConfigImpl::set(long)",
                static_cast<int>(parameter));
        return;
    }
    *field = correct(*info, value);
    if (parameter == SessionConfig::MAX_REQUEST_QUEUE_SIZE_LONG)
        maxReqQSizeSet = true;
}

void SessionConfigImpl::set(SessionConfig::Parameters parameter, bool value) {
    switch (parameter) {
    case SessionConfig::RECOVERY_BOOL:
        eprintf(EPF_WARN, "RECOVERY_BOOL is deprecated, value will be ignored");
        return;
    case SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL:
        multithreaded = value;
        break;
    case SessionConfig::WATCHLIST_BOOL:
        watchlist = value;
        if (value && !maxReqQSizeSet)
            maxRequestQueueSize = kWatchlistRequestQueueSize;
        break;
    case SessionConfig::END_LOST_REQUESTS_BOOL:
        m_endLostRequests = value;
        break;
    case SessionConfig::INLINE_CALLBACKS_BOOL:
        m_inlineCallbacks = value;
        break;
    case SessionConfig::LAZY_VALUES_BOOL:
        m_lazyValues = value;
        break;
    case SessionConfig::HOLD_READS_BOOL:
        m_holdReads = value;
        break;
    case SessionConfig::KERNEL_TIMESTAMPS_BOOL:
        m_kernelTimestamps = value;
        break;
    default:
        eprintf(EPF_WARN, "Invalid parameter (%d) passed to SessionConfigImpl::set(bool)",
                static_cast<int>(parameter));
        return;
    }
    eprintf(EPF_INFO, "%s=%s", findParameter(parameter, ParameterType::Bool)->name, value ? "true" : "false");
}

} // namespace tivra_internal
