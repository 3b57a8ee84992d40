#pragma once

#include "nats/NatsConnection.h"
#include "reader/BusSource.h"

#include <memory>

namespace tivra_bus {

/// A consumer of its own on one stream, without acknowledgements, which the server holds back by flow
/// control. Who made it starts another one when its messages aren't in order or stop; the server forgets this
/// one by itself.
class NatsConsumer : public BusConsumer {
public:
    /// @throws BusError
    NatsConsumer(const NatsConnection& connection, unsigned partition, const StreamStart& start,
                 BusSource::OnMessage onMessage);
    ~NatsConsumer() override;

    [[nodiscard]] std::uint64_t behind() const override { return m_behind; }

private:
    /// What the client library's thread uses, for as long as it does.
    struct Receiver {
        BusSource::OnMessage onMessage;
    };

    static void onMessage(natsConnection* connection, natsSubscription*, natsMsg* message, void* receiver);
    static void onEnd(void* receiver);

    NatsSubscription m_subscription;
    std::uint64_t m_behind = 0;
};

} // namespace tivra_bus
