#include "bus/BusEvents.h"

#include "Values.h"

namespace tivra_python {
namespace {

[[nodiscard]] Event eventFor(const tivra::Instrument& instrument, Event::Kind kind,
                             std::chrono::system_clock::time_point time) {
    Event event;
    event.kind = kind;
    event.source = instrument.source;
    event.symbol = instrument.symbol;
    event.received = toNanoseconds(time);
    return event;
}

} // namespace

Event eventOf(const tivra::BusUpdate& update, const BusFields& fields) {
    Event event = eventFor(update.instrument(), Event::kindOf(update.kind()), update.writtenAt());
    event.record = fields.recordOf(update);
    return event;
}

Event eventOf(const tivra::Instrument& instrument, const tivra::StateChange& change) {
    Event event = eventFor(instrument, Event::Kind::State, change.time);
    event.state = KeptState{change.from, change.to, std::string(change.cause), std::nullopt, change.time};
    return event;
}

Event eventOf(const tivra::Instrument& instrument, const tivra::BusGap& gap) {
    Event event = eventFor(instrument, Event::Kind::Gap, gap.to);
    event.gap = KeptGap{nameOf(gap.cause), gap.from, gap.to, gap.messages, gap.bytes};
    return event;
}

} // namespace tivra_python
