#include "ErrorText.h"

#include <fmt/format.h>

namespace tivra_cat {

namespace {

/// The library's own status of a request whose hub was lost.
constexpr int kLostBeforeAnswer = -997;

std::string hostsTried(const Options& options) {
    std::string text = join(options.hosts);
    if (!options.backups.empty())
        text += " with backup " + join(options.backups);
    return text;
}

} // namespace

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " and " : ", ") + words[i];
    return text;
}

Failure startFailure(const Options& options, const std::string& reason,
                     const std::optional<tivra_tools::LoginRefusal>& refusal, double seconds,
                     const std::string& logFile) {
    tivra_tools::StartAttempt attempt;
    attempt.hosts = hostsTried(options);
    attempt.addresses = options.hosts;
    attempt.addresses.insert(attempt.addresses.end(), options.backups.begin(), options.backups.end());
    attempt.user = options.user;
    attempt.asksForCompression = options.compression.value_or(true);
    attempt.seconds = seconds;
    attempt.logFile = logFile;
    attempt.reason = reason;
    attempt.refusal = refusal;
    attempt.moreDials = "; --connect-timeout and --retries give it longer";
    attempt.morePatience = "; --read-timeout gives it longer";
    return {refusal ? ExitCode::LoginRefused : ExitCode::Unreachable, startFailureText(attempt)};
}

std::string describe(const Refusal& refusal) {
    if (refusal.code == kLostBeforeAnswer)
        return fmt::format("{}: no answer: {} {}", refusal.target, refusal.code, refusal.text);
    return fmt::format("{}: {}refused: {} {}", refusal.target,
                       refusal.hasStood ? "was granted before the interruption, and is now " : "",
                       refusal.code, refusal.text);
}

} // namespace tivra_cat
