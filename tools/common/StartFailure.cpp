#include "common/StartFailure.h"

#include "common/HostAddress.h"
#include "common/HostDial.h"
#include "common/LogFile.h"
#include "common/Printable.h"
#include "common/UsageError.h"

#include <fmt/format.h>

#include <chrono>
#include <string_view>

namespace tivra_tools {

namespace {

/// What a hub answers to a login whose parameters it does not know, compression among them.
constexpr int kBadParameter = -33;

/// What one more dial may take: the library's own have taken their time before.
constexpr std::chrono::milliseconds kPatience{1000};

bool contains(std::string_view text, std::string_view word) {
    return text.find(word) != std::string_view::npos;
}

/// What comes of dialling each of them now.
std::string outcomes(const std::vector<std::string>& hosts) {
    std::string text;
    for (const std::string& host : hosts) {
        std::vector<std::string> addresses;
        try {
            addresses = resolveHost(host);
        } catch (const UsageError& lost) { // its name was known before
            text += (text.empty() ? "" : ", ") + std::string(lost.what());
        }
        for (const std::string& address : addresses)
            text += (text.empty() ? "" : ", ") + dialOutcome(address, kPatience);
    }
    return text;
}

} // namespace

std::string startFailureText(const StartAttempt& attempt) {
    if (attempt.refusal) {
        const char* advice =
            attempt.refusal->code == kBadParameter && attempt.asksForCompression
                ? "The hub may not speak compression: try --no-compression."
                : "Check the user and the password, and ask the hub's operator about the code.";
        return fmt::format("cannot log in: user \"{}\" at {}, in the login phase: the hub answered {} {}. {}",
                           attempt.user, attempt.hosts, attempt.refusal->code,
                           printable(attempt.refusal->name), advice);
    }
    const std::string reason = printable(attempt.reason); // a hub's words may be in it
    const std::string head = fmt::format("cannot start a session with {} as \"{}\", tried for {:.1f} s",
                                         attempt.hosts, attempt.user, attempt.seconds);
    const std::string log = existingLogFile(attempt.logFile);
    // After the address the library says why there is no encryption, which one more dial wouldn't.
    if (contains(reason, "retry limit") && contains(reason, ": "))
        return fmt::format("{}, in the connect phase: {}. Log: {}", head, reason, log);
    if (contains(reason, "retry limit") || contains(reason, "connectHost"))
        return fmt::format(
            "{}, in the connect phase: {}; {}. Check the address and that a hub listens there{}. Log: {}",
            head, reason, outcomes(attempt.addresses), attempt.moreDials, log);
    if (contains(reason, "timeout"))
        return fmt::format("{}, in the login conversation: {}. The hub took the connection and fell "
                           "silent{}. Log: {}",
                           head, reason, attempt.morePatience, log);
    return fmt::format("{}, while the session was set up: {}. Log: {}", head, reason, log);
}

} // namespace tivra_tools
