#include "feed/FeedStream.h"

#include <utility>

#include <tp/Clock.h>

#include "feed/AnswerState.h"
#include "feed/FeedImpl.h"
#include "feed/FeedItem.h"
#include "feed/RecordData.h"
#include "feed/SubscriptionState.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"
#include "receive/LibraryTags.h"
#include "request/CommandClasses.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::Update;

[[nodiscard]] std::string_view symbolOf(const KVNAPI::Message& message) noexcept {
    return {message.symbol.buf, message.symbol.len};
}

[[nodiscard]] int sourceOf(const KVNAPI::Message& message) noexcept {
    return message.exchange != nullptr ? message.exchange->id : 0;
}

} // namespace

FeedStream::FeedStream(std::shared_ptr<FeedRegistry> registry, const FeedImpl& feed,
                       const MetaTokenMap& dictionary, std::string hub)
    : m_registry(std::move(registry))
    , m_feed(feed)
    , m_hub(std::move(hub))
    , m_fields(dictionary, m_registry->fields()) {
    m_registry->addStream(*this);
}

FeedStream::~FeedStream() {
    m_registry->removeStream(*this);
    connectionLost();
}

void FeedStream::deliver(const StreamMessage& incoming) {
    if (incoming.tag != 0) {
        deliverTagged(incoming);
        return;
    }
    FeedItem* const item = incoming.hasStatus ? nullptr : itemOf(incoming.message);
    if (item == nullptr) {
        m_registry->countUnwanted();
        return;
    }
    m_updates.store(m_updates.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    item->deliver(*this, incoming.message,
                  incoming.message.isRefresh ? Update::Kind::Refresh : Update::Kind::Update);
}

FeedItem* FeedStream::itemOf(const KVNAPI::Message& message) {
    const int source = sourceOf(message);
    const std::string_view symbol = symbolOf(message);
    FeedItem* const known = m_items.find(source, symbol);
    if (known != nullptr && !known->isGone())
        return known;
    std::shared_ptr<FeedItem> item = m_registry->findItem(source, symbol);
    if (item == nullptr)
        return nullptr;
    FeedItem* const found = item.get();
    m_items.insert(source, symbol, std::move(item));
    return found;
}

void FeedStream::deliverTagged(const StreamMessage& incoming) {
    const FeedRegistry::Target target = m_registry->targetOf(incoming.tag);
    if (const auto* const item = std::get_if<std::shared_ptr<FeedItem>>(&target))
        deliverTo(*item, incoming);
    else if (const auto* const answer = std::get_if<std::shared_ptr<AnswerState>>(&target))
        deliverTo(*answer, incoming);
    else if (const auto* const latecomer = std::get_if<FeedRegistry::Latecomer>(&target))
        deliverTo(*latecomer, incoming);
    else if (!(incoming.hasStatus && isUnsubscribeCommand(incoming.command)))
        m_registry->countLate();
}

void FeedStream::deliverTo(const std::shared_ptr<FeedItem>& item, const StreamMessage& incoming) {
    if (!incoming.hasStatus) {
        // Its updates will name it as this does.
        const FeedItem* const known = m_items.find(item->source(), item->symbol());
        if (known != item.get())
            m_items.insert(item->source(), item->symbol(), item);
        item->deliver(*this, incoming.message, Update::Kind::Image);
        return;
    }
    if (incoming.status >= 0) {
        if (m_items.find(item->source(), item->symbol()) != item.get())
            m_items.insert(item->source(), item->symbol(), item);
        item->finishImage(*this);
        return;
    }
    m_registry->forgetItem(*item);
    item->refuse(refusal("subscription of " + std::string(item->symbol()), incoming.status));
}

void FeedStream::deliverTo(const FeedRegistry::Latecomer& latecomer, const StreamMessage& incoming) {
    if (!incoming.hasStatus) {
        latecomer.item->deliverTo(*latecomer.subscription, *this, incoming.message);
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
    if (!incoming.hasStatus)
        answer->addRecord(RecordData::copyOf(incoming.message, m_fields));
    else if (incoming.status >= 0)
        answer->complete();
    else
        answer->fail(refusal(answer->what(), incoming.status));
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

void FeedStream::connectionLost() {
    if (m_registry->isDetached())
        return;
    m_items.forEach([this](FeedItem& item) { item.lose(*this); });
}

void FeedStream::connectionBegins() {
    m_fields.forgetMissing();
    m_items.forEach([](FeedItem& item) { item.recover(); });
}

} // namespace tivra_internal
