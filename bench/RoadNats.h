#pragma once

#include "ChildProcess.h"
#include "RoadHub.h"

namespace tivra_bench {

/// In the hub's process: a NATS server in a process of its own, and a publisher of the frames of the load,
/// each as a message, once for each byte of the parent.
void servePublisher(const RoadLoad& load, const ChildProcess::Ends& parent);

} // namespace tivra_bench
