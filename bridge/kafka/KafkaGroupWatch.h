#pragma once

#include <librdkafka/rdkafka.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tivra_bus {

/// What goes between a member of a consumer group and its broker, as far as it shows how the group is.
/// @thread any
class KafkaGroupWatch {
public:
    using Clock = std::chrono::steady_clock;

    /// For a client that is made of `conf`, which this has to outlive.
    void watch(rd_kafka_conf_t* conf);

    /// Between the request to join and the answer that assigns. What is asked of the group meanwhile waits
    /// for it, and a commit is then of a generation that is over: the client library gives up all that is
    /// assigned for it, and the group forms again.
    [[nodiscard]] bool isForming() const { return m_isForming.load(); }
    /// When the broker has answered to this member last; when this was made before the first time.
    [[nodiscard]] Clock::time_point heard() const { return m_heard.load(); }

private:
    static rd_kafka_resp_err_t onNew(rd_kafka_t* handle, const rd_kafka_conf_t*, void* self, char*,
                                     std::size_t);
    static rd_kafka_resp_err_t onSent(rd_kafka_t*, int, const char*, std::int32_t, std::int16_t request,
                                      std::int16_t, std::int32_t, std::size_t, void* self);
    static rd_kafka_resp_err_t onAnswer(rd_kafka_t*, int, const char*, std::int32_t, std::int16_t request,
                                        std::int16_t, std::int32_t, std::size_t, std::int64_t,
                                        rd_kafka_resp_err_t error, void* self);

    std::atomic<bool> m_isForming{false};
    std::atomic<Clock::time_point> m_heard{Clock::now()};
};

} // namespace tivra_bus
