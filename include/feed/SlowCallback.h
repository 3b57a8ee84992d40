#pragma once

#include <chrono>
#include <string_view>

namespace tivra {

/// A callback of the application takes longer than FeedOptions::slowCallback. Messages behind it wait. The
/// texts are valid during the report.
struct SlowCallback {
    /// Which one: "a subscription's callback", or the name of another one, such as "onConnection".
    std::string_view function;
    /// The symbol or the pattern that was subscribed, or what was asked for; empty where that has gone
    /// meanwhile.
    std::string_view symbol;
    int source = 0;                        ///< 0 where no subscription is concerned
    std::chrono::milliseconds duration{0}; ///< so far, or in all; a quarter of the threshold more or less
    bool isRunning = false;                ///< else it has returned
};

} // namespace tivra
