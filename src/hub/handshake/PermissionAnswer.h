#pragma once

#include <cstdint>

#include <tp/eprintf.h>

#include "hub/MessageReading.h"

namespace tivra_internal {

/// No more sources are taken from one answer.
inline constexpr int kMaxSources = 100'000;

/// The permissions of an answer: the first stands in the message's header, the others before the status.
struct PermissionAnswer {
    MessageField permission;
    MessageField status;

    PermissionAnswer(const KVNAPI::DataMap& dictionary, const KVNAPI::Message& msg)
        : permission(dictionary, msg, "PERMISSION"), status(dictionary, msg, "ENUM.QUERY.STATUS") {}

    [[nodiscard]] bool isReadable(const char* operation) const {
        if (!permission.isDefined())
            eprintf(EPF_WARN, "HubClient::%s: PERMISSION not defined!", operation);
        else if (!status.isDefined())
            eprintf(EPF_WARN, "HubClient::%s: ENUM.QUERY.STATUS not defined!", operation);
        return permission.isDefined() && status.isDefined();
    }

    /// Calls `visit(source)` for the sources among the pairs, up to the status.
    template<class Visit>
    void forEachFurther(const KVNAPI::Message& msg, const Visit& visit) const {
        for (int i = 0; i < msg.pairCount() && i < kMaxSources && !status.isIn(*msg.pair(i)); ++i) {
            if (!permission.isIn(*msg.pair(i)))
                continue;
            const int64_t source = integerOf(*msg.pair(i));
            if (source >= INT32_MIN && source <= INT32_MAX)
                visit(static_cast<int>(source));
        }
    }
};

} // namespace tivra_internal
