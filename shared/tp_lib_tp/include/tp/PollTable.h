#pragma once

#include <cstddef>
#include <poll.h>

namespace tp {

/// The sources that one reactor watches, in no order. `Entry` is a source with its `events` and `revents`, as
/// poll(2) takes them. `Event` keeps the place of its own in `m_pollPos` and makes this class a friend.
/// Allocates nothing.
template<class Event, class Entry, int capacity>
class PollTable {
public:
    PollTable() = default;
    PollTable(const PollTable&) = delete;
    PollTable& operator=(const PollTable&) = delete;

    /// The object's entry, null when it has none.
    [[nodiscard]] static Entry* placeOf(const Event* event) noexcept { return event->m_pollPos; }

    [[nodiscard]] bool isFull() const noexcept { return m_count >= capacity; }
    [[nodiscard]] int size() const noexcept { return m_count; }
    [[nodiscard]] Entry* entries() noexcept { return m_pollList; }
    /// The object that a slot belongs to, null for one that is free.
    [[nodiscard]] Event* owner(int slot) const noexcept { return m_owners[slot]; }

    /// The object must have none yet, and the table room.
    void add(Event* event, const Entry& entry) noexcept {
        m_pollList[m_count] = entry;
        m_owners[m_count] = event;
        event->m_pollPos = &m_pollList[m_count];
        ++m_count;
    }

    /// The last entry takes the place of the object's, which becomes `unused` at the end.
    void remove(Event* event, const Entry& unused) noexcept {
        const auto slot = event->m_pollPos - m_pollList;
        const int last = --m_count;
        if (slot != last) {
            m_pollList[slot] = m_pollList[last];
            m_owners[slot] = m_owners[last];
            m_owners[slot]->m_pollPos = &m_pollList[slot];
        }
        m_pollList[last] = unused;
        m_owners[last] = nullptr;
        event->m_pollPos = nullptr;
    }

private:
    int m_count = 0;
    Entry m_pollList[static_cast<std::size_t>(capacity)] = {};
    Event* m_owners[static_cast<std::size_t>(capacity)] = {};
};

} // namespace tp
