#pragma once

#include "HubDictionary.h"

#include "common/StartFailure.h"

#include <tivra.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tivra_wire {

/// The receiver of all that a session tells while a list of tokens is fetched over it: keeps the tokens, and
/// lets the main thread wait for the stages.
class TokenCollector : public tivra::SessionEventHandler,
                       public tivra::UserEventHandler,
                       public tivra::MessageEventHandler {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    void onSessionEvent(const tivra::SessionEvent& event) override;
    void onUserEvent(const tivra::UserEvent& event) override;
    void onMessageEvent(const tivra::MessageEvent& event) override;

    /// The start of the session has returned.
    void noteStart();
    /// False at the deadline.
    [[nodiscard]] bool waitForStart(Deadline deadline);
    enum class Outcome { Answered, Lost, Late };
    /// Waits for the end of the list. When the connection is lost first, the library forgets that the list
    /// has been asked for, so that it must be asked for again.
    [[nodiscard]] Outcome waitForAnswer(Deadline deadline);

    [[nodiscard]] std::size_t tokenCount() const;
    /// Why the answer is no list; empty when it is one.
    [[nodiscard]] std::string error() const;
    [[nodiscard]] std::optional<tivra_tools::LoginRefusal> refusal() const;
    [[nodiscard]] std::vector<HubToken> takeTokens();

private:
    void add(std::int64_t tag, HubToken token);
    void end(std::int64_t tag, const std::string& error);
    /// What answered another request is none of this one's list.
    void beginAnewFor(std::int64_t tag);

    mutable std::mutex m_mutex; ///< guards all below
    std::condition_variable m_changed;
    bool m_hasStarted = false;
    bool m_hasAnswer = false;
    bool m_isLost = false;
    std::int64_t m_tag = 0; ///< of the request that the tokens answer
    std::string m_error;
    std::optional<tivra_tools::LoginRefusal> m_refusal;
    std::vector<HubToken> m_tokens;
    std::size_t m_textSize = 0;
    bool m_isTooMuch = false;
};

} // namespace tivra_wire
