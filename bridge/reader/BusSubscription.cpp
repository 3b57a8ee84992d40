#include "reader/BusSubscription.h"

#include "reader/SubscriptionState.h"

namespace tivra {

BusSubscription::BusSubscription(std::shared_ptr<tivra_bus::SubscriptionState> state) noexcept
    : m_state(std::move(state)) {}

BusSubscription::BusSubscription(BusSubscription&&) noexcept = default;

BusSubscription& BusSubscription::operator=(BusSubscription&& other) noexcept {
    if (this != &other) {
        close();
        m_state = std::move(other.m_state);
    }
    return *this;
}

BusSubscription::~BusSubscription() {
    close();
}

std::optional<DataState> BusSubscription::state(const Instrument& instrument) const {
    return m_state == nullptr ? std::nullopt : m_state->state(instrument);
}

BusSubscriptionStatistics BusSubscription::statistics() const {
    return m_state == nullptr ? BusSubscriptionStatistics() : m_state->statistics();
}

void BusSubscription::close() {
    if (m_state != nullptr)
        m_state->close();
}

} // namespace tivra
