#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tivra_bus {

/// What a record of a batch is.
enum class RecordType {
    Update,  ///< what has changed
    Image,   ///< the present state, after subscribing and after a gap
    Refresh, ///< the present state, sent without being asked for
    State,   ///< whether the values of the symbol can be relied on has changed
    Gap      ///< what was sent in a time is missing
};

inline constexpr std::array kRecordTypes{RecordType::Update, RecordType::Image, RecordType::Refresh,
                                         RecordType::State, RecordType::Gap};
/// "update", "image" and so on.
[[nodiscard]] const char* nameOf(RecordType type);

/// A value as the hub's dictionary types it; a time is a text such as "2013-10-07T13:30:00.123456Z".
using BusValue = std::variant<std::int64_t, double, std::string>;
/// In the order of the message; a name may come more than once.
/// That a reader takes of a record, since each value has its field's name beside it: names in bytes, and
/// values.
inline constexpr std::size_t kMostFieldName = 256;
inline constexpr std::size_t kMostValues = 1U << 16;

using BusFields = std::vector<std::pair<std::string, BusValue>>;

/// A state of the values of a symbol or a time that is missing, as a record of a stream has it.
struct BusGap {
    /// "loss", "withdrawal", "overrun" and "conflation" between hub and bridge; "takeover" when another
    /// bridge has taken over, and "overflow" when the bridge had to leave out what the engine was too slow
    /// for.
    std::string cause;
    std::string from, to;                         ///< the time, in texts
    std::optional<std::uint64_t> messages, bytes; ///< what is missing, where that is known
};

/// A record of a batch, read.
struct BusRecord {
    RecordType type = RecordType::Update;
    int source = 0;
    std::string symbol; ///< empty for a gap of all symbols of the partition
    /// Counts updates, images and refreshes of the symbol within the writer's epoch, from 1; what states and
    /// gaps have is that of the last before them.
    std::uint64_t number = 0;
    BusFields fields;
    std::string state; ///< of State: "live", "stale" and so on
    std::string cause; ///< of State
    BusGap gap;        ///< of Gap
};

} // namespace tivra_bus
