#pragma once

#include <algorithm>
#include <chrono>
#include <optional>

#include <nanobind/nanobind.h>

#include <feed/Error.h>

#include "HandOver.h"
#include "Values.h"

namespace tivra_python {

/// Waits on a thread of Python, without its lock, in pieces that are short enough for Ctrl-C to be felt at
/// once.
/// @param seconds  nothing for any time
/// @param wait  waits until the time_point that it is given at most; returns whether it was there
/// @return whether it was there
/// @throws nanobind::python_error when a signal's handler raises; tivra::Error (InvalidArgument);
/// (InCallback)
///         on a thread of the library, when it isn't there
template<class Wait>
bool waitInterruptibly(std::optional<double> seconds, Wait&& wait) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kPiece{50};
    if (isOnLibraryThread()) {
        const Unlock released;
        if (wait(Clock::time_point::min()))
            return true;
        throw tivra::Error({tivra::Error::Code::InCallback, tivra::Error::Phase::None,
                            "a thread of the library can't wait for what it may have to bring",
                            "wait on a thread of your own, or in a coroutine", "", 0, "", 0});
    }
    std::optional<Clock::time_point> deadline;
    if (seconds)
        deadline = Clock::now() + toDuration(*seconds);
    for (;;) {
        const Clock::time_point pieceEnd = Clock::now() + kPiece;
        bool isThere = false;
        {
            const Unlock released;
            isThere = wait(deadline ? std::min(*deadline, pieceEnd) : pieceEnd);
        }
        if (PyErr_CheckSignals() != 0)
            throw nanobind::python_error();
        if (isThere)
            return true;
        if (deadline && Clock::now() >= *deadline)
            return false;
    }
}

} // namespace tivra_python
