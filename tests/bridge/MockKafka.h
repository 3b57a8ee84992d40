#pragma once

#include "kafka/KafkaAddress.h"
#include "kafka/KafkaNames.h"

#include <librdkafka/rdkafka.h>
#include <librdkafka/rdkafka_mock.h>

#include <chrono>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace bridge_test {

/// A broker in this process, of the client library's own, with the topics of a bus of two partitions.
class MockKafka {
public:
    static constexpr unsigned kPartitions = 2;
    /// Beyond that it drops the first messages of a partition.
    static constexpr std::size_t kMostPartitionBytes = 5U << 20;

    MockKafka() {
        char error[256] = {};
        m_handle = rd_kafka_new(RD_KAFKA_PRODUCER, nullptr, error, sizeof error);
        if (m_handle == nullptr)
            throw std::runtime_error(error);
        m_cluster = rd_kafka_mock_cluster_new(m_handle, 1);
        for (const auto& [topic, partitions] :
             {std::pair{tivra_bus::kTickTopic, kPartitions}, std::pair{tivra_bus::kLastTopic, kPartitions},
              std::pair{tivra_bus::kStatusTopic, 1U}, std::pair{tivra_bus::kDictionaryTopic, 1U},
              std::pair{tivra_bus::kLeaseTopic, 1U}})
            rd_kafka_mock_topic_create(m_cluster, topic, static_cast<int>(partitions), 1);
    }
    ~MockKafka() {
        rd_kafka_mock_cluster_destroy(m_cluster);
        rd_kafka_destroy(m_handle);
    }
    MockKafka(const MockKafka&) = delete;
    MockKafka& operator=(const MockKafka&) = delete;

    [[nodiscard]] tivra_bus::KafkaAddress address() const {
        tivra_bus::KafkaAddress address;
        address.servers = {rd_kafka_mock_cluster_bootstraps(m_cluster)};
        address.name = "test";
        address.patience = std::chrono::seconds(30);
        return address;
    }
    void refuseNextProduce(rd_kafka_resp_err_t error) {
        constexpr std::int16_t kProduce = 0;
        rd_kafka_mock_push_request_errors(m_cluster, kProduce, 1, error);
    }
    /// Each answer takes so long.
    void delay(std::chrono::milliseconds time) {
        rd_kafka_mock_broker_set_rtt(m_cluster, 1, static_cast<int>(time.count()));
    }

private:
    rd_kafka_t* m_handle = nullptr;
    rd_kafka_mock_cluster_t* m_cluster = nullptr;
};

} // namespace bridge_test
