#pragma once

#include <array>
#include <cstddef>
#include <memory>

namespace KVNAPI {

/// Gives a block back to the pool of the thread that drops it.
struct BlockReturn {
    std::size_t size = 0;
    void operator()(std::byte* block) const noexcept;
};

/// A block of memory for what a message can't hold inline.
using Block = std::unique_ptr<std::byte[], BlockReturn>;

/// Blocks that messages of one thread have given back, for those that come after them: a feed of large
/// messages allocates nothing once it has had its first ones. Holds a few blocks of each power of two.
class BlockPool {
public:
    static constexpr std::size_t kSmallest = 128;
    static constexpr std::size_t kLargest = 524'288; ///< larger blocks aren't kept

    BlockPool() = default;
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;
    ~BlockPool();

    /// A block of at least `size` bytes, uninitialised. Throws std::bad_alloc.
    [[nodiscard]] static Block take(std::size_t size);

private:
    friend struct BlockReturn;

    static constexpr std::size_t kSizes = 13; ///< from the smallest to the largest
    static_assert(kSmallest << (kSizes - 1) == kLargest);

    /// One for the pairs and one for the text of a message.
    using Spares = std::array<std::unique_ptr<std::byte[]>, 2>;

    [[nodiscard]] static Spares& sparesOf(std::size_t size) noexcept;

    std::array<Spares, kSizes> m_spares;
};

} // namespace KVNAPI
