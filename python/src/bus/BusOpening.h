#pragma once

#include <memory>
#include <thread>
#include <utility>

#include <bus/BusError.h>
#include <bus/startThread.h>
#include <feed/Error.h>
#include <reader/BusReader.h>
#include <reader/EndingThreads.h>

#include "FeedHolder.h"
#include "Pending.h"

namespace tivra_python {

/// A connection to the bus that is being opened, on a thread of its own since that waits.
class BusOpening {
public:
    explicit BusOpening(tivra::BusOptions options)
        : m_endings(tivra_bus::EndingThreads::instance()), m_thread(start(std::move(options))) {}
    /// Nobody waits for an engine that doesn't answer.
    ~BusOpening() {
        if (m_thread.joinable())
            m_endings.add(std::move(m_thread), std::exchange(m_running, nullptr));
    }
    BusOpening(const BusOpening&) = delete;
    BusOpening& operator=(const BusOpening&) = delete;

    [[nodiscard]] Pending<tivra::BusReader>& result() const noexcept { return *m_result; }

private:
    /// What refuses the thread is the result.
    [[nodiscard]] std::thread start(tivra::BusOptions options) {
        using tivra::Error;
        try {
            return tivra_bus::startThread(
                "tivra-bus-wait",
                [options = std::move(options), running = m_running, result = m_result.shared()]() mutable {
                    result->complete(tivra::BusReader::tryOpen(std::move(options)));
                });
        } catch (const tivra_bus::BusError& error) {
            m_result->complete(
                Error({Error::Code::OpenFailed, Error::Phase::Connect, error.what(), "", "", 0, "", 0}));
            return {};
        }
    }

    /// With a reader, if nobody has taken it.
    Unlocked<Pending<tivra::BusReader>> m_result{std::make_shared<Pending<tivra::BusReader>>()};
    tivra_bus::EndingThreads& m_endings;
    std::shared_ptr<const void> m_running = std::make_shared<const int>(); ///< which the thread shares
    std::thread m_thread;
};

} // namespace tivra_python
