#include "feed/FeedStream.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include <tp/Clock.h>
#include <tp/eprintf.h>

#include "feed/AnswerState.h"
#include "feed/ClockTime.h"
#include "feed/FeedImpl.h"
#include "feed/FeedItem.h"
#include "feed/RecordData.h"
#include "feed/SubscriptionState.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"
#include "receive/LibraryTags.h"
#include "receive/Queue.h"
#include "request/CommandClasses.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::Update;

/// Its tag and its status.
constexpr int kPairsOfBareStatus = 2;
/// In bytes. What is subscribed by its name is far shorter, and for a pattern a hub may name symbols without
/// end, each as long as a frame.
constexpr std::size_t kLongestSymbol = 256;

[[nodiscard]] std::string_view symbolOf(const KVNAPI::Message& message) noexcept {
    return {message.symbol.buf, message.symbol.len};
}

[[nodiscard]] int sourceOf(const KVNAPI::Message& message) noexcept {
    return message.exchange != nullptr ? message.exchange->id : 0;
}

} // namespace

FeedStream::FeedStream(std::shared_ptr<FeedRegistry> registry, const FeedImpl& feed,
                       const MetaTokenMap& dictionary, std::string hub, const Queue& queue)
    : m_registry(std::move(registry))
    , m_feed(feed)
    , m_hub(std::move(hub))
    , m_queue(queue)
    , m_measures(m_registry->measures().ofHub(m_hub))
    , m_fields(dictionary, m_registry->fields())
    , m_times(m_measures, m_feed.options().latencySampling) {
    m_registry->callbacks().watch().add(m_slot);
    m_registry->addStream(*this);
}

FeedStream::~FeedStream() {
    m_registry->removeStream(*this);
    if (!m_registry->isDetached())
        m_items.forEach([this](FeedItem& item) { item.forget(*this); });
    m_registry->callbacks().watch().remove(m_slot);
}

double FeedStream::queueFill() const noexcept {
    return m_queue.getPctFull() / 100.0;
}

void FeedStream::deliver(const StreamMessage& incoming) {
    m_times.begin(incoming.frame);
    m_registry->hold().waitIfAsked();
    if (!incoming.hasStatus && symbolOf(incoming.message).size() > kLongestSymbol) {
        eprintf(EPF_WARN, "%s: a symbol of %zu bytes is longer than any may be; its message is ignored",
                m_hub.c_str(), symbolOf(incoming.message).size());
        m_registry->countUnwanted();
        return;
    }
    if (incoming.tag != 0) {
        deliverTagged(incoming);
        return;
    }
    const ItemTable::Slot* const slot = incoming.hasStatus ? nullptr : slotOf(incoming.message);
    if (slot == nullptr) {
        m_registry->countUnwanted();
        return;
    }
    m_updates.store(m_updates.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    const Update::Kind kind = incoming.message.isRefresh ? Update::Kind::Refresh : Update::Kind::Update;
    slot->forEach([&](FeedItem& item) {
        const CallbackSlot::Scope watched(m_slot, item.tag());
        item.deliver(*this, incoming, kind);
    });
}

const ItemTable::Slot* FeedStream::slotOf(const KVNAPI::Message& message) {
    const int source = sourceOf(message);
    const std::string_view symbol = symbolOf(message);
    const ItemTable::Slot* const known = m_items.find(source, symbol);
    if (known != nullptr && !known->isOutdated())
        return known;
    ItemTable::Items items = m_registry->findItems(source, symbol);
    if (items.empty())
        return nullptr;
    makeRoom();
    return &m_items.set(source, symbol, std::move(items));
}

/// A hub may name symbols without end for a pattern.
void FeedStream::makeRoom() {
    if (m_items.size() < m_roomFor)
        return;
    m_items.forgetMet();
    m_roomFor = std::max(kMostMet, 2 * m_items.size());
}

/// What the image of an item names its updates will name too. That of one symbol has no business with
/// another.
void FeedStream::meet(const std::shared_ptr<FeedItem>& item, const KVNAPI::Message& message) {
    // A pattern may cover it that had met it before there was no room.
    if (m_items.find(item->source(), item->symbol()) == nullptr)
        if (ItemTable::Items all = m_registry->findItems(item->source(), item->symbol()); !all.empty())
            m_items.set(item->source(), item->symbol(), std::move(all));
    m_items.add(item->source(), item->symbol(), item);
    if (item->kind() != ItemKind::Pattern)
        return;
    makeRoom();
    m_items.add(sourceOf(message), symbolOf(message), item);
}

void FeedStream::deliverTagged(const StreamMessage& incoming) {
    const FeedRegistry::Target target = m_registry->targetOf(incoming.tag);
    if (const auto* const item = std::get_if<std::shared_ptr<FeedItem>>(&target))
        deliverTo(*item, incoming);
    else if (const auto* const answer = std::get_if<std::shared_ptr<AnswerState>>(&target))
        deliverTo(*answer, incoming);
    else if (const auto* const latecomer =
                 std::get_if<std::shared_ptr<const FeedRegistry::Latecomer>>(&target))
        deliverTo(**latecomer, incoming);
    else if (!(incoming.hasStatus && isUnsubscribeCommand(incoming.command)))
        m_registry->countLate();
}

void FeedStream::deliverTo(const std::shared_ptr<FeedItem>& item, const StreamMessage& incoming) {
    const CallbackSlot::Scope watched(m_slot, incoming.tag);
    if (!incoming.hasStatus) {
        meet(item, incoming.message);
        item->deliver(*this, incoming, Update::Kind::Image);
        return;
    }
    if (incoming.status >= 0) {
        // It may have no image, and is to hear of a loss all the same.
        m_items.add(item->source(), item->symbol(), item);
        item->finishImage(*this);
        return;
    }
    m_registry->refuse(item, incoming.tag,
                       refusal("subscription of " + std::string(item->symbol()), incoming.status));
}

void FeedStream::deliverTo(const FeedRegistry::Latecomer& latecomer, const StreamMessage& incoming) {
    const CallbackSlot::Scope watched(m_slot, latecomer.item->tag());
    if (!incoming.hasStatus) {
        latecomer.item->deliverTo(*latecomer.subscription, *this, incoming);
        return;
    }
    m_registry->forgetTag(incoming.tag);
    if (incoming.status >= 0)
        latecomer.item->finishImageOf(*latecomer.subscription);
    else if (incoming.status != kStatusConnectionLost) // else the next image comes to all
        latecomer.item->refuse(*latecomer.subscription,
                               refusal("image of " + std::string(latecomer.item->symbol()), incoming.status));
}

void FeedStream::deliverTo(const std::shared_ptr<AnswerState>& answer, const StreamMessage& incoming) {
    // The last message of some lists has the last record beside the status.
    if (!incoming.hasStatus || incoming.message.pairCount() > kPairsOfBareStatus)
        answer->addRecord(RecordData::copyOf(incoming.message, m_fields));
    if (!incoming.hasStatus)
        return;
    if (incoming.status >= 0)
        answer->complete();
    else
        answer->refuse(refusal(answer->what(), incoming.status));
}

void FeedStream::hubRefused(int64_t tag, int64_t status) {
    const FeedRegistry::Target target = m_registry->targetOf(tag);
    if (const auto* const answer = std::get_if<std::shared_ptr<AnswerState>>(&target))
        (*answer)->addFailure(refusal((*answer)->what(), status));
    // Nobody is to wait for what it brings any more.
    if (const auto* const item = std::get_if<std::shared_ptr<FeedItem>>(&target);
        item != nullptr && status != kStatusConnectionLost) {
        const CallbackSlot::Scope watched(m_slot, tag);
        (*item)->forget(*this);
    }
}

void FeedStream::hubAnswered(int64_t tag) {
    const FeedRegistry::Target target = m_registry->targetOf(tag);
    const auto* const item = std::get_if<std::shared_ptr<FeedItem>>(&target);
    if (item == nullptr || (*item)->kind() == ItemKind::Symbol)
        return;
    const CallbackSlot::Scope watched(m_slot, tag);
    m_items.add((*item)->source(), (*item)->symbol(), *item);
    (*item)->answered(*this);
}

Error FeedStream::refusal(const std::string& what, int64_t status) const {
    const auto code = static_cast<int>(status);
    if (status == kStatusConnectionLost)
        return Error({Error::Code::ConnectionLost, Error::Phase::Answer,
                      "the hub was lost before its answer to the " + what, "ask again", m_hub, code,
                      m_feed.statusName(code), 0});
    return Error({Error::Code::Refused, Error::Phase::Answer, "the hub has refused the " + what, "", m_hub,
                  code, m_feed.statusName(code), 0});
}

void FeedStream::connectionLost(double heard) {
    const auto conflatedSince = std::exchange(m_conflatedSince, std::nullopt);
    if (m_registry->isDetached())
        return;
    if (conflatedSince && *conflatedSince < heard) // the gap of the loss begins only then
        tellOfGap({tivra::Gap::Cause::Conflation, toTimePoint(onTheWall(*conflatedSince)),
                   toTimePoint(onTheWall(heard)), std::nullopt, std::nullopt});
    m_items.forEach([this, heard](FeedItem& item) {
        const CallbackSlot::Scope watched(m_slot, item.tag());
        item.lose(*this, heard);
    });
}

void FeedStream::connectionBegins() {
    m_fields.forgetMissing();
    m_items.forEach([this](FeedItem& item) {
        const CallbackSlot::Scope watched(m_slot, item.tag());
        item.recover();
    });
}

void FeedStream::hubDropped(std::uint64_t bytes, double since) {
    tellOfGap({tivra::Gap::Cause::Overrun, toTimePoint(onTheWall(since)), wallTime(), std::nullopt, bytes});
}

void FeedStream::conflationChanged(bool isConflating, double since) {
    if (isConflating)
        m_conflatedSince = since;
    else if (const auto begin = std::exchange(m_conflatedSince, std::nullopt))
        tellOfGap({tivra::Gap::Cause::Conflation, toTimePoint(onTheWall(*begin)), wallTime(), std::nullopt,
                   std::nullopt});
}

void FeedStream::tellOfGap(const tivra::Gap& gap) {
    // An item that several symbols belong to hears of it once.
    std::unordered_set<const FeedItem*> told;
    m_items.forEach([&](FeedItem& item) {
        const CallbackSlot::Scope watched(m_slot, item.tag());
        if (item.kind() != ItemKind::Pattern || told.insert(&item).second)
            item.skip(*this, gap);
    });
}

} // namespace tivra_internal
