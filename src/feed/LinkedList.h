#pragma once

namespace tivra_internal {

/// The places of an element in a LinkedList.
template<class T>
struct Links {
    T* previous = nullptr;
    T* next = nullptr;
};

/// A list whose elements, which it doesn't own, hold their links in a member: an element can be taken out
/// from anywhere, and be in several lists. @thread one at a time
template<class T, Links<T> T::*Member>
class LinkedList {
public:
    [[nodiscard]] T* first() const noexcept { return m_ends.next; }
    [[nodiscard]] T* last() const noexcept { return m_ends.previous; }
    [[nodiscard]] static T* after(const T& element) noexcept { return (element.*Member).next; }
    [[nodiscard]] static T* before(const T& element) noexcept { return (element.*Member).previous; }

    void pushBack(T& element) noexcept {
        element.*Member = {m_ends.previous, nullptr};
        linksBefore(element).next = &element;
        m_ends.previous = &element;
    }
    void remove(T& element) noexcept {
        const Links<T> links = element.*Member;
        linksBefore(element).next = links.next;
        (links.next != nullptr ? links.next->*Member : m_ends).previous = links.previous;
    }

private:
    [[nodiscard]] Links<T>& linksBefore(const T& element) noexcept {
        T* const previous = (element.*Member).previous;
        return previous != nullptr ? previous->*Member : m_ends;
    }

    Links<T> m_ends; ///< the last and the first
};

} // namespace tivra_internal
