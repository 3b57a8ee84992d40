#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tivra_internal {

/// Which of the addresses of a host's name is dialled, and for how long: one dial goes through all of them,
/// and each has its share of the time that is left. A dial begins with the one by which the hub was ready,
/// and with the next one where none was. @thread hub
class AddressTurn {
public:
    /// @param addresses  in the order in which they are tried; one alone is always dialled
    /// @param current    where the first dial begins; in doubt with the first
    AddressTurn(std::vector<std::string> addresses, const std::string& current);

    /// A dial begins, by the monotonic clock, and may take so many seconds.
    void begin(double now, double seconds);
    /// Goes on to the next address; false when all have had their turn.
    [[nodiscard]] bool advance();
    /// No further address is tried in this dial.
    void end() { m_left = 0; }
    /// The hub was ready at this address: the next dial begins with it.
    void noteReady() { m_wasReady = true; }

    /// To be dialled; empty when the host has no name.
    [[nodiscard]] const std::string& address() const;
    /// How long it may take.
    [[nodiscard]] double share(double now) const;
    [[nodiscard]] bool isLast() const { return m_left == 0; }
    [[nodiscard]] std::size_t count() const { return m_addresses.size(); }

private:
    const std::vector<std::string> m_addresses;
    std::size_t m_at = 0;
    std::size_t m_left = 0; ///< after this one
    bool m_hasBegun = false;
    bool m_wasReady = false;
    double m_end = 0.0;
};

} // namespace tivra_internal
