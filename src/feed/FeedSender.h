#pragma once

#include <cstdint>

#include <feed/Instrument.h>
#include <request/Commands.h>

namespace tivra_internal {

/// How a feed's requests reach its session. @thread any
class FeedSender {
public:
    virtual ~FeedSender() = default;

    /// A tag for a request to come.
    [[nodiscard]] virtual int64_t nextTag() = 0;
    /// @param instrument  its source and its symbol go along where they aren't 0 and empty
    /// @param origin  the tag of the request that this one ends; 0 for none
    /// @return false when there is no room for it
    [[nodiscard]] virtual bool send(tivra::Commands command, const tivra::Instrument& instrument, int64_t tag,
                                    int64_t origin) = 0;
};

} // namespace tivra_internal
