#pragma once

#include "LogTail.h"
#include "RowTable.h"
#include "Watch.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace tivra_top {

/// An application that runs, by what its statistics endpoint says once a second. A thread of its own asks, so
/// that a slow endpoint holds up nobody.
class EndpointWatch final : public Watch {
public:
    explicit EndpointWatch(std::string url);
    ~EndpointWatch() override;

    [[nodiscard]] Picture picture() override;
    /// Whether the endpoint has answered.
    [[nodiscard]] bool isAnswered() override;

private:
    void ask();
    void takeText(Picture& picture, const std::string& text);

    const std::string m_url;
    LogTail m_log;
    RowTable m_rows;
    RateMeter m_rate;
    std::atomic<bool> m_isClosing{false};
    std::mutex m_mutex; ///< guards the three below
    std::condition_variable m_closing;
    std::string m_text;     ///< the last answer
    bool m_isThere = false; ///< whether the last question had an answer
    bool m_isLost = false;  ///< as it is shown, of the main thread
    std::thread m_thread;   ///< begins last
};

} // namespace tivra_top
