#include "feed/FeedParameters.h"

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

#include <feed/Error.h>
#include <session/ConnectionConfig.h>
#include <session/HostConfig.h>
#include <session/Session.h>
#include <session/SessionConfig.h>

#include "config/ParameterTable.h"
#include "feed/NearestName.h"

namespace tivra_internal {
namespace {

using tivra::Error;

/// What a feed decides by itself.
constexpr const char* kOwn[] = {"WATCHLIST_BOOL", "END_LOST_REQUESTS_BOOL", "BACKUP_BOOL", "RECOVERY_BOOL"};

[[noreturn]] void refuse(std::string cause, std::string advice = {}) {
    throw Error({Error::Code::InvalidOption, Error::Phase::Options, std::move(cause), std::move(advice), "",
                 0, "", 0});
}

[[nodiscard]] std::string quoted(std::string_view text) {
    std::string result(1, '"');
    result.append(text).append(1, '"');
    return result;
}

[[nodiscard]] bool parseBool(const std::string& name, std::string_view text) {
    if (text == "true" || text == "1")
        return true;
    if (text == "false" || text == "0")
        return false;
    refuse(quoted(text) + " is no value for " + name, "give true or false");
}

[[nodiscard]] long parseLong(const ParameterInfo& parameter, std::string_view text) {
    long value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size())
        refuse(quoted(text) + " is no value for " + parameter.name, "give a whole number");
    const bool isLimited = parameter.outOfRange != OutOfRange::Accepted;
    if (isLimited && (value < parameter.minimum || value > parameter.maximum)) {
        std::string range = std::to_string(parameter.minimum);
        if (parameter.maximum == kNoMaximum)
            range.append(" or more");
        else
            range.append(" to ").append(std::to_string(parameter.maximum));
        refuse(std::string(text) + " is out of the range of " + parameter.name, "give " + range);
    }
    return value;
}

template<class Table>
[[nodiscard]] const ParameterInfo* find(const Table& table, std::string_view name) {
    for (const ParameterInfo& parameter : table)
        if (name == parameter.name)
            return &parameter;
    return nullptr;
}

/// @tparam Which  the enumeration that the parameter is one of
template<class Which, class Config>
void set(Config& config, const ParameterInfo& parameter, const std::string& text) {
    const auto which = static_cast<Which>(parameter.value);
    if (parameter.type == ParameterType::Bool)
        config.set(which, parseBool(parameter.name, text));
    else
        config.set(which, parseLong(parameter, text));
}

[[noreturn]] void refuseUnknown(const std::string& name) {
    NearestName nearest(name);
    for (const ParameterInfo& parameter : kSessionParameters)
        nearest.offer(parameter.name);
    for (const ParameterInfo& parameter : kHostParameters)
        nearest.offer(parameter.name);
    refuse("there is no parameter " + name, "the nearest is " + nearest.best());
}

void setParameter(tivra::Session& session, const std::string& name, const std::string& text) {
    for (const char* own : kOwn)
        if (name == own)
            refuse(name + " is decided by the feed", "leave it out");
    if (const ParameterInfo* const parameter = find(kSessionParameters, name))
        set<tivra::SessionConfig::Parameters>(session.getSessionConfig(), *parameter, text);
    else if (const ParameterInfo* const ofHosts = find(kHostParameters, name))
        set<tivra::HostConfig::Parameters>(session.getConnectionConfig(), *ofHosts, text);
    else
        refuseUnknown(name);
}

/// "host:port" with both in it.
void checkHost(const std::string& host) {
    const std::size_t colon = host.rfind(':');
    const std::string_view digits =
        colon == std::string::npos ? std::string_view() : std::string_view(host).substr(colon + 1);
    std::uint16_t port = 0;
    const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (colon == 0 || fault != std::errc() || end != digits.data() + digits.size() || port == 0)
        refuse(quoted(host) + " names no hub", "give host:port, with a port from 1 to 65535");
}

void checkName(const char* option, const std::string& text) {
    if (text.empty())
        refuse(std::string("the ") + option + " is empty");
    for (const char c : text)
        if (c == '|' || static_cast<unsigned char>(c) < ' ')
            refuse(std::string("the ") + option + " has a '|' or a control character in it");
}

} // namespace

void configureSession(const tivra::FeedOptions& options, tivra::Session& session) {
    if (options.hosts.empty())
        refuse("no host is given", "name at least one in FeedOptions::hosts");
    if (!options.backups.empty() && options.backups.size() != options.hosts.size())
        refuse(std::to_string(options.backups.size()) + " backups for " +
                   std::to_string(options.hosts.size()) + " hosts",
               "give none, or one for each host");
    checkName("user", options.user);
    checkName("password", options.password.text());
    // A slow callback holds the hub up, and loses nothing. An application may want it otherwise.
    session.getSessionConfig().set(tivra::SessionConfig::HOLD_READS_BOOL, true);
    for (const auto& [name, text] : options.parameters)
        setParameter(session, name, text);
    session.getSessionConfig()
        .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
        .set(tivra::SessionConfig::END_LOST_REQUESTS_BOOL, true);
    for (const std::string& host : options.hosts) {
        checkHost(host);
        session.getConnectionConfig().getHostConfig(host);
    }
    for (const std::string& host : options.backups) {
        checkHost(host);
        session.getConnectionConfig().getHostConfig(host).set(tivra::HostConfig::BACKUP_BOOL, true);
    }
}

} // namespace tivra_internal
