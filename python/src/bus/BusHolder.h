#pragma once

#include "FeedHolder.h"
#include "bus/BusConnection.h"

namespace tivra_python {

/// A connection to the bus, of Python. Its subscriptions share it.
using BusHolder = Unlocked<BusConnection>;

} // namespace tivra_python
