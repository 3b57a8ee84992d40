#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tivra_internal {

/// When the frames in a ring were read: a mark for each read, with the place up to which it has completed
/// frames. It costs a store for each read and a look for each batch, and a search for whoever asks.
///
/// The thread that reads sets a mark before it publishes the frames. The one that takes them out says where
/// the batch begins and ends that it takes next; it forgets marks with the batch that they were for.
class ReadTimes {
public:
    /// Where the frames lie; borrowed. Before anything else.
    void setRing(const char* ring, std::size_t size) noexcept {
        m_ring = m_begin = ring;
        m_size = size;
    }

    /// Frames are complete up to there, by a read at that time. With kMarks set already those frames count as
    /// read with the ones before.
    /// @param drained  all that had come to this machine by then stands before that place
    /// @thread hub
    void add(const char* end, double time, double drained) noexcept {
        const std::uint32_t place = m_added.load(std::memory_order_relaxed);
        if (place - m_forgotten.load(std::memory_order_acquire) == kMarks)
            return;
        m_marks[place % kMarks] = {end, time, drained};
        m_added.store(place + 1, std::memory_order_release);
    }
    /// Everything is taken out up to the first place, and what is published up to the second comes next.
    /// @thread consumer
    void beginBatch(const char* begin, const char* end) noexcept;
    /// The time of a frame that begins there, in the present batch; 0 when there is no mark for it.
    /// @thread consumer
    [[nodiscard]] double timeOf(const char* frame) const noexcept;
    /// All that had come to this machine by then has been taken out, when everything is up to there; at most
    /// that where the marks weren't enough, and 0 when nothing was. @thread consumer
    [[nodiscard]] double drainedUpTo(const char* place) const noexcept;
    /// What isn't taken out yet goes unread. @thread hub, while nobody takes frames out
    /// @param taken  everything up to there has been
    void clear(const char* taken) noexcept;

private:
    struct Mark {
        const char* end = nullptr;
        double time = 0.0;
        double drained = 0.0;
    };
    static constexpr std::uint32_t kMarks = 1024;

    /// The first mark that lies farther behind the beginning of the batch. @thread consumer
    [[nodiscard]] std::uint32_t firstBehind(std::size_t length) const noexcept;
    /// How far a place lies behind the beginning of the batch.
    [[nodiscard]] std::size_t distance(const char* place) const noexcept {
        const auto difference = place - m_begin;
        return static_cast<std::size_t>(difference >= 0 ? difference
                                                        : difference + static_cast<std::ptrdiff_t>(m_size));
    }

    const char* m_ring = nullptr;
    std::size_t m_size = 0;
    std::array<Mark, kMarks> m_marks;
    std::atomic<std::uint32_t> m_added{0};
    alignas(64) std::atomic<std::uint32_t> m_forgotten{0};
    // The consumer's.
    const char* m_begin = nullptr; ///< of the batch
    std::size_t m_length = 0;      ///< of the batch
    std::uint32_t m_known = 0;     ///< marks up to here may be of the batch, and no later ones
    double m_drainedAt = 0.0;      ///< of the last mark before the batch
};

} // namespace tivra_internal
