#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace tivra_internal {

/// Has what the pointer owns stay for good, without asking for memory, which a destructor may be refused.
template<class T>
void leaveAlive(std::shared_ptr<T>& owner) noexcept {
    alignas(std::shared_ptr<T>) std::byte room[sizeof(std::shared_ptr<T>)];
    ::new (static_cast<void*>(room)) std::shared_ptr<T>(std::move(owner));
}

} // namespace tivra_internal
