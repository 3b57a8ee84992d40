#include "feed/CallbackWatch.h"

#include <utility>

#include <tp/Clock.h>

namespace tivra_internal {
namespace {

constexpr char kOfSubscription[] = "a subscription's callback";

} // namespace

/// One in the list.
struct WatchedCall {
    const char* function;
    std::string text;
    double begin;
    bool isReported;
};

CallbackWatch::CallbackWatch() = default;

CallbackWatch::~CallbackWatch() = default;

CallbackWatch::Scope::Scope(CallbackWatch& watch, const char* function, std::string_view text)
    : m_watch(watch), m_isEntered(watch.threshold() > 0.0) {
    if (!m_isEntered)
        return;
    std::list<WatchedCall> call;
    call.push_back({function, std::string(text), tp::Clock::monotonic(), false});
    m_call = call.begin();
    const tp::MutexLock lock(m_watch.m_mutex);
    m_watch.m_calls.splice(m_watch.m_calls.end(), call);
}

CallbackWatch::Scope::~Scope() {
    if (!m_isEntered)
        return;
    std::list<WatchedCall> gone; // goes without the mutex
    const tp::MutexLock lock(m_watch.m_mutex);
    gone.splice(gone.end(), m_watch.m_calls, m_call);
    const double seconds = tp::Clock::monotonic() - m_call->begin;
    if (m_call->isReported || seconds >= m_watch.threshold())
        m_watch.report({m_call->function, m_call->text, 0, seconds, false}, !m_call->isReported);
}

void CallbackWatch::add(CallbackSlot& slot) {
    const tp::MutexLock lock(m_mutex);
    m_slots.push_back(&slot);
}

void CallbackWatch::remove(CallbackSlot& slot) {
    const tp::MutexLock lock(m_mutex);
    std::erase(m_slots, &slot);
}

std::vector<CallbackWatch::Report> CallbackWatch::look() {
    const double now = tp::Clock::monotonic();
    const tp::MutexLock lock(m_mutex);
    for (CallbackSlot* slot : m_slots)
        lookAt(*slot, now);
    for (WatchedCall& call : m_calls) {
        if (call.isReported || now - call.begin < threshold())
            continue;
        call.isReported = true;
        report({call.function, call.text, 0, now - call.begin, true}, true);
    }
    return std::exchange(m_reports, {});
}

void CallbackWatch::lookAt(CallbackSlot& slot, double now) {
    const std::uint64_t turn = slot.m_turn.load(std::memory_order_acquire);
    if (turn != slot.m_seen) {
        // Its end is known where the callback has seen that it was reported.
        const double endedAt = slot.m_endedAt.exchange(0.0, std::memory_order_acquire);
        if (std::exchange(slot.m_isSlow, false))
            report(
                {kOfSubscription, "", slot.m_seenTag, (endedAt > 0.0 ? endedAt : now) - slot.m_seenAt, false},
                false);
        slot.m_seen = turn;
        slot.m_seenAt = now;
        return;
    }
    if (turn % 2 == 0 || slot.m_isSlow || now - slot.m_seenAt < threshold())
        return;
    slot.m_seenTag = slot.m_tag.load(std::memory_order_relaxed);
    slot.m_reported.store(turn, std::memory_order_relaxed);
    if (slot.m_turn.load(std::memory_order_acquire) != turn)
        return; // it has just returned, and the tag may be another's
    slot.m_isSlow = true;
    report({kOfSubscription, "", slot.m_seenTag, now - slot.m_seenAt, true}, true);
}

void CallbackWatch::report(Report report, bool isNew) {
    if (isNew)
        m_slowCalls.fetch_add(1, std::memory_order_relaxed);
    m_reports.push_back(std::move(report));
}

} // namespace tivra_internal
