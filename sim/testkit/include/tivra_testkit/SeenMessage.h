#pragma once

#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <tivra.h>

namespace tivra_testkit {

/// A message as the application saw it, which outlives the callback.
struct SeenMessage {
    using Field = std::pair<int, std::string>; ///< token and value

    explicit SeenMessage(const tivra::MessageEvent& event);

    /// Whether it ends a request: a status or the end of an image.
    [[nodiscard]] bool isEnd() const {
        return type == tivra::MessageEvent::STATUS || type == tivra::MessageEvent::IMAGE_COMPLETE;
    }
    /// The value of the first field of `token`, empty when there is none.
    [[nodiscard]] std::string field(int token) const;

    tivra::MessageEvent::Types type;
    std::int64_t tag;
    int status;
    std::string statusText;
    int source;
    int permission;
    std::string symbol;
    int conflatable;
    char partCode;
    int displayPrecision;
    std::vector<Field> fields;
    std::vector<Field> alternates;
    std::thread::id thread; ///< that the callback ran on
};

} // namespace tivra_testkit
