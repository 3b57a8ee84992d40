#include "feed/BoardBlock.h"

#include <new>
#include <type_traits>
#include <utility>

namespace tivra_internal {

static_assert(sizeof(BoardBlock) % alignof(BoardBlock::Word) == 0);
static_assert(std::is_trivially_destructible_v<BoardBlock::Word>);

BoardBlock::BoardBlock(std::size_t size, Ptr smaller) noexcept : m_size(size), m_smaller(std::move(smaller)) {
    std::uninitialized_value_construct_n(words(), m_size);
}

BoardBlock::Ptr BoardBlock::make(std::size_t size, Ptr smaller) {
    return Ptr(new (::operator new(bytesFor(size))) BoardBlock(size, std::move(smaller)));
}

void BoardBlock::Deleter::operator()(BoardBlock* block) const noexcept {
    block->~BoardBlock();
    ::operator delete(block);
}

} // namespace tivra_internal
