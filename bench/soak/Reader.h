#pragma once

#include <memory>
#include <string>
#include <vector>

#include <feed/Feed.h>
#include <feed/UpdateQueue.h>

#include "soak/Ledger.h"

namespace tivra_soak {

/// A feed that has all symbols subscribed, and keeps a ledger of what it hears.
class Reader {
public:
    Reader(std::string name, tivra::FeedOptions options, std::size_t symbols)
        : m_ledger(std::move(name), symbols), m_feed(tivra::Feed::open(std::move(options))) {}
    virtual ~Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    [[nodiscard]] const Ledger& ledger() const { return m_ledger; }
    [[nodiscard]] const tivra::Feed& feed() const { return m_feed; }
    /// From now on it reads as fast as it can.
    virtual void hurry() = 0;

protected:
    void subscribeAll(const tivra::SubscriptionHandlers& handlers, std::size_t symbols);
    /// The value that counts up; -1 when there is none.
    template<class Source>
    [[nodiscard]] std::int32_t valueOf(const Source& source) const {
        return static_cast<std::int32_t>(source.template get<double>(m_bid).value_or(-1.0));
    }
    Ledger m_ledger;

private:
    tivra::Feed m_feed;
    const tivra::Field m_bid = m_feed.field("BID");
    tivra::SubscriptionGroup m_group;
};

/// Reads in callbacks. With `rests` it sleeps a tenth of a second in one of them now and then, which holds
/// its hubs up.
[[nodiscard]] std::unique_ptr<Reader> callbackReader(const tivra::FeedOptions& options, std::size_t symbols,
                                                     bool rests);

/// Reads a queue with a thread of its own, and rests between handfuls of events.
[[nodiscard]] std::unique_ptr<Reader> queueReader(const tivra::FeedOptions& options, std::size_t symbols,
                                                  tivra::QueuePolicy policy);

} // namespace tivra_soak
