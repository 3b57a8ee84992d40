#include "feed/RecordPool.h"

#include <array>
#include <atomic>
#include <new>
#include <utility>

namespace tivra_internal {
namespace {

constexpr std::size_t kSizes = RecordPool::kLargest / RecordPool::kStep;
constexpr std::size_t kChain = 32;  ///< blocks that change threads together
constexpr std::size_t kPlaces = 16; ///< chains of each size that wait for a thread

struct Spare {
    Spare* next;
};

/// Full chains that one thread has given up, and others may take. A chain is put into an empty place and
/// taken out by an exchange, so nobody looks into one that is somebody else's.
class Exchange {
public:
    /// False when there is no place.
    [[nodiscard]] bool put(Spare* chain) noexcept {
        for (std::atomic<Spare*>& place : m_places) {
            Spare* empty = nullptr;
            if (place.load(std::memory_order_relaxed) == nullptr &&
                place.compare_exchange_strong(empty, chain, std::memory_order_release,
                                              std::memory_order_relaxed))
                return true;
        }
        return false;
    }
    /// Null when there is none.
    [[nodiscard]] Spare* take() noexcept {
        for (std::atomic<Spare*>& place : m_places) {
            if (place.load(std::memory_order_relaxed) == nullptr)
                continue;
            if (Spare* const chain = place.exchange(nullptr, std::memory_order_acquire))
                return chain;
        }
        return nullptr;
    }

private:
    std::array<std::atomic<Spare*>, kPlaces> m_places{};
};

constinit std::array<Exchange, kSizes> s_exchanges;

struct Chain {
    Spare* first = nullptr;
    std::size_t length = 0;

    void push(void* block) noexcept {
        first = new (block) Spare{first};
        ++length;
    }
    [[nodiscard]] void* pop() noexcept {
        --length;
        return std::exchange(first, first->next);
    }
    void free() noexcept {
        while (length != 0)
            ::operator delete(pop());
    }
};

/// The blocks of one size that a thread has. Two chains, so that a thread that takes and gives in turn hardly
/// ever goes to the exchange.
struct Spares {
    Chain current;
    Chain full; ///< full or empty
};

/// Set when the thread has dropped its blocks: records that live longer go to the heap.
thread_local bool t_ended = false;

struct ThreadSpares {
    std::array<Spares, kSizes> sizes;

    ~ThreadSpares() {
        t_ended = true;
        for (Spares& spares : sizes) {
            spares.current.free();
            spares.full.free();
        }
    }
};

thread_local ThreadSpares t_spares;

[[nodiscard]] constexpr std::size_t indexOf(std::size_t size) noexcept {
    return (size - 1) / RecordPool::kStep;
}

} // namespace

void* RecordPool::take(std::size_t size) {
    if (size > kLargest || t_ended)
        return ::operator new((indexOf(size) + 1) * kStep);
    const std::size_t index = indexOf(size);
    Spares& spares = t_spares.sizes[index];
    if (spares.current.length == 0) {
        if (spares.full.length != 0)
            std::swap(spares.current, spares.full);
        else if (Spare* const chain = s_exchanges[index].take())
            spares.current = {chain, kChain};
        else
            return ::operator new((index + 1) * kStep);
    }
    return spares.current.pop();
}

void RecordPool::giveBack(void* block, std::size_t size) noexcept {
    if (size > kLargest || t_ended) {
        ::operator delete(block);
        return;
    }
    const std::size_t index = indexOf(size);
    Spares& spares = t_spares.sizes[index];
    if (spares.current.length == kChain) {
        if (spares.full.length != 0 && s_exchanges[index].put(spares.full.first))
            spares.full = {};
        spares.full.free();
        spares.full = std::exchange(spares.current, {});
    }
    spares.current.push(block);
}

} // namespace tivra_internal
