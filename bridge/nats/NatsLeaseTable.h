#pragma once

#include "bus/LeaseTable.h"
#include "nats/NatsConnection.h"

namespace tivra_bus {

/// The table of leases in the bucket TIVRA_LEASES.
class NatsLeaseTable : public LeaseTable {
public:
    /// The connection has to stay.
    explicit NatsLeaseTable(const NatsConnection& connection) : m_connection(connection) {}

    [[nodiscard]] std::vector<LeaseEntry> entries() override;
    [[nodiscard]] std::optional<std::uint64_t> write(const std::string& key, const std::string& value,
                                                     std::uint64_t revision) override;
    void remove(const std::string& key) override;

private:
    [[nodiscard]] kvStore* bucket();

    const NatsConnection& m_connection;
    NatsBucket m_bucket;
};

} // namespace tivra_bus
