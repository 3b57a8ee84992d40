#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <feed/Feed.h>
#include <tp/Mutex.h>

#include "Stream.h"

namespace tivra_python {

/// Subscriptions of a feed: symbols by name, patterns and order books. @thread any, without the interpreter's
/// lock
class FeedStream : public Stream {
public:
    FeedStream(std::shared_ptr<tivra::Feed> feed, StreamSink::Options options);
    ~FeedStream() override;

    std::size_t add(const std::vector<tivra::Instrument>& instruments) override;
    std::size_t remove(const std::vector<tivra::Instrument>& instruments) override;
    void addWildcard(int source, const std::string& pattern) override TP_EXCLUDES(m_mutex);
    void addDepth(const tivra::Instrument& instrument) override TP_EXCLUDES(m_mutex);
    void close() override TP_EXCLUDES(m_mutex);
    void end() override { sink().end(); }

    /// Of a symbol, a pattern or an order book that is subscribed here.
    [[nodiscard]] std::optional<tivra::DataState> state(const tivra::Instrument& instrument) override
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::optional<tivra::Error> error(const tivra::Instrument& instrument) override
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::optional<std::chrono::system_clock::time_point>
    lastUpdate(const tivra::Instrument& instrument) override TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::GroupStatistics statistics() override TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<tivra::Instrument> instruments() override TP_EXCLUDES(m_mutex);

private:
    [[nodiscard]] const tivra::Subscription* find(const tivra::Instrument& instrument) TP_REQUIRES(m_mutex);

    const std::shared_ptr<tivra::Feed> m_feed;
    tivra::SubscriptionGroup m_group;
    tp::Mutex m_mutex;
    /// Patterns and order books.
    std::vector<tivra::Subscription> m_others TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_python
