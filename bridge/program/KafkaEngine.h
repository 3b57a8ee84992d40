#pragma once

#include "program/Engine.h"

namespace tivra_bus {

/// What checkEngine() and openEngine() promise, of kafka:// addresses. A program that was built without
/// the client library for it throws BusError.
void checkKafka(const EngineOptions& options);
[[nodiscard]] std::unique_ptr<Engine> openKafka(const EngineOptions& options, const std::string& name,
                                                unsigned partitions);

} // namespace tivra_bus
