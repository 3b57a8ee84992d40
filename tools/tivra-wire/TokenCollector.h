#ifndef TIVRA_WIRE_TOKENCOLLECTOR_H
#define TIVRA_WIRE_TOKENCOLLECTOR_H

#include "HubDictionary.h"

#include "common/StartFailure.h"

#include <tivra.h>

#include <chrono>
#include <condition_variable>
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

    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent& event) override;
    void onMessageEvent(const tivra::MessageEvent& event) override;

    /// The start of the session has returned.
    void noteStart();
    /// False at the deadline.
    [[nodiscard]] bool waitForStart(Deadline deadline);
    /// The same for the end of the list.
    [[nodiscard]] bool waitForAnswer(Deadline deadline);

    [[nodiscard]] std::size_t tokenCount() const;
    /// Why the answer is no list; empty when it is one.
    [[nodiscard]] std::string error() const;
    [[nodiscard]] std::optional<tivra_tools::LoginRefusal> refusal() const;
    [[nodiscard]] std::vector<HubToken> takeTokens();

private:
    void add(HubToken token);
    void end(const std::string& error);

    mutable std::mutex m_mutex; ///< guards all below
    std::condition_variable m_changed;
    bool m_hasStarted = false;
    bool m_hasAnswer = false;
    std::string m_error;
    std::optional<tivra_tools::LoginRefusal> m_refusal;
    std::vector<HubToken> m_tokens;
    std::size_t m_textSize = 0;
    bool m_isTooMuch = false;
};

} // namespace tivra_wire

#endif
