#include "common/AddressOptions.h"

#include <arpa/inet.h>
#include <feed/Error.h>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace tivra_tools {

namespace {

std::string checkedAddress(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        throw CLI::ValidationError(
            "--nat", fmt::format("\"{}\" is no IPv4 address: give HUB=LOCAL, two addresses without "
                                 "a port",
                                 text));
    return text;
}

void addPair(AddressOptions& options, const std::string& text) {
    const std::size_t sign = std::min(text.find('='), text.size());
    const std::string hub = checkedAddress(text.substr(0, sign));
    const std::string local = checkedAddress(text.substr(std::min(sign + 1, text.size())));
    const bool isTaken = std::any_of(options.nat.begin(), options.nat.end(), [&](const auto& pair) {
        return pair.first == hub || pair.second == local;
    });
    if (isTaken)
        throw CLI::ValidationError(
            "--nat", fmt::format("\"{}\" has an address that another --nat has: each hub needs a local "
                                 "address of its own",
                                 text));
    options.nat.emplace(hub, local);
}

/// The library's own words for what can't be meant, without what they begin with.
std::string faultOfAllowed(const std::string& text) {
    constexpr std::string_view kParameter = "ALLOWED_HUBS_STRING: ";
    try {
        tivra::FeedOptions().set("allowed_hubs", text);
        return {};
    } catch (const tivra::Error& error) {
        const std::string& cause = error.cause();
        const std::size_t parameter = cause.find(kParameter);
        return parameter == std::string::npos ? cause : cause.substr(parameter + kParameter.size());
    }
}

} // namespace

void declareAddresses(CLI::App& app, const std::string& group, AddressOptions& options) {
    app.add_option_function<std::vector<std::string>>(
           "--nat",
           [&options](const std::vector<std::string>& pairs) {
               for (const std::string& pair : pairs)
                   addPair(options, pair);
           },
           "HUB=LOCAL: the hub that names itself HUB is reached at the address LOCAL; repeatable")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("--allow-hubs", options.allowed,
                   "addresses, networks (10.1.0.0/16) and names, after commas, where hubs may be that hubs "
                   "name; the hosts' networks unless given")
        ->check(faultOfAllowed)
        ->group(group);
    app.add_flag("--only-allowed-hubs", options.isOnlyAllowed,
                 "do not dial hubs elsewhere, in place of a warning in the log")
        ->group(group);
}

void applyAddresses(const AddressOptions& options, tivra::ConnectionConfig& connections) {
    using tivra::HostConfig;
    for (const auto& [hub, local] : options.nat)
        connections.addNATPair(hub, local);
    if (!options.allowed.empty())
        connections.setText(HostConfig::ALLOWED_HUBS_STRING, options.allowed);
    if (options.isOnlyAllowed)
        connections.set(HostConfig::ONLY_ALLOWED_HUBS_BOOL, true);
}

void applyAddresses(const AddressOptions& options, tivra::FeedOptions& feed) {
    feed.nat = options.nat;
    if (!options.allowed.empty())
        feed.set("allowed_hubs", options.allowed);
    if (options.isOnlyAllowed)
        feed.set("only_allowed_hubs", "true");
}

} // namespace tivra_tools
