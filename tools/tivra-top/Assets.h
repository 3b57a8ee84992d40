#pragma once

#include <cstddef>
#include <span>

namespace tivra_top {

/// A file of the page, which is part of the program.
struct Asset {
    const char* path; ///< "/page.js"
    const char* type; ///< for Content-Type
    const unsigned char* bytes;
    std::size_t size;
};

[[nodiscard]] std::span<const Asset> assets();

} // namespace tivra_top
