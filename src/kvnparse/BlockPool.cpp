#include "kvnparse/BlockPool.h"

#include <algorithm>
#include <bit>

namespace KVNAPI {
namespace {

/// Set when the thread has ended its pool. A message that lives longer gives its blocks to the heap.
thread_local bool t_ended = false;
thread_local BlockPool t_pool;

} // namespace

BlockPool::~BlockPool() {
    t_ended = true;
}

BlockPool::Spares& BlockPool::sparesOf(std::size_t size) noexcept {
    return t_pool.m_spares[static_cast<std::size_t>(std::countr_zero(size) - std::countr_zero(kSmallest))];
}

Block BlockPool::take(std::size_t size) {
    size = std::bit_ceil(std::max(size, kSmallest));
    if (size <= kLargest && !t_ended)
        for (std::unique_ptr<std::byte[]>& spare : sparesOf(size))
            if (spare != nullptr)
                return {spare.release(), BlockReturn{size}};
    return {new std::byte[size], BlockReturn{size}};
}

void BlockReturn::operator()(std::byte* block) const noexcept {
    std::unique_ptr<std::byte[]> owned(block);
    if (size > BlockPool::kLargest || t_ended)
        return;
    for (std::unique_ptr<std::byte[]>& spare : BlockPool::sparesOf(size)) {
        if (spare == nullptr) {
            spare = std::move(owned);
            return;
        }
    }
}

} // namespace KVNAPI
