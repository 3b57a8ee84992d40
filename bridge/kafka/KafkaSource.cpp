#include "kafka/KafkaSource.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "kafka/KafkaLayout.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

/// Of the states of sources, which bridges repeat each second.
constexpr std::int64_t kMostStatuses = 4096;

/// What is stored comes after several answers: who has the partition, where it ends, and then the messages,
/// for which a broker that was started just now takes its time.
constexpr int kReadingPatience = 4;

KafkaAddress forReading(KafkaAddress address) {
    address.patience *= kReadingPatience;
    return address;
}

/// The last batch may be of a writer that has been replaced and hasn't noticed yet. It writes no other.
constexpr std::int64_t kTailMessages = 3;

/// 0 for what is no batch.
std::uint64_t epochOf(const rd_kafka_message_t& message) {
    try {
        return headerOf({static_cast<const char*>(message.payload), message.len}).epoch;
    } catch (const BatchError&) {
        return 0;
    }
}

unsigned partitionsOf(KafkaReader& reader) {
    const int partitions = reader.partitionsOf(kTickTopic);
    if (partitions == 0)
        throw BusError(fmt::format("the engine has no topic {}: no bridge has published there; start "
                                   "tivra-bridge, or see that this user may read it",
                                   kTickTopic));
    return static_cast<unsigned>(partitions);
}

} // namespace

KafkaSource::KafkaSource(const KafkaAddress& address)
    : m_reader(forReading(address))
    , m_partitions(partitionsOf(m_reader))
    , m_lastValues(m_reader, address.patience)
    , m_status(address)
    , m_follower(address) {}

std::string KafkaSource::layout() {
    // Batches say themselves of which version they are.
    return fmt::format(R"({{"tivra":{},"partitions":{}}})", kLayoutVersion, m_partitions);
}

std::string KafkaSource::dictionary() {
    return readKafkaDictionary(m_reader).text;
}

std::vector<std::optional<std::string>>
KafkaSource::lastValues(const std::vector<tivra::Instrument>& instruments) {
    return m_lastValues.find(instruments, m_partitions, m_epochs, KafkaLastValues::Clock::now());
}

std::optional<std::string> KafkaSource::status(int source) {
    const std::string key = std::to_string(source);
    std::optional<std::string> found;
    (void)m_reader.readLast(kStatusTopic, 0, kMostStatuses, [&](const rd_kafka_message_t& message) {
        if (std::string_view(static_cast<const char*>(message.key), message.key_len) == key &&
            message.payload != nullptr)
            found.emplace(static_cast<const char*>(message.payload), message.len);
    });
    return found;
}

void KafkaSource::followStatus(OnStatus onStatus) {
    m_status.follow(std::move(onStatus));
}

StreamSpan KafkaSource::spanOf(unsigned partition) {
    StreamSpan span;
    span.lastTime = system_clock::now();
    std::uint64_t epoch = 0;
    const auto take = [&](const rd_kafka_message_t& message) {
        epoch = std::max(epoch, epochOf(message));
        rd_kafka_timestamp_type_t type = RD_KAFKA_TIMESTAMP_NOT_AVAILABLE;
        if (const std::int64_t time = rd_kafka_message_timestamp(&message, &type); time > 0)
            span.lastTime = system_clock::time_point(
                std::min(milliseconds(time), floor<milliseconds>(system_clock::duration::max())));
    };
    const KafkaReader::Extent extent = m_reader.readLast(kTickTopic, partition, kTailMessages, take);
    m_epochs[partition] = epoch;
    span.first = static_cast<std::uint64_t>(extent.first) + 1;
    span.last = static_cast<std::uint64_t>(extent.end);
    return span;
}

std::unique_ptr<BusConsumer> KafkaSource::follow(unsigned partition, const StreamStart& start,
                                                 OnMessage onMessage) {
    const KafkaReader::Extent extent = m_reader.extentOf(kTickTopic, partition);
    const auto* const position = std::get_if<std::uint64_t>(&start);
    const std::int64_t offset =
        position != nullptr
            ? static_cast<std::int64_t>(*position) - 1
            : m_reader.offsetAt(kTickTopic, partition, std::get<system_clock::time_point>(start))
                  .value_or(extent.end);
    const std::int64_t begin = std::clamp(offset, extent.first, extent.end);
    return m_follower.follow(partition, begin, static_cast<std::uint64_t>(extent.end - begin),
                             std::move(onMessage));
}

} // namespace tivra_bus
