#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include <feed/Error.h>
#include <feed/UpdateQueue.h>

#include "feed/LinkedList.h"
#include "feed/RecordPool.h"

namespace tivra_internal {

struct QueueLane;
struct QueueSymbol;

/// What a state or a gap in a queue has beside what an update has.
struct QueueNotice {
    std::string symbol;
    std::string cause;
    std::shared_ptr<const tivra::Error> error;
    tivra::StateChange state;
    tivra::Gap gap;
};

/// An event that waits in a queue.
struct QueueNode {
    using Kind = tivra::QueueEvent::Kind;

    Kind kind = Kind::Update;
    QueueLane* lane = nullptr;
    QueueSymbol* symbol = nullptr;
    std::uint64_t subscription = 0;
    int source = 0;
    tivra::Record record;
    std::unique_ptr<QueueNotice> notice; ///< null for an update
    std::size_t bytes = 0;
    std::uint64_t dropped = 0;
    std::uint64_t droppedBytes = 0;
    std::uint64_t merged = 0;
    std::uint64_t section = 0; ///< of its lane
    std::chrono::system_clock::time_point time;
    Links<QueueNode> inQueue;
    Links<QueueNode> inLane;

    [[nodiscard]] bool isUpdate() const noexcept { return notice == nullptr; }

    static void* operator new(std::size_t size) { return RecordPool::take(size); }
    static void operator delete(void* node, std::size_t size) noexcept { RecordPool::giveBack(node, size); }
};

/// A symbol of a lane.
struct QueueSymbol {
    QueueNode* open = nullptr; ///< its last update, if that waits
    std::size_t waiting = 0;   ///< events
    std::uint64_t dropped = 0;
    std::uint64_t merged = 0;
    std::uint64_t droppedSince = 0; ///< its last event
    std::uint64_t droppedBytesSince = 0;
};

/// What a queue knows of one subscription. Its sections are the times between two states or gaps.
struct QueueLane {
    struct Hash {
        using is_transparent = void;
        [[nodiscard]] std::size_t operator()(std::string_view text) const noexcept {
            return std::hash<std::string_view>()(text);
        }
    };
    using Symbols = std::unordered_map<std::string, QueueSymbol, Hash, std::equal_to<>>;

    std::uint64_t id = 0;
    int source = 0;
    std::string symbol;
    bool isOpen = true; ///< the subscription hasn't ended
    tivra::DataState state = tivra::DataState::Pending;
    bool expectsImage = true; ///< the next image is the first part of one
    std::uint64_t section = 0;
    Symbols symbols; ///< one, unless the subscription is for a pattern
    std::size_t sweepAt = 1024;
    std::uint64_t droppedSince = 0; ///< of symbols that have been forgotten; see kMostSymbols
    std::uint64_t droppedBytesSince = 0;
    Symbols::value_type* current = nullptr; ///< the one that was used last
    LinkedList<QueueNode, &QueueNode::inLane> events;
    std::size_t states = 0; ///< that wait
    std::size_t gaps = 0;

    /// Entered if it isn't there.
    [[nodiscard]] QueueSymbol& symbolOf(std::string_view name) {
        if (current == nullptr || current->first != name)
            current = &find(name);
        return current->second;
    }

private:
    /// A hub may name symbols without end for a pattern, and drops of each would be kept. Above so many the
    /// next event of the subscription reports them.
    static constexpr std::size_t kMostSymbols = 1'000'000;

    [[nodiscard]] Symbols::value_type& find(std::string_view name) {
        if (const auto found = symbols.find(name); found != symbols.end())
            return *found;
        if (symbols.size() >= sweepAt) { // the symbols of a pattern have no end
            const bool isCrowded = symbols.size() >= kMostSymbols;
            std::erase_if(symbols, [this, isCrowded](const Symbols::value_type& one) {
                const QueueSymbol& known = one.second;
                if (known.waiting != 0 || (known.droppedSince != 0 && !isCrowded))
                    return false;
                droppedSince += known.droppedSince;
                droppedBytesSince += known.droppedBytesSince;
                return true;
            });
            sweepAt = 2 * symbols.size() + 1024;
        }
        return *symbols.emplace(name, QueueSymbol()).first;
    }
};

} // namespace tivra_internal
