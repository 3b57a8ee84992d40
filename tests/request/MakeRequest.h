#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "request/RequestInternal.h"

namespace tivra_internal {

/// A request for a symbol of source 100, with its tag.
inline std::unique_ptr<RequestInternal> makeRequest(int64_t tag, tivra::Commands command,
                                                    const std::string& symbol = "IBM") {
    RequestImpl builder;
    builder.setCommand(command);
    builder.add(4, 100);
    builder.add(5, symbol);
    auto request = std::make_unique<RequestInternal>(&builder);
    request->setTag(tag);
    return request;
}

/// An unsubscribe of a tag, or of none when that is negative.
inline std::unique_ptr<RequestInternal> makeUnsubscribe(int64_t tag, int64_t subscription) {
    RequestImpl builder;
    builder.setCommand(tivra::UNSUBSCRIBE);
    if (subscription >= 0)
        builder.add(5052, subscription);
    auto request = std::make_unique<RequestInternal>(&builder);
    request->setTag(tag);
    return request;
}

} // namespace tivra_internal
