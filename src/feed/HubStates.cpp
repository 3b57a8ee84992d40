#include "feed/HubStates.h"

#include <algorithm>
#include <utility>

#include <tp/Clock.h>

#include "feed/ClockTime.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::HubState;

[[nodiscard]] HubState stateOf(HubStage stage) {
    switch (stage) {
    case HubStage::Left:
        return HubState::Idle;
    case HubStage::Resolving:
        return HubState::Resolving;
    case HubStage::Connecting:
        return HubState::Connecting;
    case HubStage::LoggingIn:
        return HubState::LoggingIn;
    case HubStage::Downloading:
        return HubState::Downloading;
    case HubStage::Ready:
        return HubState::Ready;
    case HubStage::Lost:
        return HubState::Lost;
    case HubStage::Refused:
        break;
    }
    return HubState::Refused;
}

/// The phase of an attempt that is in this state; nothing when there is none.
[[nodiscard]] std::optional<Error::Phase> phaseOf(HubState state) {
    switch (state) {
    case HubState::Resolving:
        return Error::Phase::Resolve;
    case HubState::Connecting:
        return Error::Phase::Connect;
    case HubState::LoggingIn:
        return Error::Phase::Login;
    case HubState::Downloading:
        return Error::Phase::Dictionary;
    case HubState::Ready:
        return Error::Phase::Subscription;
    default:
        return std::nullopt;
    }
}

[[nodiscard]] bool isFailure(HubState state) {
    return state == HubState::Lost || state == HubState::Refused;
}

/// A session has no more than half as many at a time.
constexpr std::size_t kMostHubs = 512;

} // namespace

/// Those without a connection go first, and of them the one whose state is the oldest.
bool HubStates::isForgottenBefore(const Entry& a, const Entry& b) {
    return std::pair(!isFailure(a.status.to), a.status.time) <
           std::pair(!isFailure(b.status.to), b.status.time);
}

HubStates::Entry& HubStates::entryOf(const std::string& hub) {
    const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                    [&hub](const Entry& entry) { return entry.status.hub == hub; });
    if (found != m_entries.end())
        return *found;
    // A connection manager may hand out new hubs without end.
    if (m_entries.size() >= kMostHubs)
        m_entries.erase(std::min_element(m_entries.begin(), m_entries.end(), isForgottenBefore));
    Entry& made = m_entries.emplace_back();
    made.status.hub = hub;
    made.status.time = wallTime();
    return made;
}

void HubStates::expect(const std::vector<std::string>& hubs) {
    const tp::MutexLock lock(m_mutex);
    for (const std::string& hub : hubs)
        static_cast<void>(entryOf(hub));
}

void HubStates::hubChanged(const HubReport& report) {
    tivra::ConnectionEvent event;
    event.hub = report.hub;
    event.to = stateOf(report.stage);
    event.cause = report.cause;
    event.systemError = report.systemError;
    event.status = report.status;
    if (report.status != 0)
        event.statusName = m_statusName(report.status);
    event.time = wallTime();
    if (report.nextDial)
        event.nextAttemptAt =
            toTimePoint(tp::Clock::now() + std::max(0.0, *report.nextDial - tp::Clock::monotonic()));
    {
        const tp::MutexLock lock(m_mutex);
        Entry& entry = entryOf(report.hub);
        event.from = entry.status.to;
        entry.status = event;
        entry.phase = phaseOf(event.to).value_or(entry.phase);
        if (isFailure(event.to)) {
            entry.failure = event;
            entry.failurePhase = entry.phase;
            entry.failureNumber = ++m_failures;
        } else if (event.to == HubState::Ready) {
            entry.failureNumber = 0;
        }
    }
    if (m_tell)
        m_tell(event);
}

std::vector<tivra::HubStatus> HubStates::all() const {
    std::vector<tivra::HubStatus> hubs;
    const tp::MutexLock lock(m_mutex);
    hubs.reserve(m_entries.size());
    for (const Entry& entry : m_entries)
        hubs.push_back(entry.status);
    return hubs;
}

std::optional<Error::Details> HubStates::obstacle() const {
    const tp::MutexLock lock(m_mutex);
    // A refusal of the user says more than a hub that isn't there.
    const auto weight = [](const Entry& entry) {
        const bool hasFailed = entry.failureNumber != 0;
        return std::pair(hasFailed && entry.failure.status != 0, entry.failureNumber);
    };
    const Entry* worst = nullptr;
    for (const Entry& entry : m_entries)
        if (entry.status.to != HubState::Ready && (worst == nullptr || weight(entry) > weight(*worst)))
            worst = &entry;
    if (worst == nullptr)
        return std::nullopt;
    const bool hasFailed = worst->failureNumber != 0;
    Error::Details details;
    details.hub = worst->status.hub;
    details.phase = hasFailed ? worst->failurePhase : worst->phase;
    if (hasFailed) {
        details.cause = worst->failure.cause;
        details.status = worst->failure.status;
        details.statusName = worst->failure.statusName;
        details.systemError = worst->failure.systemError;
    }
    return details;
}

} // namespace tivra_internal
