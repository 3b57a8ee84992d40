#pragma once

#include "bus/EngineOptions.h"
#include "reader/BusOptions.h"
#include "reader/BusSource.h"

#include <functional>
#include <memory>

namespace tivra_bus {

/// Connects to an engine, and waits for it. It throws BusError when none can be reached.
using SourceOpener = std::function<std::unique_ptr<BusSource>()>;

/// What a reader's options say of its engine.
[[nodiscard]] EngineOptions engineOptionsOf(const tivra::BusOptions& options);

/// What connects to an engine of NATS. @throws BusError for options that can't be meant
[[nodiscard]] SourceOpener natsOpener(const tivra::BusOptions& options);
/// What connects to brokers of Kafka. @throws BusError for options that can't be meant
[[nodiscard]] SourceOpener kafkaOpener(const tivra::BusOptions& options);

/// That of the URL. @throws BusError for options that can't be meant
[[nodiscard]] SourceOpener openerOf(const tivra::BusOptions& options);

} // namespace tivra_bus
