#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace tivra_internal {

/// The words of a board's line, in one piece of memory with their number: a line of a large board isn't in
/// the processor's cache, and each step from one piece to the next would wait for memory once more.
class BoardBlock {
public:
    using Word = std::atomic<std::uint64_t>;
    struct Deleter {
        void operator()(BoardBlock* block) const noexcept;
    };
    using Ptr = std::unique_ptr<BoardBlock, Deleter>;

    /// So many words of zero. `smaller` goes with it: readers may still be in it.
    [[nodiscard]] static Ptr make(std::size_t size, Ptr smaller);
    BoardBlock(const BoardBlock&) = delete;
    BoardBlock& operator=(const BoardBlock&) = delete;

    [[nodiscard]] std::size_t size() const noexcept { return m_size; }
    [[nodiscard]] const BoardBlock* smaller() const noexcept { return m_smaller.get(); }
    [[nodiscard]] std::size_t bytes() const noexcept { return bytesFor(m_size); }
    [[nodiscard]] Word& word(std::size_t place) noexcept { return words()[place]; }
    [[nodiscard]] const Word& word(std::size_t place) const noexcept {
        return const_cast<BoardBlock*>(this)->words()[place];
    }

    [[nodiscard]] static std::size_t bytesFor(std::size_t size) noexcept {
        return sizeof(BoardBlock) + size * sizeof(Word);
    }

private:
    BoardBlock(std::size_t size, Ptr smaller) noexcept;
    ~BoardBlock() = default;

    [[nodiscard]] Word* words() noexcept { return reinterpret_cast<Word*>(this + 1); }

    const std::size_t m_size;
    const Ptr m_smaller;
};

} // namespace tivra_internal
