#include <feed/Feed.h>

#include <iterator>
#include <utility>

#include "feed/AnswerState.h"
#include "feed/FeedImpl.h"
#include "feed/FeedMetrics.h"
#include "feed/GroupState.h"
#include "feed/LeaveAlive.h"
#include "feed/SubscriptionState.h"

namespace tivra {

using tivra_internal::ItemKind;

namespace {

[[nodiscard]] double secondsOf(std::chrono::milliseconds time) {
    return std::chrono::duration<double>(time).count();
}

} // namespace

Feed::Feed(std::shared_ptr<tivra_internal::FeedImpl> impl) noexcept : m_impl(std::move(impl)) {}

Feed::Feed(Feed&&) noexcept = default;

Feed& Feed::operator=(Feed&& other) noexcept {
    const Feed old(std::exchange(m_impl, std::exchange(other.m_impl, nullptr)));
    return *this;
}

Feed::~Feed() {
    if (m_impl == nullptr)
        return;
    close();
    // In a child of the process that opened it there is no thread to wait for: what is inside stays.
    if (m_impl->registry().process().isForeign())
        tivra_internal::leaveAlive(m_impl);
}

Feed Feed::open(FeedOptions options) {
    return tivra_internal::FeedImpl::open(std::move(options));
}

Result<Feed> Feed::tryOpen(FeedOptions options) {
    try {
        return open(std::move(options));
    } catch (const Error& error) {
        return error;
    }
}

tivra_internal::FeedImpl& Feed::impl() const {
    if (m_impl == nullptr)
        throw Error({Error::Code::Closed, Error::Phase::Request, "this object is no feed any more",
                     "it was moved from", "", 0, "", 0});
    if (m_impl->registry().process().refuses("a call of a feed"))
        throw Error({Error::Code::Closed, Error::Phase::Request,
                     "the feed belongs to the parent of this process", "open one in the child", "", 0, "",
                     0});
    return *m_impl;
}

FeedState Feed::state() const {
    if (m_impl == nullptr || m_impl->registry().process().isForeign())
        return FeedState::Closed;
    return m_impl->state();
}

std::vector<HubStatus> Feed::hubs() const {
    return impl().hubs().all();
}

void Feed::reconnectNow() {
    impl().reconnectNow();
}

Field Feed::field(std::string_view name) const {
    tivra_internal::FeedRegistry& registry = impl().registry();
    // While hubs are away nobody can tell, but for what has been asked before.
    if (const tivra_internal::FieldEntry* const known = registry.fields()->find(name))
        return tivra_internal::FieldTable::fieldOf(*known);
    if (registry.isDetached())
        throw Error({Error::Code::Closed, Error::Phase::Request, "the feed is closed", "", "", 0, "", 0});
    if (!registry.typeOfField(name))
        throw Error({Error::Code::UnknownField, Error::Phase::Request,
                     "no hub has a field \"" + std::string(name) + "\"", "see the hub's dictionary", "", 0,
                     "", 0});
    return tivra_internal::FieldTable::fieldOf(registry.fields()->intern(name));
}

std::optional<Value::Type> Feed::typeOf(std::string_view name) const {
    return impl().registry().typeOfField(name);
}

Answer Feed::ask(Commands command, const char* what, const Instrument& instrument) {
    tivra_internal::FeedImpl& feed = impl();
    return feed.registry()
        .request(command, what, instrument, secondsOf(feed.options().requestTimeout))
        ->handle();
}

Answer Feed::query(const Instrument& instrument) {
    return ask(QUERYSNAP, "query", instrument);
}

std::vector<Answer> Feed::queryMany(const std::vector<Instrument>& instruments) {
    std::vector<Answer> answers;
    answers.reserve(instruments.size());
    for (const Instrument& instrument : instruments)
        answers.push_back(query(instrument));
    return answers;
}

Answer Feed::queryDepth(const Instrument& instrument) {
    return ask(QUERYDEPTH, "order book query", instrument);
}

Answer Feed::queryWildcard(int source, const std::string& pattern) {
    return ask(QUERYWILDCARD, "pattern query", {source, pattern});
}

Answer Feed::queryXref(const Instrument& instrument) {
    return ask(QUERYXREF, "cross-reference query", instrument);
}

Answer Feed::list(ListOf what) {
    struct Row {
        Commands command;
        const char* name;
    };
    constexpr Row kRows[] = {{LISTAVAILABLETOKENS, "list of the fields"},
                             {LISTENUMERATION, "list of the enumerations"},
                             {LISTEXTENDEDEXCHANGEINFO, "list of the sources"},
                             {LISTUSERPERMISSION, "list of the permissions"},
                             {LISTSUBSCRIBEDSYMBOLS, "list of the subscribed symbols"},
                             {GETACTIVECLIENTSINFO, "list of the clients"},
                             {GETALLUSERS, "list of the users"},
                             {LISTADMINISTRATIONINFO, "list of the administration information"}};
    const auto row = static_cast<std::size_t>(what);
    if (row >= std::size(kRows))
        throw Error(
            {Error::Code::InvalidArgument, Error::Phase::Request, "there is no such list", "", "", 0, "", 0});
    tivra_internal::FeedImpl& feed = impl();
    return feed.registry()
        .request(kRows[row].command, kRows[row].name, secondsOf(feed.options().requestTimeout))
        ->handle();
}

Enumerations Feed::enumerations() {
    Answer fields = list(ListOf::Fields);
    Answer values = list(ListOf::Enumerations);
    const Snapshot names = fields.get();
    return {names, values.get()};
}

Subscription Feed::subscribe(const Instrument& instrument, UpdateCallback onUpdate) {
    SubscriptionHandlers handlers;
    handlers.onUpdate = std::move(onUpdate);
    return subscribe(instrument, std::move(handlers));
}

Subscription Feed::subscribe(const Instrument& instrument, SubscriptionHandlers handlers) {
    return enter(ItemKind::Symbol, instrument, std::move(handlers));
}

Subscription Feed::subscribeDepth(const Instrument& instrument, SubscriptionHandlers handlers) {
    return enter(ItemKind::OrderBook, instrument, std::move(handlers));
}

Subscription Feed::subscribeWildcard(int source, const std::string& pattern, SubscriptionHandlers handlers) {
    return enter(ItemKind::Pattern, {source, pattern}, std::move(handlers));
}

Subscription Feed::enter(ItemKind kind, const Instrument& instrument, SubscriptionHandlers handlers) {
    return impl()
        .registry()
        .subscribe(kind, instrument, std::make_shared<const SubscriptionHandlers>(std::move(handlers)))
        ->handle();
}

SubscriptionGroup Feed::makeGroup(SubscriptionHandlers handlers) {
    return SubscriptionGroup(std::make_shared<tivra_internal::GroupState>(
        impl().registry().shared_from_this(), std::move(handlers)));
}

SubscriptionGroup Feed::subscribeAll(const std::vector<Instrument>& instruments,
                                     SubscriptionHandlers handlers) {
    SubscriptionGroup group = makeGroup(std::move(handlers));
    group.add(instruments);
    return group;
}

Subscription Feed::subscribe(const Instrument& instrument, const UpdateQueue& queue) {
    return subscribe(instrument, queue.handlers());
}

Subscription Feed::subscribe(const Instrument& instrument, const Board& board) {
    return subscribe(instrument, board.handlers());
}

FeedStatistics Feed::statistics() const {
    if (m_impl == nullptr || m_impl->registry().process().isForeign())
        return FeedStatistics();
    return m_impl->registry().statistics();
}

std::string Feed::statisticsText(const StatisticsLabels& labels) const {
    return tivra_internal::feedJson(statistics(), labels);
}

std::string Feed::openMetrics(const StatisticsLabels& labels) const {
    return tivra_internal::feedOpenMetrics(statistics(), labels);
}

bool Feed::close(std::chrono::milliseconds deadline) {
    return m_impl == nullptr || m_impl->close(deadline);
}

bool Feed::close() {
    return m_impl == nullptr || m_impl->close(m_impl->options().closeTimeout);
}

} // namespace tivra
