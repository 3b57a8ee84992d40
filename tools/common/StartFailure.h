#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tivra_tools {

/// A login that a hub refused.
struct LoginRefusal {
    int code = 0;
    std::string name;
};

/// A session that could not be started.
struct StartAttempt {
    std::string hosts;                  ///< for people
    std::vector<std::string> addresses; ///< the same, each as "host:port"
    std::string user;
    bool asksForCompression = true;
    double seconds = 0.0;                ///< how long it was tried
    std::string logFile;                 ///< base name of the library's log
    std::string reason;                  ///< as the library tells it
    std::optional<LoginRefusal> refusal; ///< of the last login
    std::string moreDials;    ///< "; --retries gives it longer", what helps with a hub that isn't reached
    std::string morePatience; ///< the same for a hub that is silent
};

/// Why: what was attempted, with whom, in which phase, the cause and what to do. A host that wasn't reached
/// is dialled once more, for the cause.
[[nodiscard]] std::string startFailureText(const StartAttempt& attempt);

} // namespace tivra_tools
