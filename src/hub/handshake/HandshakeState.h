#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace tivra_internal {

/// How far the handshake of the present connection has come; a close forgets all of it.
struct HandshakeState {
    double m_beginTime = 0.0; ///< of the connection, later by what it has waited for siblings; monotonic
    double m_waitTime = 0.0;  ///< since when it waits for them, or for the password; monotonic
    bool m_conflationIntervalSet = false;
    bool m_conflationTypeSet = false;
    bool m_haveAdmin = false;
    bool m_sentGetAdmin = false;
    bool m_haveBoxEntitlements = false;
    bool m_haveEntitlements = false;
    bool m_havePorts = false;
    bool m_startedPorts = false;
    int m_src_in_progress = -1; ///< the source that GetPort has asked about
    bool m_haveHeartbeat = false;
    bool m_haveHubStatus = false;
    /// Refused subscriptions to the heartbeat and to the hub status.
    long m_heartbeatRefusals = 0;
    long m_hubStatusRefusals = 0;
    long m_enumRows = 0; ///< return codes taken on this connection
    /// One bit per tag whose closing answer is still out; lists that nobody asked for are ignored.
    uint32_t m_outstandingTags = 0;
};

/// A member of a group; one that stands for a whole group; one that has no group.
enum class HubKind { Member, Aggregating, SingleInstance };

/// What a client has learnt about its hub and the group around it; it outlives a reconnect, so that the next
/// login skips the dictionary and what else is known.
struct HubKnowledge {
    bool m_haveDIC = false;
    bool m_dowloadDIC = false;
    /// The rows of this hub's dictionary version are in `tmpTokenMap`, not in the session's cache.
    bool m_useLocalMap = false;
    int m_dic_tokens_processed = 0;
    std::string m_dicVersion;
    bool m_aggChecked = false;
    std::atomic<HubKind> m_kind{HubKind::Member};
    bool m_haveAllPorts = false;
    bool split_processed = false;

    /// The hub serves its sources without the help of others.
    [[nodiscard]] bool isAlone() const { return m_kind != HubKind::Member; }
};

} // namespace tivra_internal
