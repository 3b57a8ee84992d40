#pragma once

#include "LogTail.h"
#include "RowTable.h"
#include "Watch.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tivra_top {

/// An application that runs, by what its statistics endpoint says once a second. A thread of its own asks, so
/// that a slow endpoint holds up nobody.
class EndpointWatch final : public Watch {
public:
    /// Whom to ask, and how.
    struct Endpoint {
        std::string url;
        std::string caFile; ///< of the certificates that may vouch for it; empty for the system's
        std::string token;  ///< that it wants; empty for none
    };

    explicit EndpointWatch(Endpoint endpoint);
    ~EndpointWatch() override;

    [[nodiscard]] Picture picture() override;
    /// Whether the endpoint answers, and has done so twice, which rates need.
    [[nodiscard]] bool isAnswered() override;

private:
    void ask();
    void take(const std::string& text, TimePoint arrival);

    const Endpoint m_endpoint;
    LogTail m_log;
    std::atomic<bool> m_isClosing{false};
    std::mutex m_mutex; ///< guards all below but the thread
    std::condition_variable m_closing;
    RowTable m_rows;
    RateMeter m_meter;
    Picture m_figures;         ///< those of the whole, as the last answer has them
    std::size_t m_answers = 0; ///< how many there have been
    bool m_isThere = false;    ///< whether the last question had an answer
    std::thread m_thread;      ///< begins last
};

} // namespace tivra_top
