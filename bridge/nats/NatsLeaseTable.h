#pragma once

#include "bus/LeaseTable.h"
#include "nats/NatsConnection.h"

#include <map>

namespace tivra_bus {

/// The table of leases in the bucket TIVRA_LEASES. What has changed is read by its place in the bucket's
/// stream: a consumer for each reading would be a decision of all servers of a cluster.
class NatsLeaseTable : public LeaseTable {
public:
    /// The connection has to stay.
    explicit NatsLeaseTable(const NatsConnection& connection) : m_connection(connection) {}

    [[nodiscard]] std::vector<LeaseEntry> entries() override;
    [[nodiscard]] std::optional<std::uint64_t> write(const std::string& key, const std::string& value,
                                                     std::uint64_t revision) override;
    void remove(const std::string& key) override;

private:
    struct Entry {
        std::string value;
        std::uint64_t revision = 0;
    };

    /// Takes the first change from m_next on. @return whether there was one. @throws BusError
    [[nodiscard]] bool readNext();
    /// What is known may be of a bucket that was made anew, or that a server has lost the end of.
    void forget();

    const NatsConnection& m_connection;
    std::map<std::string, Entry> m_entries;
    std::uint64_t m_next = 1; ///< place of the first message that hasn't been read
    unsigned m_readings = 0;  ///< since all was read
};

} // namespace tivra_bus
