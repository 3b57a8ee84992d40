#pragma once

#include "ChildProcess.h"
#include "RoadHub.h"

namespace tivra_bench {

/// In the hub's process: a ZeroMQ PUSH socket that sends the frames of the load, each as a message.
void servePush(const RoadLoad& load, const ChildProcess::Ends& parent);

} // namespace tivra_bench
