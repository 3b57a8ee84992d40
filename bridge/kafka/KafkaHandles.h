#pragma once

#include "bus/Handle.h"

#include <librdkafka/rdkafka.h>

namespace tivra_bus {

using KafkaAdminOptions = Handle<rd_kafka_AdminOptions_t, rd_kafka_AdminOptions_destroy>;
using KafkaConf = Handle<rd_kafka_conf_t, rd_kafka_conf_destroy>;
using KafkaConfigResource = Handle<rd_kafka_ConfigResource_t, rd_kafka_ConfigResource_destroy>;
using KafkaEvent = Handle<rd_kafka_event_t, rd_kafka_event_destroy>;
using KafkaHeaders = Handle<rd_kafka_headers_t, rd_kafka_headers_destroy>;
using KafkaMessage = Handle<rd_kafka_message_t, rd_kafka_message_destroy>;
using KafkaMetadata = Handle<const rd_kafka_metadata_t, rd_kafka_metadata_destroy>;
using KafkaNewTopic = Handle<rd_kafka_NewTopic_t, rd_kafka_NewTopic_destroy>;
using KafkaPartitions = Handle<rd_kafka_topic_partition_list_t, rd_kafka_topic_partition_list_destroy>;
using KafkaQueue = Handle<rd_kafka_queue_t, rd_kafka_queue_destroy>;

} // namespace tivra_bus
