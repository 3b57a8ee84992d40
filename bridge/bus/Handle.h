#pragma once

#include <memory>

namespace tivra_bus {

/// Owns what a client library in C gives out.
template<class T, auto DESTROY>
struct HandleDestroy {
    void operator()(T* handle) const noexcept { DESTROY(handle); }
};
template<class T, auto DESTROY>
using Handle = std::unique_ptr<T, HandleDestroy<T, DESTROY>>;

} // namespace tivra_bus
