#include "ErrorText.h"

#include <fmt/format.h>

#include <string_view>

namespace tivra_cat {

namespace {

/// What a hub answers to a login whose parameters it does not know, compression among them.
constexpr int BAD_PARAMETER = -33;

std::string hostsTried(const Options& options) {
    std::string text = join(options.hosts);
    if (!options.backups.empty())
        text += " with backup " + join(options.backups);
    return text;
}

bool contains(std::string_view text, std::string_view word) {
    return text.find(word) != std::string_view::npos;
}

} // namespace

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
    return text;
}

Failure startFailure(const Options& options, const std::string& reason,
                     const std::optional<LoginRefusal>& refusal, double seconds, const std::string& logFile) {
    const std::string hosts = hostsTried(options);
    if (refusal) {
        const char* advice =
            refusal->code == BAD_PARAMETER && options.compression.value_or(true)
                ? "The hub may not speak compression: try --no-compression."
                : "Check the user and the password, and ask the hub's operator about the code.";
        return Failure(
            ExitCode::LoginRefused,
            fmt::format("cannot log in: user \"{}\" at {}, in the login phase: the hub answered {} {}. {}",
                        options.user, hosts, refusal->code, refusal->name, advice));
    }
    const std::string head = fmt::format("cannot start a session with {} as \"{}\", tried for {:.1f} s",
                                         hosts, options.user, seconds);
    if (contains(reason, "retry limit") || contains(reason, "connectHost"))
        return Failure(
            ExitCode::Unreachable,
            fmt::format("{}, in the connect phase: {}. Check the address and that a hub listens there; "
                        "--connect-timeout and --retries give it longer. Log: {}",
                        head, reason, logFile));
    if (contains(reason, "timeout"))
        return Failure(ExitCode::Unreachable,
                       fmt::format("{}, in the login conversation: {}. The hub took the connection and fell "
                                   "silent; --read-timeout gives it longer. Log: {}",
                                   head, reason, logFile));
    return Failure(ExitCode::Unreachable,
                   fmt::format("{}, while the session was set up: {}. Log: {}", head, reason, logFile));
}

std::string describe(const Refusal& refusal) {
    return fmt::format("{}: refused: {} {}", refusal.target, refusal.code, refusal.text);
}

} // namespace tivra_cat
