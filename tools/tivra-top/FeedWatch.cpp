#include "FeedWatch.h"

#include "ExitCode.h"

#include "common/Printable.h"

#include <feed/Log.h>
#include <feed/Opening.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <numeric>

namespace tivra_top {

namespace {

/// More rows than this would be slow to sort several times a second.
constexpr std::size_t kMostInstruments = 20'000;
constexpr std::size_t kFieldsAsTheyCome = 6;
constexpr std::chrono::milliseconds kOpenSlice{100};

/// What is shown when nobody says which fields, as far as the hubs have them.
constexpr const char* kUsualFields[] = {"BID.SIZE", "BID", "ASK", "ASK.SIZE", "TRADE.PRICE", "TRADE.SIZE"};

tivra::FeedOptions feedOptions(const Options& options, const std::string& password,
                               const std::string& logFile) {
    tivra::FeedOptions feed;
    feed.hosts = options.hosts;
    feed.backups = options.backups;
    feed.user = options.user;
    feed.password = password;
    feed.logFile = logFile;
    feed.logDebug = options.isDebug;
    feed.openTimeout = std::chrono::milliseconds(static_cast<long>(options.timeoutSeconds * 1000));
    feed.latencySampling = 16;
    if (!options.hasCompression)
        feed.set("compression", "0");
    tivra_tools::applyTls(options.tls, feed);
    tivra_tools::applyAddresses(options.addresses, feed);
    if (options.readTimeout)
        feed.set("read_timeout", std::to_string(*options.readTimeout));
    // A hub that is down is something to look at.
    if (options.hosts.size() > 1 && options.backups.empty())
        feed.minHubs = 1;
    return feed;
}

tivra::Feed openFeed(tivra::FeedOptions options, Signals& signals) {
    tivra::Opening opening = tivra::Feed::openAsync(std::move(options));
    while (!opening.isReady()) {
        signals.wait(-1, kOpenSlice);
        if (signals.hasEnd())
            throw Failure(ExitCode::Interrupted, "interrupted before the connection stood");
    }
    return opening.get();
}

std::string textOf(const tivra::Value& value) {
    if (value.type() == tivra::Value::Type::Double)
        return fmt::format("{}", value.as<double>());
    if (value.type() != tivra::Value::Type::Time)
        return tivra_tools::printable(value.as<std::string>());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(value.as<tivra::TimePoint>());
    return fmt::format("{:%H:%M:%S}", fmt::gmtime(std::chrono::system_clock::to_time_t(seconds)));
}

Cell cellOf(const tivra::Value& value) {
    Cell cell{textOf(value), std::nullopt, 0};
    if (value.type() == tivra::Value::Type::Double || value.type() == tivra::Value::Type::Integer)
        cell.number = value.as<double>();
    return cell;
}

std::string nameOf(int source, std::string_view symbol) {
    return fmt::format("{}:{}", source, tivra_tools::printable(symbol));
}

} // namespace

FeedWatch::FeedWatch(const Options& options, const std::string& password, const std::string& logFile,
                     Signals& signals)
    : m_board(tivra::BoardOptions{kMostInstruments})
    , m_title(fmt::format("{} as {}", fmt::join(options.hosts, ", "), tivra_tools::printable(options.user))) {
    tivra::Log::setSink([this](const tivra::LogLine& line) {
        m_log.add({line.time, line.level <= tivra::LogLevel::Warning, tivra_tools::printable(line.text)});
    });
    try {
        m_feed = openFeed(feedOptions(options, password, logFile), signals);
        chooseFields(options.fields);
        subscribe(options);
    } catch (const tivra::Error& error) {
        tivra::Log::setSink({});
        const bool isLogin = error.phase() == tivra::Error::Phase::Login && error.status() != 0;
        const bool isUsage = error.code() == tivra::Error::Code::InvalidArgument ||
                             error.code() == tivra::Error::Code::InvalidOption ||
                             error.code() == tivra::Error::Code::UnknownField;
        throw Failure(isLogin   ? ExitCode::LoginRefused
                      : isUsage ? ExitCode::Usage
                                : ExitCode::Unreachable,
                      error.what());
    } catch (...) {
        tivra::Log::setSink({});
        throw;
    }
}

FeedWatch::~FeedWatch() {
    m_feed.reset();
    tivra::Log::setSink({});
}

void FeedWatch::chooseFields(const std::vector<std::string>& wanted) {
    for (const std::string& name : wanted)
        m_fields.push_back(m_feed->field(name));
    if (!wanted.empty())
        return;
    for (const char* const name : kUsualFields)
        if (m_feed->typeOf(name))
            m_fields.push_back(m_feed->field(name));
    m_takesFieldsAsTheyCome = m_fields.empty();
}

void FeedWatch::subscribe(const Options& options) {
    const TimePoint now = std::chrono::system_clock::now();
    for (const tivra::Instrument& symbol : options.symbols) {
        Row row;
        row.name = nameOf(symbol.source, symbol.symbol);
        m_rows.put(std::move(row), now);
    }
    m_group = m_feed->subscribeAll(options.symbols, m_board.handlers());
    for (const tivra::Instrument& pattern : options.patterns)
        m_patterns.push_back(m_feed->subscribeWildcard(pattern.source, pattern.symbol, m_board.handlers()));
}

std::vector<Cell> FeedWatch::cellsOf(const tivra::BoardRow& row) {
    if (m_takesFieldsAsTheyCome)
        for (const auto& [field, value] : row.values)
            if (m_fields.size() < kFieldsAsTheyCome &&
                std::find(m_fields.begin(), m_fields.end(), field) == m_fields.end())
                m_fields.push_back(field);
    std::vector<Cell> cells;
    for (const tivra::Field& field : m_fields) {
        const std::optional<tivra::Value> value = row.values.get(field);
        cells.push_back(value ? cellOf(*value) : Cell{});
    }
    return cells;
}

void FeedWatch::takeChanges(TimePoint now) {
    const std::size_t fields = m_fields.size();
    m_board.changedSince(m_seen, [this, now](const tivra::BoardRow& changed) {
        Row row;
        row.name = nameOf(changed.values.source(), changed.values.symbol());
        row.state = changed.state;
        row.lastUpdate = changed.lastUpdate;
        row.updates = changed.updates;
        row.gaps = changed.gaps;
        row.cells = cellsOf(changed);
        m_rows.put(std::move(row), now);
    });
    if (m_fields.size() == fields)
        return;
    // Symbols that came before the new fields may have values for them.
    m_seen = {};
    takeChanges(now);
}

void FeedWatch::takeStatistics(Picture& picture) {
    const tivra::FeedStatistics figures = m_feed->statistics();
    picture.updates = figures.updates;
    picture.socketToDecode = figures.socketToDecode;
    picture.decodeToCallback = figures.decodeToCallback;
    for (const tivra::HubStatus& status : m_feed->hubs()) {
        HubLine hub;
        hub.status = status;
        hub.status.cause = tivra_tools::printable(status.cause);
        for (const tivra::HubStatistics& counted : figures.hubs)
            if (counted.hub == status.hub)
                hub.statistics = counted;
        hub.rate = m_hubRates[status.hub].take(picture.time, hub.statistics.updates);
        picture.rate += hub.rate;
        picture.hubs.push_back(std::move(hub));
    }
}

Picture FeedWatch::picture() {
    Picture picture;
    picture.time = std::chrono::system_clock::now();
    picture.title = m_title;
    picture.state = m_feed->state();
    picture.leftOut = m_board.statistics().refused;
    takeStatistics(picture);
    takeChanges(picture.time);
    m_rows.measure(picture.time);
    picture.rows = m_rows.rows(picture.time);
    picture.gaps = std::accumulate(picture.rows.begin(), picture.rows.end(), std::uint64_t{0},
                                   [](std::uint64_t sum, const Row& row) { return sum + row.gaps; });
    for (const tivra::Field& field : m_fields)
        picture.columns.push_back(tivra_tools::printable(field.name()));
    picture.log = m_log.entries();
    return picture;
}

bool FeedWatch::isAnswered() {
    const std::vector<tivra::Subscription>& patterns = m_patterns;
    return m_group.statistics().pending == 0 &&
           std::none_of(patterns.begin(), patterns.end(), [](const tivra::Subscription& pattern) {
               return pattern.state() == tivra::DataState::Pending;
           });
}

} // namespace tivra_top
