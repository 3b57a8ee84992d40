#pragma once

#include "nats/NatsConnection.h"
#include "nats/PendingSends.h"

#include <tp/Mutex.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// Sends messages whose answers come to an inbox and wait there until they are collected, so that no thread
/// is woken for each. The server doesn't say which message it has nobody for; so those of one inbox are all
/// of one stream, and have that answer together.
/// @thread send(): any; what else there is: one at a time
class NatsInbox {
public:
    /// The connection has to stay. @throws BusError
    NatsInbox(const NatsConnection& connection, std::chrono::milliseconds patience);
    ~NatsInbox();
    NatsInbox(const NatsInbox&) = delete;
    NatsInbox& operator=(const NatsInbox&) = delete;

    /// @param header  null for none
    void send(const std::string& subject, std::string_view bytes, const char* header, std::uint64_t value,
              SendTicket ticket);
    /// Ends what has been answered, could not be sent or has waited too long.
    /// @param isLost  whether the connection was lost, and with it the answers that aren't here yet: all that
    ///                still wait for one are ended too
    /// @param used  gets messages that are done with. The client library has a thread that frees them, which
    ///              is woken once for those that are dropped together.
    void collect(bool isLost, std::vector<NatsMessage>& used);
    /// Waits for an answer, so long at most, and ends it. @return false, at once, for no connection
    [[nodiscard]] bool await(std::chrono::milliseconds longest);

private:
    /// What has been got instead of an answer, or with it.
    void take(natsStatus status, natsMsg* message);
    void take(natsMsg* message);

    const NatsConnection& m_connection;
    PendingSends m_pending;
    std::string m_subject; ///< answers come to it, a number added
    NatsSubscription m_answers;

    tp::Mutex m_mutex;
    std::vector<NatsMessage> m_used TP_GUARDED_BY(m_mutex); ///< since the last collect()
};

} // namespace tivra_bus
