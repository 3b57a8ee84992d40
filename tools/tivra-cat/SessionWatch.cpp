#include "SessionWatch.h"

#include <fmt/format.h>

namespace tivra_cat {

namespace {

/// More notices than that between two looks of the main thread say nothing new.
constexpr std::size_t kMaxNotices = 100;

std::string describe(const tivra::SessionEvent& event) {
    switch (event.getType()) {
    case tivra::SessionEvent::TIVRA_SESSION_ESTABLISHED:
        return "session: all hubs are ready again";
    case tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE:
        return "session: no hub is ready";
    case tivra::SessionEvent::TIVRA_SESSION_RECOVERY:
        return "session: a hub was lost and is being dialled";
    case tivra::SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES:
        return fmt::format("source {}: lost with its hub", event.getSourceID());
    case tivra::SessionEvent::TIVRA_SESSION_AVAILABLE_SOURCES:
        return fmt::format("source {}: back", event.getSourceID());
    case tivra::SessionEvent::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD:
        return fmt::format("receive queue {} percent full", event.getQueueDepth());
    case tivra::SessionEvent::TIVRA_SESSION_JIT_START_CONFLATING:
        return "a hub has begun to conflate because the receive queue fills";
    case tivra::SessionEvent::TIVRA_SESSION_JIT_STOP_CONFLATING:
        return "no hub conflates any more";
    case tivra::SessionEvent::TIVRA_SESSION_SOURCE_ADDED:
        return fmt::format("source {}: granted", event.getSourceID());
    case tivra::SessionEvent::TIVRA_SESSION_SOURCE_REMOVED:
        return fmt::format("source {}: withdrawn", event.getSourceID());
    default:
        return {};
    }
}

} // namespace

void SessionWatch::onSessionEvent(const tivra::SessionEvent& event) {
    using Event = tivra::SessionEvent;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (event.getType() == Event::TIVRA_SESSION_ESTABLISHED && !m_wasEstablished) {
        m_wasEstablished = true;
        m_state = event.getType();
        return;
    }
    if (!m_wasEstablished)
        return;
    std::string text = describe(event);
    switch (event.getType()) {
    case Event::TIVRA_SESSION_ESTABLISHED:
    case Event::TIVRA_SESSION_RECOVERY:
    case Event::TIVRA_SESSION_UNAVAILABLE:
        enter(event.getType(), std::move(text));
        return;
    case Event::TIVRA_SESSION_RECOVERY_SOURCES:
    case Event::TIVRA_SESSION_AVAILABLE_SOURCES:
        noteSource(event);
        break;
    case Event::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD:
    case Event::TIVRA_SESSION_RECEIVE_QUEUE_BELOW_THRESHOLD:
        noteDepth(event.getType() == Event::TIVRA_SESSION_RECEIVE_QUEUE_ABOVE_THRESHOLD);
        break;
    default:
        break;
    }
    if (!text.empty())
        notice(std::move(text));
}

void SessionWatch::enter(State state, std::string text) {
    using Event = tivra::SessionEvent;
    const bool isLoss =
        state == Event::TIVRA_SESSION_UNAVAILABLE ||
        (state == Event::TIVRA_SESSION_RECOVERY && m_state == Event::TIVRA_SESSION_ESTABLISHED);
    m_state = state;
    if (isLoss) {
        const bool isReset = m_isDeep && m_settings.losesHubsWhenFull;
        if (isReset)
            text += ", since the receive queue was full";
        m_mayLackDrops = true;
        m_incidents.hubLost(text, isReset);
    } else if (state == Event::TIVRA_SESSION_ESTABLISHED) {
        m_incidents.hubsRestored(text);
    }
    notice(std::move(text));
}

void SessionWatch::noteSource(const tivra::SessionEvent& event) {
    if (event.getType() == tivra::SessionEvent::TIVRA_SESSION_RECOVERY_SOURCES)
        m_incidents.sourceLost(event.getSourceID());
    else
        m_incidents.sourceRestored(event.getSourceID());
}

void SessionWatch::noteDepth(bool isDeep) {
    m_isDeep = isDeep;
    m_mayLackDrops = m_mayLackDrops || isDeep;
}

void SessionWatch::onUserEvent(const tivra::UserEvent& event) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (event.getType() == tivra::UserEvent::AUTHORIZATION_SUCCESS) {
        m_refusal.reset();
        return;
    }
    m_refusal = tivra_tools::LoginRefusal{event.getRetCode(), event.getRetCodeString()};
    if (m_wasEstablished)
        notice(fmt::format("a hub refused the login: {} {}", m_refusal->code, m_refusal->name));
}

void SessionWatch::onStatisticsEvent(const tivra::StatisticsEvent& event) {
    Statistics statistics{};
    for (std::size_t i = 0; i < kCounters; ++i)
        statistics[i] = event.getStat(static_cast<tivra::StatisticsEvent::StatsTypes>(i));
    std::string json;
    std::string openMetrics;
    if (m_settings.forMachines) {
        json = tivra::StatisticsText::json(event, m_settings.labels) + "\n";
        openMetrics = tivra::StatisticsText::openMetrics(event, m_settings.labels);
    }
    m_incidents.dropped(statistics[tivra::StatisticsEvent::DROP],
                        statistics[tivra::StatisticsEvent::HUB_DROP]);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_statistics = statistics;
    m_json = std::move(json);
    m_openMetrics = std::move(openMetrics);
    m_mayLackDrops = m_isDeep;
    m_wakeup.notify();
}

std::optional<tivra_tools::LoginRefusal> SessionWatch::loginRefusal() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_refusal;
}

std::vector<std::string> SessionWatch::takeNotices() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> notices;
    notices.swap(m_notices);
    return notices;
}

SessionWatch::Statistics SessionWatch::statistics() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_statistics;
}

bool SessionWatch::mayLackDrops() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_mayLackDrops;
}

std::string SessionWatch::machineStatistics(StatisticsForm form) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return form == StatisticsForm::Json ? m_json : m_openMetrics;
}

void SessionWatch::notice(std::string text) {
    if (m_notices.size() < kMaxNotices)
        m_notices.push_back(std::move(text));
    m_wakeup.notify();
}

} // namespace tivra_cat
