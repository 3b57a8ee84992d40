#include "program/KafkaEngine.h"

#include "kafka/KafkaLeaseTable.h"
#include "kafka/KafkaPublisher.h"
#include "share/LeaseShare.h"

#include <fmt/format.h>

#include <random>

namespace tivra_bus {

namespace {

/// Of this process, also when a name comes again.
std::string writerOf(const std::string& name) {
    std::random_device chance;
    return fmt::format("{}/{:08x}{:08x}", name, chance(), chance());
}

class KafkaEngine : public Engine {
public:
    KafkaEngine(const KafkaAddress& address, const std::string& name, unsigned partitions)
        : KafkaEngine(address, name, partitions, writerOf(name)) {}

    [[nodiscard]] BusPublisher& publisher() override { return m_publisher; }
    [[nodiscard]] PartitionShare& share() override { return m_share; }

private:
    KafkaEngine(const KafkaAddress& address, const std::string& name, unsigned partitions,
                const std::string& writer)
        : m_publisher(address, writer), m_leases(address, writer), m_share(m_leases, name, partitions) {}

    KafkaPublisher m_publisher;
    KafkaLeaseTable m_leases;
    LeaseShare m_share;
};

} // namespace

void checkKafka(const EngineOptions& options) {
    (void)kafkaAddressOf(options);
}

std::unique_ptr<Engine> openKafka(const EngineOptions& options, const std::string& name,
                                  unsigned partitions) {
    return std::make_unique<KafkaEngine>(kafkaAddressOf(options), name, partitions);
}

} // namespace tivra_bus
