#pragma once

#include <CLI/CLI.hpp>
#include <feed/FeedOptions.h>
#include <tivra.h>

#include <map>
#include <string>
#include <vector>

namespace tivra_tools {

/// By which addresses hubs are reached that hubs name, and which of them are.
struct AddressOptions {
    std::map<std::string, std::string> nat; ///< hub address to local address
    std::string allowed;                    ///< see HostConfig::ALLOWED_HUBS_STRING
    bool isOnlyAllowed = false;
};

/// Declares --nat, --allow-hubs and --only-allowed-hubs. A parse ends with a fault for a --nat that is no
/// pair of addresses, or has one that another has, and for what can't be meant in a list.
void declareAddresses(CLI::App& app, const std::string& group, AddressOptions& options);

/// Before the session starts.
void applyAddresses(const AddressOptions& options, tivra::ConnectionConfig& connections);
/// Before the feed opens.
void applyAddresses(const AddressOptions& options, tivra::FeedOptions& feed);

} // namespace tivra_tools
