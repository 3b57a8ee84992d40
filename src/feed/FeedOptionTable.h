#pragma once

#include <array>

/// Every option of a feed that a URL, a file or an environment variable can set beside the parameters, once:
/// the readers and docs/parameters.md are made from it.
namespace tivra_internal {

enum class FeedOption {
    Hosts,
    Backups,
    User,
    Password,
    PasswordFile,
    LogFile,
    LogDebug,
    OpenTimeout,
    RequestTimeout,
    CloseTimeout,
    SlowCallback,
    LatencySampling,
    MinHubs,
    RetryFirst,
    RetryLongest,
    RetryJitter,
    Nat
};

enum class FeedOptionType {
    Text,
    Hosts, ///< a list
    Bool,
    Whole,
    Time ///< in milliseconds
};

struct FeedOptionInfo {
    FeedOption option;
    const char* name;
    FeedOptionType type;
    long minimum; ///< of a Whole or a Time, as the next
    long maximum;
    const char* defaultText;
    const char* help;
};

/// A year: more than that is as good as for ever.
inline constexpr long kLongestOptionTime = 365L * 24 * 3600 * 1000;

inline constexpr std::array<FeedOptionInfo, 17> kFeedOptions{{
    {FeedOption::Hosts, "hosts", FeedOptionType::Hosts, 0, 0, "",
     "the hubs, or connection managers, each host:port"},
    {FeedOption::Backups, "backup", FeedOptionType::Hosts, 0, 0, "",
     "hubs that take over as a whole when those of `hosts` are lost; none, or one for each of them"},
    {FeedOption::User, "user", FeedOptionType::Text, 0, 0, "", "who logs in"},
    {FeedOption::Password, "password", FeedOptionType::Text, 0, 0, "",
     "the user's password; best given by the environment"},
    {FeedOption::PasswordFile, "password_file", FeedOptionType::Text, 0, 0, "",
     "in its place a file whose first line is the password, read at each login; others mustn't be able to"},
    {FeedOption::LogFile, "log_file", FeedOptionType::Text, 0, 0, "",
     "the base of the log file's name; none: no log"},
    {FeedOption::LogDebug, "log_debug", FeedOptionType::Bool, 0, 0, "false", "writes the debug level too"},
    {FeedOption::OpenTimeout, "open_timeout", FeedOptionType::Time, 0, kLongestOptionTime, "30000",
     "the total time for opening"},
    {FeedOption::RequestTimeout, "request_timeout", FeedOptionType::Time, 0, kLongestOptionTime, "10000",
     "how long an answer may take"},
    {FeedOption::CloseTimeout, "close_timeout", FeedOptionType::Time, 0, kLongestOptionTime, "10000",
     "how long closing may wait for callbacks that run"},
    {FeedOption::SlowCallback, "slow_callback", FeedOptionType::Time, 0, kLongestOptionTime, "1000",
     "a callback that takes longer is reported; 0: none is"},
    {FeedOption::LatencySampling, "latency_sampling", FeedOptionType::Whole, 0, 1'000'000'000, "64",
     "the latency of one message in so many is measured; 0 measures none"},
    {FeedOption::MinHubs, "min_hubs", FeedOptionType::Whole, 0, 256, "0",
     "how many ready hubs are enough for opening; 0 means all"},
    {FeedOption::RetryFirst, "retry_first", FeedOptionType::Time, 10, kLongestOptionTime, "250",
     "the pause before the second attempt to reach a hub; each further one is twice as long"},
    {FeedOption::RetryLongest, "retry_longest", FeedOptionType::Time, 10, kLongestOptionTime, "30000",
     "the longest of these pauses"},
    {FeedOption::RetryJitter, "retry_jitter", FeedOptionType::Whole, 0, 100, "20",
     "how many percent of a pause may be added to it by chance"},
    {FeedOption::Nat, "nat", FeedOptionType::Text, 0, 0, "",
     "addresses by which hubs name hubs, and those by which they are reached from here: hub=local, after "
     "commas"},
}};

} // namespace tivra_internal
