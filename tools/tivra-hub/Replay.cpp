#include "Replay.h"

#include <capture/CaptureReader.h>

#include <iostream>
#include <memory>

std::function<bool(tivra_sim::TimedBody&)> replayOf(const std::string& path, double fromSeconds) {
    const auto reader = std::make_shared<tivra_capture::CaptureReader>(path);
    if (!reader->isComplete())
        std::cerr << "tivra-hub: the capture " << path << " was cut off; its " << reader->messages()
                  << " whole messages are played" << std::endl;
    const std::int64_t first = reader->blocks().empty() ? 0 : reader->blocks().front().firstNanoseconds;
    const std::int64_t from = first + static_cast<std::int64_t>(fromSeconds * 1e9);
    reader->seek(from);
    return [reader, first, from, isReached = false](tivra_sim::TimedBody& message) mutable {
        tivra_capture::Message recorded;
        while (reader->next(recorded)) {
            isReached = isReached || recorded.nanoseconds >= from;
            if (!isReached)
                continue;
            message.milliseconds = static_cast<double>(recorded.nanoseconds - first) / 1e6;
            message.body = recorded.body;
            return true;
        }
        return false;
    };
}
