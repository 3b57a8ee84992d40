#pragma once

#include "bus/BusError.h"

#include <tp/SignalsBlocked.h>
#include <tp/Thread.h>

#include <fmt/format.h>

#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace tivra_bus {

/// How the bus starts its threads: named, and with all signals blocked. They aren't marked as the core
/// library's, since a handler on one of them may wait for a feed.
/// @throws UnreadyError when the system refuses a thread
template<class Body>
[[nodiscard]] std::thread startThread(std::string name, Body&& body) {
    const tp::SignalsBlocked blocked;
    try {
        return std::thread([name = std::move(name), body = std::forward<Body>(body)]() mutable {
            tp::setThreadName(name);
            body();
        });
    } catch (const std::system_error& error) {
        throw UnreadyError(fmt::format("a thread couldn't be made: {}", error.what()));
    }
}

} // namespace tivra_bus
