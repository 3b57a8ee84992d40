#pragma once

#include <librdkafka/rdkafka.h>

#include <cstddef>
#include <string_view>

namespace tivra_bus {

/// The last header of that name, which lives as long as the message; empty where there is none.
[[nodiscard]] inline std::string_view messageHeader(const rd_kafka_message_t& message, const char* name) {
    rd_kafka_headers_t* headers = nullptr;
    const void* value = nullptr;
    std::size_t size = 0;
    if (rd_kafka_message_headers(&message, &headers) != RD_KAFKA_RESP_ERR_NO_ERROR ||
        rd_kafka_header_get_last(headers, name, &value, &size) != RD_KAFKA_RESP_ERR_NO_ERROR)
        return {};
    return {static_cast<const char*>(value), size};
}

} // namespace tivra_bus
