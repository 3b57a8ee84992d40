#pragma once

#include <librdkafka/rdkafka.h>

#include <memory>

namespace tivra_bus {

/// Owns what the client library gives out.
template<class T, auto DESTROY>
struct KafkaDestroy {
    void operator()(T* handle) const noexcept { DESTROY(handle); }
};
template<class T, auto DESTROY>
using KafkaHandle = std::unique_ptr<T, KafkaDestroy<T, DESTROY>>;

using KafkaAdminOptions = KafkaHandle<rd_kafka_AdminOptions_t, rd_kafka_AdminOptions_destroy>;
using KafkaConf = KafkaHandle<rd_kafka_conf_t, rd_kafka_conf_destroy>;
using KafkaConfigResource = KafkaHandle<rd_kafka_ConfigResource_t, rd_kafka_ConfigResource_destroy>;
using KafkaEvent = KafkaHandle<rd_kafka_event_t, rd_kafka_event_destroy>;
using KafkaHeaders = KafkaHandle<rd_kafka_headers_t, rd_kafka_headers_destroy>;
using KafkaMessage = KafkaHandle<rd_kafka_message_t, rd_kafka_message_destroy>;
using KafkaMetadata = KafkaHandle<const rd_kafka_metadata_t, rd_kafka_metadata_destroy>;
using KafkaNewTopic = KafkaHandle<rd_kafka_NewTopic_t, rd_kafka_NewTopic_destroy>;
using KafkaPartitions = KafkaHandle<rd_kafka_topic_partition_list_t, rd_kafka_topic_partition_list_destroy>;
using KafkaQueue = KafkaHandle<rd_kafka_queue_t, rd_kafka_queue_destroy>;

} // namespace tivra_bus
