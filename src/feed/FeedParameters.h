#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <feed/FeedOptions.h>

namespace tivra {
class Session;
} // namespace tivra

namespace tp {

class NearestName;

} // namespace tp

namespace tivra_internal {

struct ParameterInfo;

/// A parameter of sessions or of hosts.
struct NamedParameter {
    const ParameterInfo* info = nullptr; ///< null: there is none of that name
    bool isOfSession = false;
};

/// @param name  READ_TIMEOUT_LONG or read_timeout, in capitals or not
[[nodiscard]] NamedParameter findParameter(std::string_view name);
/// @throws tivra::Error (InvalidOption) for a value that can't be meant, and for a parameter that is the
/// feed's own
void checkParameter(const ParameterInfo& parameter, std::string_view text);
/// All names that findParameter() finds.
void offerParameters(tp::NearestName& nearest);

/// Hands the parameters of the options to a session that isn't started.
/// @throws tivra::Error (InvalidOption) for what can't be meant, in the hosts too
void configureSession(const tivra::FeedOptions& options, tivra::Session& session);
/// Hands it the hosts and the backups, of which names are looked up: this may take as long as the system's
/// resolver does.
/// @return all of them, with addresses
/// @throws tivra::Error (OpenFailed) for a name that has none, unless the feed may open without some hubs
[[nodiscard]] std::vector<std::string> configureHosts(const tivra::FeedOptions& options,
                                                      tivra::Session& session);

} // namespace tivra_internal
