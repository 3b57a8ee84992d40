#pragma once

#include <zlib.h>

#include <cstdint>
#include <string_view>

namespace tivra_capture {

[[nodiscard]] inline std::uint32_t checksum(std::string_view bytes) {
    return static_cast<std::uint32_t>(
        ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size()));
}

} // namespace tivra_capture
