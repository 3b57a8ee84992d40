#include "feed/FeedParameters.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <set>
#include <string>
#include <string_view>

#include <feed/Error.h>
#include <session/ConnectionConfig.h>
#include <session/HostConfig.h>
#include <session/Session.h>
#include <session/SessionConfig.h>
#include <tp/NearestName.h>
#include <tp/eprintf.h>

#include "config/AllowedHubs.h"
#include "config/ConnectionConfigImpl.h"
#include "config/HandleAccess.h"
#include "config/HostConfigImpl.h"
#include "config/HostTable.h"
#include "config/ParameterTable.h"
#include "feed/FeedOptionTable.h"
#include "feed/OptionValue.h"

namespace tivra_internal {
namespace {

using tivra::Error;

/// What a feed decides by itself.
constexpr std::string_view kOwn[] = {"WATCHLIST_BOOL", "END_LOST_REQUESTS_BOOL", "BACKUP_BOOL",
                                     "RECOVERY_BOOL"};

constexpr std::string_view kSuffixes[] = {"_BOOL", "_LONG", "_STRING"};

[[nodiscard]] std::string_view withoutSuffix(std::string_view name) {
    for (const std::string_view suffix : kSuffixes)
        if (name.size() > suffix.size() && name.substr(name.size() - suffix.size()) == suffix)
            return name.substr(0, name.size() - suffix.size());
    return name;
}

[[nodiscard]] std::string inCapitals(std::string_view name) {
    std::string capitals(name);
    std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return capitals;
}

/// read_timeout of READ_TIMEOUT_LONG.
[[nodiscard]] std::string shortName(std::string_view name) {
    std::string lower(withoutSuffix(name));
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

template<class Table>
[[nodiscard]] const ParameterInfo* find(const Table& table, std::string_view name) {
    for (const ParameterInfo& parameter : table)
        if (name == parameter.name || name == withoutSuffix(parameter.name))
            return &parameter;
    return nullptr;
}

[[nodiscard]] OptionRange rangeOf(const ParameterInfo& parameter) {
    if (parameter.outOfRange == OutOfRange::Accepted)
        return {};
    return {parameter.minimum, parameter.maximum};
}

void checkText(const char* parameter, std::string_view text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) < ' ')
            refuseOption(std::string(parameter) + " has a control character in it");
}

void checkTextOf(const ParameterInfo& parameter, std::string_view text) {
    checkText(parameter.name, text);
    if (&parameter != &kHostParameters[tivra::HostConfig::ALLOWED_HUBS_STRING])
        return;
    if (const std::string fault = AllowedHubs::faultOf(text); !fault.empty())
        refuseOption(parameter.name + (": " + fault));
}

void setText(tivra::ConnectionConfig& config, tivra::HostConfig::Parameters which, std::string_view text) {
    config.setText(which, std::string(text));
}

/// No parameter of a session is a text.
void setText(tivra::SessionConfig&, tivra::SessionConfig::Parameters, std::string_view) {}

/// @tparam Which  the enumeration that the parameter is one of
template<class Which, class Config>
void set(Config& config, const ParameterInfo& parameter, std::string_view text) {
    const auto which = static_cast<Which>(parameter.value);
    if (parameter.type == ParameterType::Bool)
        config.set(which, parseBool(parameter.name, text));
    else if (parameter.type == ParameterType::String)
        setText(config, which, text);
    else
        config.set(which, parseWhole(parameter.name, text, rangeOf(parameter)));
}

[[noreturn]] void refuseUnknown(const std::string& name) {
    tp::NearestName nearest(name);
    offerParameters(nearest);
    refuseOption("there is no parameter " + name, "the nearest is " + nearest.best());
}

void setParameter(tivra::Session& session, const std::string& name, std::string_view text) {
    const NamedParameter parameter = findParameter(name);
    if (parameter.info == nullptr)
        refuseUnknown(name);
    checkParameter(*parameter.info, text);
    if (parameter.isOfSession)
        set<tivra::SessionConfig::Parameters>(session.getSessionConfig(), *parameter.info, text);
    else
        set<tivra::HostConfig::Parameters>(session.getConnectionConfig(), *parameter.info, text);
}

void checkName(const char* option, const std::string& text) {
    if (text.empty())
        refuseOption(std::string("the ") + option + " is empty");
    for (const char c : text)
        if (c == '|' || static_cast<unsigned char>(c) < ' ')
            refuseOption(std::string("the ") + option + " has a '|' or a control character in it");
}

void setNat(const tivra::FeedOptions& options, tivra::ConnectionConfig& connections) {
    std::set<std::string> reached;
    for (const auto& [hub, local] : options.nat) {
        for (const std::string& address : {hub, local})
            if (in_addr parsed{}; ::inet_pton(AF_INET, address.c_str(), &parsed) != 1)
                refuseOption("nat has \"" + address + "\" in it, which is no IPv4 address",
                             "give hub=local, two addresses without a port");
        if (!reached.insert(local).second)
            refuseOption("nat has " + local + " for two hubs", "give each a local address of its own");
        connections.addNATPair(hub, local);
    }
}

void checkPauses(const tivra::RetryPauses& retry) {
    using std::chrono::milliseconds;
    if (retry.first < milliseconds(10) || retry.longest < retry.first ||
        retry.longest > milliseconds(kLongestOptionTime))
        refuseOption("the pauses between attempts can't be meant",
                     "give a first one of 10 ms or more, and a longest one that isn't shorter");
    if (retry.jitterPercent < 0 || retry.jitterPercent > 100)
        refuseOption("the jitter of pauses is " + std::to_string(retry.jitterPercent) + " percent",
                     "give 0 to 100");
}

} // namespace

NamedParameter findParameter(std::string_view name) {
    const std::string capitals = inCapitals(name);
    if (const ParameterInfo* const ofSession = find(kSessionParameters, capitals))
        return {ofSession, true};
    return {find(kHostParameters, capitals), false};
}

void checkParameter(const ParameterInfo& parameter, std::string_view text) {
    for (const std::string_view own : kOwn)
        if (own == parameter.name)
            refuseOption(std::string(own) + " is decided by the feed", "leave it out");
    if (parameter.type == ParameterType::Bool)
        static_cast<void>(parseBool(parameter.name, text));
    else if (parameter.type == ParameterType::String)
        checkTextOf(parameter, text);
    else
        static_cast<void>(parseWhole(parameter.name, text, rangeOf(parameter)));
}

void offerParameters(tp::NearestName& nearest) {
    const auto offer = [&nearest](const ParameterInfo& parameter) {
        nearest.offer(parameter.name);
        nearest.offer(shortName(parameter.name));
    };
    std::for_each(kSessionParameters.begin(), kSessionParameters.end(), offer);
    std::for_each(kHostParameters.begin(), kHostParameters.end(), offer);
}

void configureSession(const tivra::FeedOptions& options, tivra::Session& session) {
    if (options.hosts.empty())
        refuseOption("no host is given", "name at least one in FeedOptions::hosts");
    if (!options.backups.empty() && options.backups.size() != options.hosts.size())
        refuseOption(std::to_string(options.backups.size()) + " backups for " +
                         std::to_string(options.hosts.size()) + " hosts",
                     "give none, or one for each host");
    checkPauses(options.retry);
    if (options.minHubs < 0)
        refuseOption("minHubs is below 0", "give 0 for all hubs");
    if (options.minHubs > 0 && !options.backups.empty())
        refuseOption("minHubs and backups exclude each other",
                     "a hub that fails changes to the backups: leave one of them out");
    checkName("user", options.user);
    if (!options.onPassword)
        checkName("password", options.password.text());
    else if (!options.password.isEmpty())
        refuseOption("there is a password, and a callback to ask for one", "leave one of them out");
    // A slow callback holds the hub up, and loses nothing. An application may want it otherwise.
    session.getSessionConfig().set(tivra::SessionConfig::HOLD_READS_BOOL, true);
    std::set<const ParameterInfo*> given;
    for (const auto& [name, text] : options.parameters) {
        setParameter(session, name, text);
        if (!given.insert(findParameter(name).info).second)
            refuseOption(name + " is given twice", "give it in one spelling");
    }
    setNat(options, session.getConnectionConfig());
    session.getSessionConfig()
        .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
        .set(tivra::SessionConfig::END_LOST_REQUESTS_BOOL, true);
    for (const std::string& host : options.hosts)
        checkHost(host);
    for (const std::string& host : options.backups)
        checkHost(host);
}

std::vector<std::string> configureHosts(const tivra::FeedOptions& options, tivra::Session& session) {
    using tivra::HostConfig;
    tivra::ConnectionConfig& connections = session.getConnectionConfig();
    std::vector<HostConfig*> configured;
    for (const std::vector<std::string>& side : {options.hosts, options.backups})
        for (const std::string& text : side) {
            // What a host doesn't know of itself is asked of all connections, where this is no parameter.
            HostConfig& host = connections.getHostConfig(text);
            host.set(HostConfig::BACKUP_BOOL, configured.size() >= options.hosts.size());
            configured.push_back(&host);
        }
    for (const auto& [host, name, fault] : HandleAccess::impl(connections).lookUpNames()) {
        if (options.minHubs == 0)
            throw Error(
                {Error::Code::OpenFailed, Error::Phase::Connect,
                 std::string("the address of ").append(name).append(" can't be looked up: ").append(fault),
                 "check the name, or give the address", host, 0, "", 0});
        eprintf(EPF_WARN, "The address of the host %s can't be looked up: %s", name.c_str(), fault.c_str());
    }
    std::vector<std::string> hosts;
    for (HostConfig* const each : configured) {
        const HostConfigImpl& host = HandleAccess::impl(*each);
        hosts.push_back(HostTable::hostInfoOf(host.getAddr(), host.getPort()));
    }
    return hosts;
}

} // namespace tivra_internal
