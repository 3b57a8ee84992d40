#include "kafka/KafkaLayout.h"

#include "bus/BusError.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

/// What a broker takes that says nothing else.
constexpr std::size_t kMostMessageBytes = 1'048'588;
/// Of a message's header, the key and the frame round it.
constexpr std::size_t kFrameBytes = 512;
constexpr int kReasonBytes = 512;
constexpr milliseconds kLookEvery{100};
/// A segment that is written to isn't compacted, and one of a quiet topic would be for a week.
constexpr milliseconds kSegment = std::chrono::minutes(10);
/// Longer than a bridge leaves an entry of its own as it is, by far.
constexpr milliseconds kLeasesKept = std::chrono::hours(1);

struct TopicPlan {
    std::string name;
    int partitions = 1;
    std::map<std::string, std::string> settings;
    /// Without these it is another topic than is meant.
    bool isCompacted = false;
};

std::vector<TopicPlan> plansOf(const BusLayout& layout) {
    const int partitions = static_cast<int>(layout.partitions);
    const auto age = std::chrono::duration_cast<milliseconds>(layout.maxAge).count();
    const std::map<std::string, std::string> compacted{{"cleanup.policy", "compact"}};
    return {{kTickTopic,
             partitions,
             {{"cleanup.policy", "delete"},
              {"retention.ms", std::to_string(age)},
              {"retention.bytes", std::to_string(layout.maxBytes)}},
             false},
            {kLastTopic,
             partitions,
             {{"cleanup.policy", "compact"}, {"segment.ms", std::to_string(kSegment.count())}},
             true},
            {kStatusTopic, 1, compacted, true},
            {kDictionaryTopic, 1, compacted, true},
            // The brokers' clock says what is old: bridges' clocks may be wrong.
            {kLeaseTopic,
             1,
             {{"cleanup.policy", "delete"},
              {"message.timestamp.type", "LogAppendTime"},
              {"retention.ms", std::to_string(kLeasesKept.count())},
              {"segment.ms", std::to_string(kSegment.count())}},
             false}};
}

/// The number of partitions of the topics that are there.
std::map<std::string, int> presentTopics(const KafkaClient& client) {
    const rd_kafka_metadata_t* raw = nullptr;
    client.check(rd_kafka_metadata(client.get(), 1, nullptr, &raw, client.patience()), "its topics");
    const KafkaMetadata metadata(raw);
    std::map<std::string, int> topics;
    for (int i = 0; i < raw->topic_cnt; ++i)
        if (raw->topics[i].err == RD_KAFKA_RESP_ERR_NO_ERROR)
            topics[raw->topics[i].topic] = raw->topics[i].partition_cnt;
    return topics;
}

/// Waits until the brokers have heard of all of them: a topic that was created isn't everywhere at once.
std::map<std::string, int> awaitTopics(const KafkaClient& client, const std::vector<TopicPlan>& plans) {
    const auto deadline = std::chrono::steady_clock::now() + milliseconds(client.patience());
    for (;;) {
        std::map<std::string, int> topics = presentTopics(client);
        const auto missing = std::find_if(plans.begin(), plans.end(), [&topics](const TopicPlan& plan) {
            return topics.count(plan.name) == 0;
        });
        if (missing == plans.end())
            return topics;
        if (std::chrono::steady_clock::now() > deadline)
            throw UnreadyError(
                fmt::format("the topic {} was created, and no broker shows it", missing->name));
        std::this_thread::sleep_for(kLookEvery);
    }
}

KafkaAdminOptions optionsOf(const KafkaClient& client, rd_kafka_admin_op_t operation) {
    KafkaAdminOptions options(rd_kafka_AdminOptions_new(client.get(), operation));
    char error[kReasonBytes] = {};
    client.check(
        rd_kafka_AdminOptions_set_request_timeout(options.get(), client.patience(), error, sizeof error),
        "options of a request");
    if (operation == RD_KAFKA_ADMIN_OP_CREATETOPICS)
        client.check(rd_kafka_AdminOptions_set_operation_timeout(options.get(), client.patience(), error,
                                                                 sizeof error),
                     "options of a request");
    return options;
}

KafkaEvent answerOf(const KafkaClient& client, rd_kafka_queue_t* queue, const std::string& attempt) {
    // The request's own time-out comes first.
    KafkaEvent event(rd_kafka_queue_poll(queue, 2 * client.patience()));
    client.check(event ? rd_kafka_event_error(event.get()) : RD_KAFKA_RESP_ERR__TIMED_OUT, attempt);
    return event;
}

void createTopic(const KafkaClient& client, const TopicPlan& plan, int replicas) {
    const std::string attempt = "creating the topic " + plan.name;
    char error[kReasonBytes] = {};
    const KafkaNewTopic topic(
        rd_kafka_NewTopic_new(plan.name.c_str(), plan.partitions, replicas, error, sizeof error));
    if (!topic)
        throw BusError(fmt::format("{}: {}", attempt, error));
    for (const auto& [name, value] : plan.settings)
        client.check(rd_kafka_NewTopic_set_config(topic.get(), name.c_str(), value.c_str()), attempt);
    const KafkaQueue queue(rd_kafka_queue_new(client.get()));
    rd_kafka_NewTopic_t* topics[] = {topic.get()};
    const KafkaAdminOptions options = optionsOf(client, RD_KAFKA_ADMIN_OP_CREATETOPICS);
    rd_kafka_CreateTopics(client.get(), topics, 1, options.get(), queue.get());
    const KafkaEvent event = answerOf(client, queue.get(), attempt);
    std::size_t count = 0;
    const rd_kafka_topic_result_t** results =
        rd_kafka_CreateTopics_result_topics(rd_kafka_event_CreateTopics_result(event.get()), &count);
    for (std::size_t i = 0; i < count; ++i) {
        const rd_kafka_resp_err_t status = rd_kafka_topic_result_error(results[i]);
        const char* const said = rd_kafka_topic_result_error_string(results[i]);
        // Another bridge may have been first.
        if (status == RD_KAFKA_RESP_ERR_NO_ERROR || status == RD_KAFKA_RESP_ERR_TOPIC_ALREADY_EXISTS)
            continue;
        const std::string text = fmt::format("{}: {}: see that there are as many brokers as --replicas says, "
                                             "and that this user may create topics",
                                             attempt, said != nullptr ? said : rd_kafka_err2str(status));
        // The other brokers may still be on their way.
        if (status == RD_KAFKA_RESP_ERR_INVALID_REPLICATION_FACTOR || isPassing(status))
            throw UnreadyError(text);
        throw BusError(text);
    }
}

std::map<std::string, std::string> settingsOf(const KafkaClient& client, const std::string& topic) {
    const std::string attempt = "the settings of the topic " + topic;
    const KafkaConfigResource resource(rd_kafka_ConfigResource_new(RD_KAFKA_RESOURCE_TOPIC, topic.c_str()));
    const KafkaQueue queue(rd_kafka_queue_new(client.get()));
    rd_kafka_ConfigResource_t* resources[] = {resource.get()};
    const KafkaAdminOptions options = optionsOf(client, RD_KAFKA_ADMIN_OP_DESCRIBECONFIGS);
    rd_kafka_DescribeConfigs(client.get(), resources, 1, options.get(), queue.get());
    const KafkaEvent event = answerOf(client, queue.get(), attempt);
    std::size_t count = 0;
    const rd_kafka_ConfigResource_t** results =
        rd_kafka_DescribeConfigs_result_resources(rd_kafka_event_DescribeConfigs_result(event.get()), &count);
    std::map<std::string, std::string> settings;
    for (std::size_t i = 0; i < count; ++i) {
        client.check(rd_kafka_ConfigResource_error(results[i]), attempt);
        std::size_t entries = 0;
        const rd_kafka_ConfigEntry_t** all = rd_kafka_ConfigResource_configs(results[i], &entries);
        for (std::size_t each = 0; each < entries; ++each)
            if (const char* value = rd_kafka_ConfigEntry_value(all[each]); value != nullptr)
                settings[rd_kafka_ConfigEntry_name(all[each])] = value;
    }
    return settings;
}

void checkPartitions(const TopicPlan& plan, int present) {
    if (present != plan.partitions)
        throw BusError(fmt::format("the topic {} has {} partitions, and this bridge wants {}: give it "
                                   "--partitions {}, or delete the "
                                   "topics tivra.* and lose what they hold",
                                   plan.name, present, plan.partitions, present));
}

void checkSettings(const TopicPlan& plan, const std::map<std::string, std::string>& settings) {
    const auto policy = settings.find("cleanup.policy");
    if (policy == settings.end())
        return;
    const bool isCompacted = policy->second.find("compact") != std::string::npos;
    if (isCompacted != plan.isCompacted)
        throw BusError(
            fmt::format("the topic {} has cleanup.policy={}, and {} is wanted: change it, or delete "
                        "the topic",
                        plan.name, policy->second, plan.settings.at("cleanup.policy")));
}

} // namespace

std::size_t prepareKafka(const KafkaClient& client, const BusLayout& layout) {
    const std::vector<TopicPlan> plans = plansOf(layout);
    const std::map<std::string, int> present = presentTopics(client);
    for (const TopicPlan& plan : plans)
        if (present.count(plan.name) == 0)
            createTopic(client, plan, layout.replicas);
    std::size_t maxMessage = kMostMessageBytes;
    const std::map<std::string, int> complete = awaitTopics(client, plans);
    for (const TopicPlan& plan : plans)
        checkPartitions(plan, complete.at(plan.name));
    for (const TopicPlan& plan : plans) {
        const std::map<std::string, std::string> settings = settingsOf(client, plan.name);
        checkSettings(plan, settings);
        if (const auto most = settings.find("max.message.bytes"); most != settings.end())
            maxMessage = std::min(maxMessage,
                                  static_cast<std::size_t>(std::strtoull(most->second.c_str(), nullptr, 10)));
    }
    return maxMessage > 2 * kFrameBytes ? maxMessage - kFrameBytes : kFrameBytes;
}

KafkaDictionary readKafkaDictionary(KafkaReader& reader) {
    KafkaDictionary dictionary;
    const auto take = [&dictionary](const rd_kafka_message_t& message) {
        dictionary = {{static_cast<const char*>(message.payload), message.len},
                      static_cast<std::uint64_t>(message.offset) + 1};
    };
    // The last one is never compacted away.
    (void)reader.readLast(kDictionaryTopic, 0, 1, take);
    return dictionary;
}

} // namespace tivra_bus
