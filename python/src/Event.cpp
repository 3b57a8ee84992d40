#include "Event.h"

#include <array>

#include "Values.h"

namespace tivra_python {
namespace {

[[nodiscard]] KeptState keep(const tivra::StateChange& change) {
    KeptState kept{change.from, change.to, std::string(change.cause), std::nullopt, change.time};
    if (change.error != nullptr)
        kept.error = *change.error;
    return kept;
}

/// In the order of the enumerators.
constexpr std::array<const char*, 4> kCauseNames{"loss", "withdrawal", "overrun", "conflation"};

[[nodiscard]] KeptGap keep(const tivra::Gap& gap) {
    return {kCauseNames.at(static_cast<std::size_t>(gap.cause)), gap.from, gap.to, gap.messages, gap.bytes};
}

} // namespace

Event::Kind Event::kindOf(tivra::Update::Kind kind) noexcept {
    switch (kind) {
    case tivra::Update::Kind::Image:
        return Kind::Image;
    case tivra::Update::Kind::Refresh:
        return Kind::Refresh;
    case tivra::Update::Kind::Update:
        break;
    }
    return Kind::Update;
}

Event Event::ofQueue(const tivra::QueueEvent& event) {
    Event kept;
    kept.kind = event.kind;
    kept.subscription = event.subscription;
    kept.source = event.source;
    kept.symbol = event.symbol;
    kept.received = toNanoseconds(event.time);
    kept.record = event.record;
    if (event.state != nullptr)
        kept.state = keep(*event.state);
    if (event.gap != nullptr)
        kept.gap = keep(*event.gap);
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
    kept.gap = keep(gap);
    return kept;
}

} // namespace tivra_python
