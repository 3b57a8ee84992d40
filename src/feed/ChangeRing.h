#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tivra_internal {

/// The last changes of a board, by the index of the row. Writers take a place each and never wait. @thread
/// any
class ChangeRing {
public:
    static constexpr std::size_t kPlaces = 65'536;

    /// What stands at a place.
    enum class Place {
        Entered,
        NotYet, ///< its writer is about to enter it
        Gone    ///< a later change has taken it
    };

    /// Enters a change. @return its position, the first being 0
    std::uint64_t add(std::uint32_t row) noexcept {
        const std::uint64_t position = m_end.fetch_add(1, std::memory_order_relaxed);
        m_places[position % kPlaces].store(tagOf(position) << 32 | row, std::memory_order_release);
        return position;
    }
    /// After the last change.
    [[nodiscard]] std::uint64_t end() const noexcept { return m_end.load(std::memory_order_acquire); }

    /// The row of a change; of no meaning unless it is Entered.
    [[nodiscard]] Place look(std::uint64_t position, std::uint32_t& row) const noexcept {
        const std::uint64_t place = m_places[position % kPlaces].load(std::memory_order_acquire);
        row = static_cast<std::uint32_t>(place);
        const auto found = static_cast<std::uint32_t>(place >> 32);
        const auto wanted = static_cast<std::uint32_t>(tagOf(position));
        if (found == wanted)
            return Place::Entered;
        return static_cast<std::int32_t>(found - wanted) < 0 ? Place::NotYet : Place::Gone;
    }

private:
    /// In 32 bits, from 1, since an empty place is 0.
    [[nodiscard]] static std::uint64_t tagOf(std::uint64_t position) noexcept {
        return static_cast<std::uint32_t>(position + 1);
    }

    std::atomic<std::uint64_t> m_end{0};
    std::array<std::atomic<std::uint64_t>, kPlaces> m_places{};
};

} // namespace tivra_internal
