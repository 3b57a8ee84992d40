#include "session/routing/PortDetails.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "LogLimits.h"
#include "hub/HubClient.h"
#include "session/routing/RoutingTarget.h"
#include "session/routing/SplitTables.h"
#include "session/sources/SourceRoutes.h"

namespace tivra_internal {
namespace {

constexpr double kSecondsOfPortBackOff = 1.0;
// Half of the pseudo hub's ring: a longer answer goes out as several messages of the same source.
constexpr std::size_t kMaxAnswer = 512 * 1024;

void appendHub(std::string& text, const HubClient& hub) {
    text += "|13001=" + hub.getHubIpAddr() + "|13101=" + std::to_string(hub.getHubPort());
}

/// A pattern as hubs write it: "|" would end the pair, so alternatives have "~" between them.
std::string wireForm(std::string pattern) {
    std::replace(pattern.begin(), pattern.end(), '|', '~');
    return pattern;
}

} // namespace

PortDetails::PortDetails(const EntitledSources& entitled, const SplitTables& split, Write write)
    : m_entitled(entitled), m_split(split), m_write(std::move(write)) {}

void PortDetails::reset() {
    getPortDetailsQueue.clear();
    isPortDetailsQueueFull = false;
    m_lastSrc = 0;
}

void PortDetails::answer(unsigned numMsgs) {
    const double now = tp::Clock::monotonic();
    if (isPortDetailsQueueFull && now >= lastPortDetailsQFullCheckTime &&
        now - lastPortDetailsQFullCheckTime < kSecondsOfPortBackOff)
        return;
    lastPortDetailsQFullCheckTime = now;
    for (; numMsgs > 0 && !getPortDetailsQueue.empty(); --numMsgs) {
        bool isDone = false;
        isPortDetailsQueueFull = !sendOneMessage(getPortDetailsQueue.front(), isDone);
        if (isPortDetailsQueueFull)
            return;
        if (isDone) {
            getPortDetailsQueue.pop_front();
            return;
        }
    }
}

/// One source's answer, or the final message. False when the queue has no room now.
bool PortDetails::sendOneMessage(int64_t tag, bool& isDone) {
    const auto printableTag = static_cast<long long>(tag);
    int source = 0;
    HubClient* hub = nullptr;
    if (!m_entitled.next(m_lastSrc, source, hub)) {
        eprintf(EPF_DBUG, "getNextHub() nextHub=NULL; *currSrc=%d", source);
        const std::string text = "5026=" + std::to_string(tag) + "|5001=0";
        if (!m_write(text)) {
            eprintf(EPF_DBUG, "Unable to write final message; No space on queue, tag=%lld; len = %d",
                    printableTag, static_cast<int>(text.size()));
            return false;
        }
        isDone = true;
        m_lastSrc = 0;
        return true;
    }
    eprintf(EPF_DBUG, "getNextHub() nextHub=%s; *currSrc=%d", hub->getHubAddr().c_str(), source);
    if (source > kFirstNewsSource) {
        m_lastSrc = source;
        return true;
    }
    for (const std::string& text : detailsOf(tag, source, *hub)) {
        eprintf(EPF_DBUG, "kvnStr=%.*s; currSrc=%d ", static_cast<int>(kMaxLoggedText), text.c_str(), source);
        if (!m_write(text)) {
            eprintf(EPF_DBUG,
                    "Unable to write message for source = %d; tag=%lld; No space on queue, len = %d", source,
                    printableTag, static_cast<int>(text.size()));
            return false;
        }
    }
    m_lastSrc = source;
    return true;
}

/// The texts that say which hub or hubs serve a source; more than one when it has very many patterns.
std::vector<std::string> PortDetails::detailsOf(int64_t tag, int source, const HubClient& hub) const {
    const std::string opening = "5026=" + std::to_string(tag) + "|4=" + std::to_string(source);
    std::vector<std::string> texts{opening};
    if (!m_split.isSplitSymbol(source)) {
        appendHub(texts.back(), hub);
        return texts;
    }
    std::map<HubClient*, std::set<std::string>> patterns;
    if (!m_split.patternsByHub(source, patterns))
        eprintf(EPF_WARN, "src %d is a split exchange but no entry found in SrcToSplitServByRegex", source);
    for (const auto& [part, patternsOfPart] : patterns) {
        appendHub(texts.back(), *part);
        const std::string name = part->getHubAddr();
        bool isNew = true;
        for (const std::string& pattern : patternsOfPart) {
            if (std::exchange(isNew, false))
                eprintf(EPF_DBUG, "Inserting [exch %d] regex %s for hub=%s", source, pattern.c_str(),
                        name.c_str());
            else
                eprintf(EPF_DBUG, "hub %s already inserted; Inserting regex %s", name.c_str(),
                        pattern.c_str());
            if (texts.back().size() + pattern.size() > kMaxAnswer) {
                texts.push_back(opening);
                appendHub(texts.back(), *part);
            }
            texts.back() += "|5={" + wireForm(pattern) + "}";
        }
    }
    return texts;
}

} // namespace tivra_internal
