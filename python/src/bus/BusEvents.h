#pragma once

#include <feed/Instrument.h>
#include <feed/Subscription.h>
#include <reader/BusGap.h>
#include <reader/BusUpdate.h>

#include "Event.h"
#include "bus/BusFields.h"

namespace tivra_python {

/// What a reader of the bus hands out, as events to keep.
[[nodiscard]] Event eventOf(const tivra::BusUpdate& update, const BusFields& fields);
[[nodiscard]] Event eventOf(const tivra::Instrument& instrument, const tivra::StateChange& change);
[[nodiscard]] Event eventOf(const tivra::Instrument& instrument, const tivra::BusGap& gap);

} // namespace tivra_python
