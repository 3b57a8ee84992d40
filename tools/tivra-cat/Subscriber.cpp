#include "Subscriber.h"

#include "CommandTable.h"

#include <algorithm>
#include <charconv>

namespace tivra_cat {

namespace {

/// The hub's counters reach this program that often, whatever the user wants to see.
constexpr int kStatisticsSeconds = 1;

template<class Config, class Parameter, class Value>
void apply(Config& config, Parameter parameter, const std::optional<Value>& value) {
    if (value)
        config.set(parameter, *value);
}

void addToken(tivra::Request& request, const std::string& token) {
    int number = 0;
    const char* const end = token.data() + token.size();
    const auto [next, error] = std::from_chars(token.data(), end, number);
    if (next == end && error == std::errc{})
        request.add(tivra::KVN_TOKEN_NUM, number);
    else
        request.add(tivra::KVN_TOKEN_NAME, token);
}

Asked askedOf(const Target* target, const char* command) {
    Asked asked;
    asked.command = asked.target = command;
    if (target == nullptr)
        return asked;
    asked.source = std::max(target->source, 0);
    if (target->kind == tivra::SYMBOL_TICKER)
        asked.symbol = target->symbol;
    else
        asked.identifier = Target{-1, target->symbol, target->kind}.name();
    asked.target.append(" ").append(target->name());
    return asked;
}

} // namespace

Subscriber::Subscriber(const Options& options, const std::string& password, const std::string& logFile,
                       SessionWatch& watch, tivra::MessageEventHandler& receiver)
    : m_options(options)
    , m_client({"tivra-cat", TIVRA_CAT_VERSION, logFile, options.isDebug}, options.user, password, watch,
               watch)
    , m_session(m_client.session()) {
    configure(options);
    m_session.registerMessageEventHandler(&receiver);
    m_session.registerStatisticsEventHandler(&watch, kStatisticsSeconds);
}

void Subscriber::configure(const Options& options) {
    using tivra::HostConfig;
    using tivra::SessionConfig;
    SessionConfig& session = m_session.getSessionConfig();
    apply(session, SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, options.isMultithreaded);
    apply(session, SessionConfig::MAX_USER_THREADS_LONG, options.maxUserThreads);
    apply(session, SessionConfig::MAX_HUB_THREADS_LONG, options.maxHubThreads);
    // What stands comes back after an interruption unless it isn't wanted.
    session.set(SessionConfig::WATCHLIST_BOOL, options.watchlist.value_or(true));
    session.set(SessionConfig::END_LOST_REQUESTS_BOOL, true);
    apply(session, SessionConfig::HOLD_READS_BOOL, options.holdReads);
    tivra::ConnectionConfig& connections = m_session.getConnectionConfig();
    apply(connections, HostConfig::COMPRESSION_BOOL, options.compression);
    apply(connections, HostConfig::QUEUE_SIZE_LONG, options.queueMegabytes);
    apply(connections, HostConfig::CONFLATION_TYPE_LONG, options.conflationType);
    apply(connections, HostConfig::CONFLATION_INTERVAL_LONG, options.conflationInterval);
    apply(connections, HostConfig::JIT_CONFLATION_THRESHOLD_PERCENT_LONG, options.jitThreshold);
    apply(connections, HostConfig::CONFLATION_INDICATOR_BOOL, options.conflationIndicator);
    apply(connections, HostConfig::READ_TIMEOUT_LONG, options.readTimeout);
    apply(connections, HostConfig::CONNECTION_TIMEOUT_LONG, options.connectTimeout);
    apply(connections, HostConfig::CONNECTION_RETRY_LIMIT_LONG, options.retries);
    tivra_tools::applyTls(options.tls, connections);
    tivra_tools::applyAddresses(options.addresses, connections);
    for (const std::string& host : options.hosts)
        connections.getHostConfig(host);
    for (const std::string& host : options.backups)
        connections.getHostConfig(host).set(HostConfig::BACKUP_BOOL, true);
}

void Subscriber::send(RequestBook& book) {
    if (m_options.targets.empty())
        sendTo(nullptr, book);
    for (const Target& target : m_options.targets)
        sendTo(&target, book);
}

void Subscriber::sendTo(const Target* target, RequestBook& book) {
    const CommandTraits& traits = traitsOf(m_options.command);
    tivra::Request& request = m_session.createRequest();
    request.setCommand(m_options.command);
    if (target != nullptr && target->source != -1)
        request.add(tivra::ENUM_SRC_ID, target->source);
    if (target != nullptr && !target->symbol.empty())
        request.add(target->kind, target->symbol);
    if (m_options.depthType)
        request.add(tivra::DEPTH_TYPE, *m_options.depthType);
    for (const std::string& token : m_options.tokens)
        addToken(request, token);
    const std::int64_t tag = request.generateTag();
    book.enter(tag, askedOf(target, traits.name));
    if (m_session.send(request) == 0)
        book.answer(tag, -1, "the library did not take it; its log says why");
    m_session.freeRequest(request);
}

} // namespace tivra_cat
