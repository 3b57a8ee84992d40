#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

#include <feed/ReadyDescriptor.h>
#include <feed/UpdateQueue.h>
#include <tp/Mutex.h>

#include "EventQueue.h"
#include "bus/BusFields.h"

namespace tivra_python {

/// Events of the bus that wait for their reader. States and gaps are never dropped: those of a symbol that
/// nobody reads for long come to one. @thread any
class BusQueue : public EventQueue {
public:
    /// @throws tivra::Error (InvalidArgument)
    BusQueue(const tivra::QueueOptions& options, BusFields fields);

    /// @return how many have been pushed, this one included
    std::uint64_t push(Event&& event) TP_EXCLUDES(m_mutex);
    /// Where the policy is to block: until the reader has made room, or need not.
    /// @param order  what push() has returned
    void waitForRoom(std::uint64_t order) TP_EXCLUDES(m_mutex);
    /// Nobody waits for room who has pushed before now.
    void letPass() TP_EXCLUDES(m_mutex);
    /// Nobody waits any more.
    void endWaiting() TP_EXCLUDES(m_mutex);

    std::size_t poll(std::size_t most, const Handler& handler) override TP_EXCLUDES(m_mutex);
    bool wait(std::chrono::nanoseconds timeout) override TP_EXCLUDES(m_mutex);
    [[nodiscard]] int descriptor() override TP_EXCLUDES(m_mutex);
    [[nodiscard]] EventQueueFigures figures() const override TP_EXCLUDES(m_mutex);

private:
    using Key = std::pair<int, std::string>;
    struct Node {
        Event event;
        std::size_t bytes = 0;
        std::uint64_t order = 0; ///< counts what was pushed, from 1
        bool isUpdate = false;
    };
    using Nodes = std::list<Node>;
    /// Notices of one kind that wait.
    struct Notices {
        std::size_t count = 0;
        Nodes::iterator last;
    };
    /// What is known of a symbol.
    struct Lane {
        std::size_t waiting = 0;     ///< events
        std::uint64_t dropped = 0;   ///< that nobody has been told of
        std::uint64_t droppedAt = 0; ///< the order of the last of them
        Nodes::iterator last;        ///< its update that waits and that others are merged into
        bool hasLast = false;
        Notices states;
        Notices gaps;

        [[nodiscard]] Notices& noticesOf(const Event& event) { return event.state ? states : gaps; }
    };

    [[nodiscard]] bool isFull() const TP_REQUIRES(m_mutex);
    void append(Lane& lane, Event&& event, bool isUpdate) TP_REQUIRES(m_mutex);
    [[nodiscard]] bool merge(Lane& lane, const Event& event) TP_REQUIRES(m_mutex);
    [[nodiscard]] bool mergeNotice(Notices& notices, const Event& event) TP_REQUIRES(m_mutex);
    void dropOldest() TP_REQUIRES(m_mutex);
    void forget(Lane& lane, const Node& node) TP_REQUIRES(m_mutex);

    const tivra::QueueOptions m_options;
    const BusFields m_fields;
    mutable tp::Mutex m_mutex;
    tp::ConditionVariable m_hasEvents;
    tp::ConditionVariable m_hasRoom;
    Nodes m_nodes TP_GUARDED_BY(m_mutex);
    std::map<Key, Lane> m_lanes TP_GUARDED_BY(m_mutex);
    EventQueueFigures m_figures TP_GUARDED_BY(m_mutex);
    std::size_t m_bytes TP_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_order TP_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_passes TP_GUARDED_BY(m_mutex) = 0; ///< see letPass()
    bool m_isWaitingOver TP_GUARDED_BY(m_mutex) = false;
    tivra_internal::ReadyDescriptor m_descriptor TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_python
