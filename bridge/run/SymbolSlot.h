#pragma once

#include "bus/SymbolImage.h"
#include "bus/SymbolName.h"

#include <feed/Subscription.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tivra_bus {

/// What a partition's writer knows of a symbol.
struct SymbolSlot {
    SymbolSlot(int source, std::string_view symbol, std::uint32_t ofIndex)
        : name(source, symbol), index(ofIndex) {}

    std::uint64_t number = 0; ///< of the last record of values
    tivra::DataState state = tivra::DataState::Pending;
    bool hasImage = false;  ///< a part of the present one has come, so that others add to it
    bool isChanged = false; ///< since the last values were looked at
    bool isLeftOut = false; ///< its present values have to be written before anything else
    bool isQueued = false;  ///< among those that are repaired in turn
    std::optional<std::chrono::system_clock::time_point> lastUpdate;
    SymbolImage image;
    const SymbolName name;
    const std::uint32_t index;
};

} // namespace tivra_bus
