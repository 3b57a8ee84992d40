#include "Event.h"

#include <feed/Update.h>

#include "Values.h"

namespace tivra_python {
namespace {

[[nodiscard]] KeptState keep(const tivra::StateChange& change) {
    KeptState kept{change.from, change.to, std::string(change.cause), std::nullopt, change.time};
    if (change.error != nullptr)
        kept.error = *change.error;
    return kept;
}

[[nodiscard]] Event::Kind kindOf(tivra::Update::Kind kind) noexcept {
    switch (kind) {
    case tivra::Update::Kind::Image:
        return Event::Kind::Image;
    case tivra::Update::Kind::Refresh:
        return Event::Kind::Refresh;
    case tivra::Update::Kind::Update:
        break;
    }
    return Event::Kind::Update;
}

} // namespace

Event Event::ofQueue(const tivra::QueueEvent& event) {
    Event kept;
    kept.kind = event.kind;
    kept.source = event.source;
    kept.symbol = event.symbol;
    kept.received = toNanoseconds(event.time);
    kept.record = event.record;
    if (event.state != nullptr)
        kept.state = keep(*event.state);
    if (event.gap != nullptr)
        kept.gap = *event.gap;
    kept.dropped = event.dropped;
    kept.merged = event.merged;
    return kept;
}

Event Event::ofUpdate(const tivra::Update& update) {
    Event kept;
    kept.kind = kindOf(update.kind());
    kept.source = update.source();
    kept.symbol = update.symbol();
    kept.received = toNanoseconds(update.receivedAt());
    kept.record = update.copy();
    return kept;
}

Event Event::ofState(const tivra::SubscriptionView& subscription, const tivra::StateChange& change) {
    Event kept;
    kept.kind = Kind::State;
    kept.source = subscription.source();
    kept.symbol = subscription.symbol();
    kept.received = toNanoseconds(change.time);
    kept.state = keep(change);
    return kept;
}

Event Event::ofGap(const tivra::SubscriptionView& subscription, const tivra::Gap& gap) {
    Event kept;
    kept.kind = Kind::Gap;
    kept.source = subscription.source();
    kept.symbol = subscription.symbol();
    kept.received = toNanoseconds(gap.to);
    kept.gap = gap;
    return kept;
}

} // namespace tivra_python
