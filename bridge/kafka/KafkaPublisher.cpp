#include "kafka/KafkaPublisher.h"

#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "kafka/KafkaLayout.h"
#include "kafka/KafkaNames.h"
#include "kafka/KafkaTail.h"
#include "kafka/messageHeader.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <future>

namespace tivra_bus {

namespace {

/// How far back a batch of an old writer is looked past. One that has lost its partition without noticing
/// writes one at most, since that one's offset says so.
constexpr std::int64_t kTailMessages = 16;
/// That each of the three answers may take which say where a partition ends, and that a dictionary may take
/// to be stored: the bridge shows that it is alive after that, before its leases are over.
constexpr std::chrono::milliseconds kAnswerPatience{700};
constexpr std::chrono::milliseconds kStorePatience{2000};

KafkaAddress forEnds(KafkaAddress address) {
    address.patience = std::min(address.patience, kAnswerPatience);
    return address;
}

std::string_view bytesOf(const rd_kafka_message_t& message) {
    return {static_cast<const char*>(message.payload), message.len};
}

} // namespace

KafkaPublisher::KafkaPublisher(const KafkaAddress& address, std::string writer)
    : m_writer(std::move(writer)), m_reader(forEnds(address)), m_sends(address, m_writer) {}

KafkaPublisher::~KafkaPublisher() = default;

void KafkaPublisher::prepare(const BusLayout& layout) {
    m_maxMessage = prepareKafka(*m_sends.client(), layout);
    m_partitions = layout.partitions;
}

StreamEnd KafkaPublisher::endOf(unsigned partition) {
    KafkaTail tail(m_writer);
    const KafkaReader::Extent extent =
        m_reader.readLast(kTickTopic, partition, kTailMessages, [&tail](const rd_kafka_message_t& message) {
            tail.take(bytesOf(message), messageHeader(message, kWriterHeader));
        });
    StreamEnd end = tail.end(static_cast<std::uint64_t>(extent.end));
    const tp::MutexLock lock(m_mutex);
    if (m_isRolledBack.erase(partition) != 0)
        ++end.epoch;
    return end;
}

void KafkaPublisher::rolledBack(unsigned partition) {
    const tp::MutexLock lock(m_mutex);
    m_isRolledBack[partition] = true;
}

void KafkaPublisher::sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                               SendTicket ticket) {
    // A batch holds many symbols, so its key is the partition: what copies the topic keeps them together by
    // it.
    const std::string key = std::to_string(partition);
    m_sends.send({kTickTopic, partition, key, batch},
                 [this, partition, expected, ticket = std::move(ticket)](const SendResult& result) {
                     const bool isStored = result.outcome == SendResult::Outcome::Stored;
                     if (isStored && result.position <= expected)
                         rolledBack(partition);
                     if (isStored && result.position != expected + 1)
                         ticket.end({SendResult::Outcome::Conflict, 0, 0, {}});
                     else
                         ticket.end(result);
                 });
}

void KafkaPublisher::findLast(int, std::string_view, SendTicket ticket) {
    m_sends.end([ticket = std::move(ticket)](const SendResult& result) { ticket.end(result); },
                {SendResult::Outcome::Stored, 0, 0, {}});
}

void KafkaPublisher::sendLast(int source, std::string_view symbol, std::string_view message, std::uint64_t,
                              SendTicket ticket) {
    const std::string key = fmt::format("{}:{}", source, symbol);
    m_sends.send({kLastTopic, partitionOf(source, symbol, m_partitions), key, message},
                 [ticket = std::move(ticket)](const SendResult& result) { ticket.end(result); });
}

void KafkaPublisher::sendStatus(int source, std::string_view message) {
    const std::string key = std::to_string(source);
    m_sends.send({kStatusTopic, 0, key, message}, [](const SendResult&) {});
}

void KafkaPublisher::sendLive(int, std::string_view, std::string_view) {}

std::uint64_t KafkaPublisher::storeDictionary(const std::string& text) {
    const KafkaDictionary present = readKafkaDictionary(m_reader);
    if (present.revision != 0 && present.text == text)
        return present.revision;
    const auto answer = std::make_shared<std::promise<SendResult>>();
    std::future<SendResult> future = answer->get_future();
    m_sends.send({kDictionaryTopic, 0, "fields", text},
                 [answer](const SendResult& result) { answer->set_value(result); });
    if (future.wait_for(kStorePatience) != std::future_status::ready)
        throw UnreadyError(fmt::format("the dictionary in the topic {}: no answer so far", kDictionaryTopic));
    const SendResult result = future.get();
    if (result.outcome != SendResult::Outcome::Stored)
        throw UnreadyError(fmt::format("the dictionary in the topic {}: {}", kDictionaryTopic, result.cause));
    return result.position;
}

} // namespace tivra_bus
