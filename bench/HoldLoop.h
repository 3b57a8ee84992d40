#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <feed/Subscription.h>

#include "dictionary/MetaTokenMap.h"
#include "feed/FeedImpl.h"
#include "feed/FeedRegistry.h"
#include "feed/FeedSender.h"
#include "feed/FeedStream.h"
#include "kvnparse/Message.h"
#include "receive/Queue.h"

namespace tivra_bench {

/// Delivers quotes of some symbols to subscriptions, in turn and without a hub: what a feed does with a
/// message once that is parsed.
class HoldLoop {
public:
    static constexpr int kSource = 100;

    HoldLoop(std::size_t symbols, const tivra::SubscriptionHandlers& handlers);
    ~HoldLoop();
    HoldLoop(const HoldLoop&) = delete;
    HoldLoop& operator=(const HoldLoop&) = delete;

    /// So many updates, the next one for the symbol after the last.
    void run(std::size_t updates);

private:
    /// A session that takes every request and brings nothing.
    class Sender final : public tivra_internal::FeedSender {
    public:
        int64_t nextTag() override { return ++m_tag; }
        bool send(tivra::Commands, const tivra::Instrument&, int64_t, int64_t) override { return true; }

    private:
        int64_t m_tag = 0;
    };

    void addField(int number, const char* name, const char* type);

    tivra_internal::MetaTokenMap m_dictionary;
    Sender m_sender;
    std::shared_ptr<tivra_internal::FeedRegistry> m_registry;
    std::unique_ptr<tivra_internal::FeedImpl> m_feed; ///< never opened
    tivra_internal::Queue m_queue{1, false, nullptr, 0};
    std::unique_ptr<tivra_internal::FeedStream> m_stream;
    std::vector<std::string> m_symbols;
    std::vector<std::shared_ptr<tivra_internal::SubscriptionState>> m_subscriptions;
    KVNAPI::Message m_message;
    std::size_t m_next = 0;
};

} // namespace tivra_bench
