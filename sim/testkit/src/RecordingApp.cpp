#include "tivra_testkit/RecordingApp.h"

#include <algorithm>

namespace tivra_testkit {

using tivra::MessageEvent;
using tivra::SessionEvent;

namespace {

std::string describe(const SessionEvent& event) {
    static const char* const kNames[] = {
        "UNAVAILABLE",       "ESTABLISHED",      "RECOVERY",      "DIC_LOADED",  "AVAILABLE_ALLSOURCES",
        "AVAILABLE_SOURCES", "RECOVERY_SOURCES", "QUEUE_ABOVE",   "QUEUE_BELOW", "JIT_START",
        "JIT_STOP",          "SOURCE_ADDED",     "SOURCE_REMOVED"};
    std::string text = kNames[event.getType()];
    if (!event.getDicVersion().empty())
        text.append(" ").append(event.getDicVersion());
    if (event.getSourceID() != 0)
        text.append(" ").append(std::to_string(event.getSourceID()));
    return text;
}

} // namespace

void RecordingApp::onSessionEvent(const SessionEvent& event) {
    if (sessionHook)
        sessionHook(event);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sessionEvents.push_back(describe(event));
    m_changed.notify_all();
}

void RecordingApp::onUserEvent(const tivra::UserEvent& event) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    // The name of success depends on how much of the handshake is over by the time of delivery.
    if (event.getType() == tivra::UserEvent::AUTHORIZATION_SUCCESS)
        m_userEvents.push_back("SUCCESS");
    else
        m_userEvents.push_back(std::string("FAILURE ") + std::to_string(event.getRetCode()) + " " +
                               event.getRetCodeString());
    m_changed.notify_all();
}

void RecordingApp::onMessageEvent(const MessageEvent& event) {
    if (messageHook)
        return messageHook(event);
    SeenMessage message(event);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.push_back(std::move(message));
    m_changed.notify_all();
}

void RecordingApp::onStatisticsEvent(const tivra::StatisticsEvent& event) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::uint64_t>& row = m_statistics.emplace_back();
    for (int type = 0; type <= tivra::StatisticsEvent::PEAK_NET_OUT_MSGS_SEC; ++type)
        row.push_back(event.getStat(static_cast<tivra::StatisticsEvent::StatsTypes>(type)));
    m_changed.notify_all();
}

std::vector<std::string> RecordingApp::sessionEvents() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sessionEvents;
}

std::vector<std::string> RecordingApp::userEvents() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_userEvents;
}

std::vector<SeenMessage> RecordingApp::messages() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_messages;
}

std::vector<SeenMessage> RecordingApp::messagesOf(std::int64_t tag) const {
    std::vector<SeenMessage> all = messages();
    all.erase(std::remove_if(all.begin(), all.end(),
                             [tag](const SeenMessage& message) { return message.tag != tag; }),
              all.end());
    return all;
}

void RecordingApp::forget() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sessionEvents.clear();
    m_userEvents.clear();
    m_messages.clear();
}

void RecordingApp::notify() {
    // Who has found the condition false holds the mutex until it sleeps.
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_changed.notify_all();
}

bool RecordingApp::waitUntil(const std::function<bool()>& condition, Deadline deadline) const {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, deadline, condition);
}

bool RecordingApp::waitForSessionEvent(const std::string& text, std::size_t times) const {
    return waitUntil([&] {
        return static_cast<std::size_t>(std::count(m_sessionEvents.begin(), m_sessionEvents.end(), text)) >=
               times;
    });
}

bool RecordingApp::waitForUserEvents(std::size_t count) const {
    return waitUntil([&] { return m_userEvents.size() >= count; });
}

bool RecordingApp::waitForMessage(const std::function<bool(const SeenMessage&)>& accept,
                                  Deadline deadline) const {
    return waitUntil([&] { return std::any_of(m_messages.begin(), m_messages.end(), accept); }, deadline);
}

bool RecordingApp::waitForEnd(std::int64_t tag, Deadline deadline) const {
    return waitForMessage([tag](const SeenMessage& message) { return message.tag == tag && message.isEnd(); },
                          deadline);
}

bool RecordingApp::waitForUpdates(std::size_t count) const {
    return waitUntil([&] {
        return static_cast<std::size_t>(
                   std::count_if(m_messages.begin(), m_messages.end(), [](const SeenMessage& message) {
                       return message.type == MessageEvent::UPDATE;
                   })) >= count;
    });
}

RecordingApp::Statistics RecordingApp::statistics() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_statistics;
}

std::size_t RecordingApp::waitForQuiet() const {
    using Stats = tivra::StatisticsEvent;
    const std::size_t from = statistics().size();
    std::size_t count = 0;
    const bool isQuiet = waitUntil([&] {
        count = m_statistics.size();
        if (count < from + 2)
            return false;
        const auto& last = m_statistics[count - 1];
        const auto& before = m_statistics[count - 2];
        return last[Stats::MSGS_IN] == before[Stats::MSGS_IN] &&
               last[Stats::MSGS_OUT] == before[Stats::MSGS_OUT];
    });
    return isQuiet ? count : 0;
}

bool RecordingApp::waitForStatistics(tivra::StatisticsEvent::StatsTypes type,
                                     const std::function<bool(std::uint64_t)>& accept) const {
    return waitUntil([&] { return !m_statistics.empty() && accept(m_statistics.back()[std::size_t(type)]); });
}

} // namespace tivra_testkit
