#include "FeedStream.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "FeedQueue.h"

namespace tivra_python {
namespace {

/// Before everything of the library, which is called under it.
constexpr tp::LockRank kLockStream{5, "FeedStream::m_mutex"};

void count(tivra::GroupStatistics& figures, const tivra::Subscription& subscription) {
    const tivra::SubscriptionStatistics own = subscription.statistics();
    ++figures.subscriptions;
    figures.updates += own.updates;
    figures.gaps += own.gaps;
    switch (subscription.state()) {
    case tivra::DataState::Pending:
        ++figures.pending;
        break;
    case tivra::DataState::Live:
        ++figures.live;
        break;
    case tivra::DataState::Stale:
        ++figures.stale;
        break;
    case tivra::DataState::Recovering:
        ++figures.recovering;
        break;
    case tivra::DataState::Refused:
        ++figures.refused;
        break;
    case tivra::DataState::Closed:
        break;
    }
}

[[nodiscard]] std::shared_ptr<StreamSink> makeSink(StreamSink::Options options) {
    auto queue = std::make_unique<FeedQueue>(options.queue);
    tivra::SubscriptionHandlers toQueue = queue->handlers();
    return std::make_shared<StreamSink>(std::move(options), std::move(queue), std::move(toQueue));
}

} // namespace

FeedStream::FeedStream(std::shared_ptr<tivra::Feed> feed, StreamSink::Options options)
    : Stream(makeSink(std::move(options)))
    , m_feed(std::move(feed))
    , m_group(m_feed->makeGroup(sink().handlers()))
    , m_mutex(kLockStream) {}

FeedStream::~FeedStream() = default;

std::size_t FeedStream::add(const std::vector<tivra::Instrument>& instruments) {
    return m_group.add(instruments);
}

std::size_t FeedStream::remove(const std::vector<tivra::Instrument>& instruments) {
    std::size_t removed = m_group.remove(instruments);
    std::vector<tivra::Subscription> ended;
    {
        const tp::MutexLock lock(m_mutex);
        const auto first = std::partition(
            m_others.begin(), m_others.end(), [&instruments](const tivra::Subscription& other) {
                const tivra::Instrument own(other.source(), std::string(other.symbol()));
                return std::find(instruments.begin(), instruments.end(), own) == instruments.end();
            });
        std::move(first, m_others.end(), std::back_inserter(ended));
        m_others.erase(first, m_others.end());
    }
    // Their destructors wait for callbacks, which may ask this.
    removed += ended.size();
    return removed;
}

void FeedStream::addWildcard(int source, const std::string& pattern) {
    tivra::Subscription made = m_feed->subscribeWildcard(source, pattern, sink().handlers());
    const tp::MutexLock lock(m_mutex);
    m_others.push_back(std::move(made));
}

void FeedStream::addDepth(const tivra::Instrument& instrument) {
    tivra::Subscription made = m_feed->subscribeDepth(instrument, sink().handlers());
    const tp::MutexLock lock(m_mutex);
    m_others.push_back(std::move(made));
}

void FeedStream::close() {
    m_group.close();
    std::vector<tivra::Subscription> ended;
    {
        const tp::MutexLock lock(m_mutex);
        ended.swap(m_others);
    }
    ended.clear();
    sink().end();
}

const tivra::Subscription* FeedStream::find(const tivra::Instrument& instrument) {
    for (const tivra::Subscription& other : m_others)
        if (other.source() == instrument.source && other.symbol() == instrument.symbol)
            return &other;
    return nullptr;
}

std::optional<tivra::DataState> FeedStream::state(const tivra::Instrument& instrument) {
    if (const auto state = m_group.state(instrument))
        return state;
    const tp::MutexLock lock(m_mutex);
    const tivra::Subscription* const other = find(instrument);
    return other != nullptr ? std::optional(other->state()) : std::nullopt;
}

std::optional<tivra::Error> FeedStream::error(const tivra::Instrument& instrument) {
    if (auto error = m_group.error(instrument))
        return error;
    const tp::MutexLock lock(m_mutex);
    const tivra::Subscription* const other = find(instrument);
    return other != nullptr ? other->error() : std::nullopt;
}

std::optional<std::chrono::system_clock::time_point>
FeedStream::lastUpdate(const tivra::Instrument& instrument) {
    std::optional<std::chrono::system_clock::time_point> last;
    m_group.forEach([&](const tivra::SubscriptionView& view) {
        if (view.source() == instrument.source && view.symbol() == instrument.symbol)
            last = view.statistics().lastUpdate;
    });
    if (last)
        return last;
    const tp::MutexLock lock(m_mutex);
    const tivra::Subscription* const other = find(instrument);
    return other != nullptr ? other->statistics().lastUpdate : std::nullopt;
}

tivra::GroupStatistics FeedStream::statistics() {
    tivra::GroupStatistics figures = m_group.statistics();
    const tp::MutexLock lock(m_mutex);
    for (const tivra::Subscription& other : m_others)
        count(figures, other);
    return figures;
}

std::vector<tivra::Instrument> FeedStream::instruments() {
    std::vector<tivra::Instrument> all;
    m_group.forEach([&all](const tivra::SubscriptionView& view) {
        all.emplace_back(view.source(), std::string(view.symbol()));
    });
    const tp::MutexLock lock(m_mutex);
    for (const tivra::Subscription& other : m_others)
        all.emplace_back(other.source(), std::string(other.symbol()));
    return all;
}

} // namespace tivra_python
