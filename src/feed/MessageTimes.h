#pragma once

#include <chrono>
#include <memory>
#include <utility>

#include <tp/Clock.h>

#include "feed/HubMeasures.h"
#include "receive/FrameTime.h"

namespace tivra_internal {

/// The times of the message that a stream is delivering. They are read when somebody asks, and for one
/// message in so many, which is measured: what a message costs mustn't grow by a look at the clock.
/// @thread that delivers for the hub
class MessageTimes {
public:
    /// @param sampling  one message in so many is measured; 0 for none
    MessageTimes(std::shared_ptr<HubMeasures> measures, unsigned sampling) noexcept
        : m_measures(std::move(measures)), m_sampling(sampling), m_countdown(sampling) {}

    /// A message has been decoded.
    void begin(const FrameTime* frame) noexcept {
        m_frame = frame;
        m_decodedAt = 0.0;
        m_isMeasured = false;
        if (m_countdown != 0 && --m_countdown == 0)
            beginMeasuring();
    }
    /// An application's onUpdate for it begins, and ends.
    void callbackBegins() noexcept {
        if (m_isMeasured)
            measureBegin();
    }
    void callbackEnds() noexcept {
        if (m_isMeasured)
            measureEnd();
    }

    /// When the message was read; when it was decoded, if nobody knows.
    [[nodiscard]] std::chrono::system_clock::time_point receivedAt() noexcept;
    /// When the message was decoded, or was first asked this, if it isn't measured.
    [[nodiscard]] std::chrono::system_clock::time_point decodedAt() noexcept;

private:
    void beginMeasuring() noexcept;
    void measureBegin() noexcept;
    void measureEnd() noexcept;

    const std::shared_ptr<HubMeasures> m_measures;
    const unsigned m_sampling;
    unsigned m_countdown; ///< messages until one is measured; 0 for never
    bool m_isMeasured = false;
    const FrameTime* m_frame = nullptr;
    // By the monotonic clock; 0 for what hasn't been read.
    double m_decodedAt = 0.0;
    double m_callbackAt = 0.0;
    // The last read that was asked for, by both clocks.
    double m_readAt = 0.0;
    std::chrono::system_clock::time_point m_receivedAt;
};

} // namespace tivra_internal
