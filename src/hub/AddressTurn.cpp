#include "hub/AddressTurn.h"

#include <algorithm>
#include <utility>

namespace tivra_internal {

AddressTurn::AddressTurn(std::vector<std::string> addresses, const std::string& current)
    : m_addresses(std::move(addresses)) {
    const auto found = std::find(m_addresses.begin(), m_addresses.end(), current);
    if (found != m_addresses.end())
        m_at = static_cast<std::size_t>(found - m_addresses.begin());
}

void AddressTurn::begin(double now, double seconds) {
    if (!m_addresses.empty() && m_hasBegun && !m_wasReady)
        m_at = (m_at + 1) % m_addresses.size();
    m_left = m_addresses.empty() ? 0 : m_addresses.size() - 1;
    m_hasBegun = true;
    m_wasReady = false;
    m_end = now + seconds;
}

bool AddressTurn::advance() {
    if (m_left == 0)
        return false;
    --m_left;
    m_at = (m_at + 1) % m_addresses.size();
    return true;
}

const std::string& AddressTurn::address() const {
    static const std::string kNone;
    return m_addresses.empty() ? kNone : m_addresses[m_at];
}

double AddressTurn::share(double now) const {
    return (m_end - now) / static_cast<double>(m_left + 1);
}

} // namespace tivra_internal
