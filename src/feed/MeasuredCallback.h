#pragma once

#include "feed/MessageTimes.h"

namespace tivra_internal {

/// The scope of a call of onUpdate, for the times of its message.
class MeasuredCallback {
public:
    explicit MeasuredCallback(MessageTimes* times) noexcept : m_times(times) {
        if (m_times != nullptr)
            m_times->callbackBegins();
    }
    ~MeasuredCallback() {
        if (m_times != nullptr)
            m_times->callbackEnds();
    }
    MeasuredCallback(const MeasuredCallback&) = delete;
    MeasuredCallback& operator=(const MeasuredCallback&) = delete;

private:
    MessageTimes* const m_times;
};

} // namespace tivra_internal
