#include "program/Engine.h"

#include "nats/NatsConnection.h"
#include "nats/NatsLeaseTable.h"
#include "nats/NatsPublisher.h"
#include "program/KafkaEngine.h"
#include "share/LeaseShare.h"

namespace tivra_bus {

namespace {

bool isKafka(const EngineOptions& options) {
    return options.url.starts_with("kafka://");
}

class NatsEngine : public Engine {
public:
    NatsEngine(const NatsAddress& address, const std::string& name, unsigned partitions)
        : m_connection(address)
        , m_publisher(m_connection, std::chrono::milliseconds(address.answerMilliseconds))
        , m_leases(m_connection)
        , m_share(m_leases, name, partitions) {}

    [[nodiscard]] BusPublisher& publisher() override { return m_publisher; }
    [[nodiscard]] PartitionShare& share() override { return m_share; }

private:
    NatsConnection m_connection;
    NatsPublisher m_publisher;
    NatsLeaseTable m_leases;
    LeaseShare m_share;
};

} // namespace

void checkEngine(const EngineOptions& options) {
    if (isKafka(options))
        checkKafka(options);
    else
        (void)natsAddressOf(options);
}

std::unique_ptr<Engine> openEngine(const EngineOptions& options, const std::string& name,
                                   unsigned partitions) {
    if (isKafka(options))
        return openKafka(options, name, partitions);
    return std::make_unique<NatsEngine>(natsAddressOf(options), name, partitions);
}

} // namespace tivra_bus
