#include "program/KafkaEngine.h"

#include "kafka/KafkaPublisher.h"
#include "kafka/KafkaShare.h"

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
        : m_publisher(address, writerOf(name)), m_share(address, name, partitions) {}

    [[nodiscard]] BusPublisher& publisher() override { return m_publisher; }
    [[nodiscard]] PartitionShare& share() override { return m_share; }

private:
    KafkaPublisher m_publisher;
    KafkaShare m_share;
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
