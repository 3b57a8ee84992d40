#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_bus {

/// The names of fields as they stand before their values, each written once, and which of them the message at
/// hand has had. @thread one at a time
class FieldNames {
public:
    /// Those of this thread.
    [[nodiscard]] static FieldNames& ofThread();

    /// Begins another message.
    void begin();
    /// The name in quotes, with a comma before and a colon after it, valid until the next call; empty for a
    /// name that the message has had.
    [[nodiscard]] std::string_view next(const std::string& name);

private:
    struct Slot {
        const std::string* place = nullptr; ///< where the name stood, as it does each time as a rule
        std::string name;
        std::string text;
        std::uint64_t message = 0; ///< that had it last
    };

    /// The one of a place, or the free one for it.
    [[nodiscard]] Slot& slotAt(const std::string* place);
    [[nodiscard]] Slot& slotOf(const std::string& name);
    void grow();

    std::vector<Slot> m_slots; ///< a power of two, of which less than half are in use
    std::size_t m_count = 0;
    std::uint64_t m_message = 0;
};

} // namespace tivra_bus
