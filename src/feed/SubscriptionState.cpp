#include "feed/SubscriptionState.h"

#include <utility>

#include "feed/ClockTime.h"
#include "feed/FeedItem.h"

namespace tivra_internal {
namespace {

using tivra::DataState;

[[nodiscard]] std::uint64_t nextId() noexcept {
    static std::atomic<std::uint64_t> last{0};
    return last.fetch_add(1, std::memory_order_relaxed) + 1;
}

} // namespace

SubscriptionState::SubscriptionState(std::shared_ptr<FeedItem> item, Handlers handlers, std::int64_t imageTag)
    : m_handlers(std::move(handlers)), m_item(std::move(item)), m_id(nextId()), m_imageTag(imageTag) {}

SubscriptionState::~SubscriptionState() {
    delete m_error.load(std::memory_order_relaxed);
}

int SubscriptionState::source() const noexcept {
    return m_item->source();
}

std::string_view SubscriptionState::symbol() const noexcept {
    return m_item->symbol();
}

tivra::SubscriptionStatistics SubscriptionState::statistics() const {
    tivra::SubscriptionStatistics figures;
    figures.updates = m_updates.load(std::memory_order_relaxed);
    figures.gaps = m_gaps.load(std::memory_order_relaxed);
    if (const double last = m_lastUpdate.load(std::memory_order_relaxed); last != 0.0)
        figures.lastUpdate = toTimePoint(last);
    return figures;
}

std::optional<tivra::Error> SubscriptionState::error() const {
    const tivra::Error* const error = m_error.load(std::memory_order_acquire);
    return error != nullptr ? std::optional<tivra::Error>(*error) : std::nullopt;
}

void SubscriptionState::close() {
    m_item->close(*this);
}

void SubscriptionState::change(DataState to, std::string_view cause, const tivra::Error* error,
                               Callbacks& callbacks) {
    DataState from = state();
    do {
        if (from == to || from == DataState::Refused || from == DataState::Closed)
            return;
        // Nothing of it can be stale before there is anything.
        if (from == DataState::Pending && (to == DataState::Stale || to == DataState::Recovering))
            return;
    } while (!m_state.compare_exchange_weak(from, to));
    if (error != nullptr)
        m_error.store(std::make_unique<tivra::Error>(*error).release(), std::memory_order_release);
    if (m_handlers->onState)
        callbacks.run("onState", *this, [&] {
            m_handlers->onState(view(), {from, to, cause, error, wallTime()});
        });
}

void SubscriptionState::gap(const tivra::Gap& gap, Callbacks& callbacks) {
    count(m_gaps);
    if (m_handlers->onGap)
        callbacks.run("onGap", *this, [&] { m_handlers->onGap(view(), gap); });
}

} // namespace tivra_internal

namespace tivra {

int SubscriptionView::source() const noexcept {
    return m_state->source();
}

std::string_view SubscriptionView::symbol() const noexcept {
    return m_state->symbol();
}

DataState SubscriptionView::state() const noexcept {
    return m_state->state();
}

SubscriptionStatistics SubscriptionView::statistics() const {
    return m_state->statistics();
}

std::uint64_t SubscriptionView::id() const noexcept {
    return m_state->id();
}

void SubscriptionView::close() const {
    m_state->close();
}

Subscription::Subscription(std::shared_ptr<tivra_internal::SubscriptionState> state) noexcept
    : m_state(std::move(state)) {}

Subscription::Subscription(Subscription&&) noexcept = default;

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    if (this != &other) {
        close();
        m_state = std::move(other.m_state);
    }
    return *this;
}

Subscription::~Subscription() {
    close();
}

int Subscription::source() const noexcept {
    return m_state != nullptr ? m_state->source() : 0;
}

std::string_view Subscription::symbol() const noexcept {
    return m_state != nullptr ? m_state->symbol() : std::string_view();
}

DataState Subscription::state() const noexcept {
    return m_state != nullptr ? m_state->state() : DataState::Closed;
}

std::optional<Error> Subscription::error() const {
    return m_state != nullptr ? m_state->error() : std::nullopt;
}

SubscriptionStatistics Subscription::statistics() const {
    return m_state != nullptr ? m_state->statistics() : SubscriptionStatistics();
}

std::uint64_t Subscription::id() const noexcept {
    return m_state != nullptr ? m_state->id() : 0;
}

void Subscription::close() {
    if (m_state != nullptr)
        m_state->close();
}

} // namespace tivra
