#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace tivra_internal {

class EntitledSources;
class HubClient;
class SplitTables;

/// Answers to GETSOURCEPORTDETAILS, which the session gives from its own tables: one message for each source,
/// and a last one. @thread master
class PortDetails {
public:
    /// Writes a message that the application receives as an answer; false when there is no room for it now.
    using Write = std::function<bool(const std::string& text)>;

    PortDetails(const EntitledSources& entitled, const SplitTables& split, Write write);

    /// The request with this tag has come.
    void enter(int64_t tag) { getPortDetailsQueue.push_back(tag); }
    /// Writes so many messages at most.
    void answer(unsigned numMsgs);
    /// Some wait, and the queue was not full when it was last tried.
    [[nodiscard]] bool isServable() const { return !getPortDetailsQueue.empty() && !isPortDetailsQueueFull; }
    void reset();

private:
    [[nodiscard]] bool sendOneMessage(int64_t tag, bool& isDone);
    [[nodiscard]] std::vector<std::string> detailsOf(int64_t tag, int source, const HubClient& hub) const;

    const EntitledSources& m_entitled;
    const SplitTables& m_split;
    const Write m_write;
    std::deque<int64_t> getPortDetailsQueue;
    bool isPortDetailsQueueFull = false;
    double lastPortDetailsQFullCheckTime = 0.0;
    int m_lastSrc = 0; ///< the source answered last
};

} // namespace tivra_internal
