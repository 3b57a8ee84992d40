#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <feed/Feed.h>
#include <tp/Mutex.h>

#include "StreamSink.h"

namespace tivra_python {

/// The subscriptions of one reader: symbols by name, patterns and order books. @thread any, without the
/// interpreter's lock
class Stream {
public:
    Stream(std::shared_ptr<tivra::Feed> feed, StreamSink::Options options);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    [[nodiscard]] StreamSink& sink() const noexcept { return *m_sink; }

    /// @throws tivra::Error as SubscriptionGroup::add. @return how many are new
    std::size_t add(const std::vector<tivra::Instrument>& instruments);
    std::size_t remove(const std::vector<tivra::Instrument>& instruments);
    void addWildcard(int source, const std::string& pattern) TP_EXCLUDES(m_mutex);
    void addDepth(const tivra::Instrument& instrument) TP_EXCLUDES(m_mutex);
    /// Ends all of them; what waits can still be read.
    void close() TP_EXCLUDES(m_mutex);

    /// Of a symbol, a pattern or an order book that is subscribed here.
    [[nodiscard]] std::optional<tivra::DataState> state(const tivra::Instrument& instrument)
        TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::optional<tivra::Error> error(const tivra::Instrument& instrument) TP_EXCLUDES(m_mutex);
    /// When the last update came, of a symbol that is subscribed here and had one.
    [[nodiscard]] std::optional<std::chrono::system_clock::time_point>
    lastUpdate(const tivra::Instrument& instrument) TP_EXCLUDES(m_mutex);
    [[nodiscard]] tivra::GroupStatistics statistics() TP_EXCLUDES(m_mutex);
    [[nodiscard]] std::vector<tivra::Instrument> instruments() TP_EXCLUDES(m_mutex);

private:
    [[nodiscard]] const tivra::Subscription* find(const tivra::Instrument& instrument) TP_REQUIRES(m_mutex);

    const std::shared_ptr<tivra::Feed> m_feed;
    const std::shared_ptr<StreamSink> m_sink;
    tivra::SubscriptionGroup m_group;
    tp::Mutex m_mutex;
    /// Patterns and order books.
    std::vector<tivra::Subscription> m_others TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_python
