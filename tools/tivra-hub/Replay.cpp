#include "Replay.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <limits>
#include <memory>

namespace {

/// Times of a file may lie as far apart as the numbers reach.
double nanosecondsBetween(std::int64_t from, std::int64_t to) {
    const double distance =
        static_cast<double>(from <= to ? static_cast<std::uint64_t>(to) - static_cast<std::uint64_t>(from)
                                       : static_cast<std::uint64_t>(from) - static_cast<std::uint64_t>(to));
    return from <= to ? distance : -distance;
}

/// So many seconds later, or the last moment that there is.
std::int64_t later(std::int64_t time, double seconds) {
    const std::uint64_t room = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) -
                               static_cast<std::uint64_t>(time);
    const auto step = static_cast<std::uint64_t>(seconds * 1e9);
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time) + std::min(step, room));
}

} // namespace

std::function<bool(tivra_sim::TimedBody&)> replayOf(const std::string& path, double fromSeconds,
                                                    double toSeconds) {
    const auto reader = std::make_shared<tivra_capture::CaptureReader>(path);
    if (!reader->isComplete())
        std::cerr << "tivra-hub: the capture " << path << " was cut off; its " << reader->messages()
                  << " whole messages are played" << std::endl;
    const std::int64_t first = reader->blocks().empty() ? 0 : reader->blocks().front().firstNanoseconds;
    const std::int64_t from = later(first, fromSeconds);
    const std::int64_t to =
        toSeconds > 0.0 ? later(first, toSeconds) : std::numeric_limits<std::int64_t>::max();
    reader->seek(from);
    return [reader, first, from, to, isReached = false](tivra_sim::TimedBody& message) mutable {
        tivra_capture::Message recorded;
        while (reader->next(recorded)) {
            isReached = isReached || recorded.nanoseconds >= from;
            if (isReached && recorded.nanoseconds >= to)
                return false;
            if (!isReached || tivra_capture::isNote(recorded.body))
                continue;
            message.milliseconds = nanosecondsBetween(first, recorded.nanoseconds) / 1e6;
            message.body = recorded.body;
            return true;
        }
        return false;
    };
}
