#include "kafka/KafkaLeaseTable.h"

#include "bus/BusError.h"
#include "kafka/KafkaNames.h"
#include "kafka/messageHeader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <future>
#include <memory>
#include <utility>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

/// That an answer about leases may take: what comes later is of a lease that is nearly over.
constexpr milliseconds kPatience{2000};

KafkaAddress forLeases(KafkaAddress address) {
    address.patience = std::min(address.patience, kPatience);
    return address;
}

std::optional<std::uint64_t> numberOf(std::string_view text) {
    std::uint64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    if (parsed.ec != std::errc{} || parsed.ptr != text.data() + text.size())
        return std::nullopt;
    return number;
}

} // namespace

KafkaLeaseTable::KafkaLeaseTable(const KafkaAddress& address, const std::string& writer, milliseconds keepFor)
    : m_writer(writer)
    , m_keepFor(keepFor)
    , m_ends(forLeases(address))
    , m_log(KafkaClient::Role::Consumer, forLeases(address),
            {{{"enable.auto.commit", "false"},
              {"enable.auto.offset.store", "false"},
              // What was dropped while nobody read shows by the offsets.
              {"auto.offset.reset", "earliest"},
              {"group.id", kReaderGroup},
              {"fetch.wait.max.ms", "500"}},
             nullptr})
    , m_sends(forLeases(address), writer, kPatience) {}

std::vector<LeaseEntry> KafkaLeaseTable::entries() {
    // Whoever reads while the log's first messages are dropped may take another's write for one that came
    // too late. Not each time: whoever may write to the log could make that endless.
    if (m_isDoubtful && Clock::now() - m_begun >= m_keepFor)
        beginAgain();
    const KafkaReader::Extent extent = m_ends.extentOf(kLeaseTopic, 0);
    followExtent(extent);
    readTo(extent.end);
    keepOwn();
    std::vector<LeaseEntry> entries;
    entries.reserve(m_entries.size());
    for (const auto& [key, entry] : m_entries)
        entries.push_back({key, entry.value, entry.revision});
    return entries;
}

void KafkaLeaseTable::followExtent(const KafkaReader::Extent& extent) {
    if (m_next && (extent.end < *m_next || extent.first > *m_next))
        m_next.reset(); // the topic was made anew, or what is dropped by now was never read
    if (!m_next) {
        const KafkaPartitions partitions(rd_kafka_topic_partition_list_new(1));
        rd_kafka_topic_partition_list_add(partitions.get(), kLeaseTopic, 0)->offset = extent.first;
        m_log.check(rd_kafka_assign(m_log.get(), partitions.get()), "reading the leases");
        m_entries.clear();
        m_next = extent.first;
        m_first = extent.first;
        m_readBefore = std::min(m_readBefore, extent.end);
        m_isDoubtful = false;
        m_begun = Clock::now();
    }
    m_first = std::max(m_first, extent.first);
    // One who begins now doesn't see these, and all have to decide alike.
    std::erase_if(m_entries, [this](const auto& each) {
        return each.second.revision <= static_cast<std::uint64_t>(m_first);
    });
}

void KafkaLeaseTable::readTo(std::int64_t end) {
    const Clock::time_point deadline = Clock::now() + milliseconds(m_log.patience());
    while (*m_next < end) {
        const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
        const KafkaMessage message(
            rd_kafka_consumer_poll(m_log.get(), static_cast<int>(std::max<std::int64_t>(left, 0))));
        if (!message)
            m_log.check(RD_KAFKA_RESP_ERR__TIMED_OUT, "reading the leases");
        if (message->rkt == nullptr) // of the group, which nobody is in
            continue;
        m_log.check(message->err, "reading the leases");
        if (message->offset < *m_next) // of an assignment before
            continue;
        take(*message);
        m_next = message->offset + 1;
    }
}

void KafkaLeaseTable::take(const rd_kafka_message_t& message) {
    const std::string key(static_cast<const char*>(message.key), message.key_len);
    const std::string_view replaces = messageHeader(message, kReplacesHeader);
    Entry& entry = m_entries[key];
    std::uint64_t over = static_cast<std::uint64_t>(message.offset) + 1;
    // Only one that is taken out by who doesn't know it replaces whatever is there.
    if (message.len > 0 || !replaces.empty()) {
        const std::optional<std::uint64_t> revision = numberOf(replaces);
        const bool isUnseen =
            revision && *revision > entry.over && *revision <= static_cast<std::uint64_t>(m_first);
        if (!revision || (*revision != entry.revision && !isUnseen)) {
            m_isDoubtful = m_isDoubtful || (revision && *revision > entry.revision);
            if (entry.revision == 0)
                m_entries.erase(key);
            return;
        }
        over = isUnseen ? *revision : over;
    }
    entry.value.assign(static_cast<const char*>(message.payload), message.len);
    entry.revision = static_cast<std::uint64_t>(message.offset) + 1;
    entry.over = over;
    entry.isOwn = message.len > 0 && messageHeader(message, kWriterHeader) == m_writer;
    // How old it is when it is read again isn't known, so an own one is written again soon.
    entry.read = message.offset < m_readBefore ? Clock::time_point{} : Clock::now();
}

std::uint64_t KafkaLeaseTable::append(const std::string& key, std::string_view value,
                                      const std::string& replaces) {
    const auto answer = std::make_shared<std::promise<SendResult>>();
    std::future<SendResult> future = answer->get_future();
    m_sends.send({kLeaseTopic, 0, key, value, replaces},
                 [answer](const SendResult& result) { answer->set_value(result); });
    // It ends by itself, at the latest when sending has timed out.
    const SendResult result = future.get();
    if (result.outcome != SendResult::Outcome::Stored)
        throw UnreadyError(fmt::format("writing the lease {}: {}", key, result.cause));
    return result.position;
}

std::optional<std::uint64_t> KafkaLeaseTable::write(const std::string& key, const std::string& value,
                                                    std::uint64_t revision) {
    const std::uint64_t written = append(key, value, std::to_string(revision));
    if (!m_next)
        followExtent(m_ends.extentOf(kLeaseTopic, 0));
    readTo(static_cast<std::int64_t>(written));
    const auto found = m_entries.find(key);
    if (found != m_entries.end() && found->second.revision == written)
        return written;
    if (found == m_entries.end() || found->second.revision <= revision)
        beginAgain(); // nobody was first, so what is known is wrong
    return std::nullopt;
}

void KafkaLeaseTable::beginAgain() {
    m_readBefore = m_next.value_or(0);
    m_next.reset();
}

void KafkaLeaseTable::remove(const std::string& key) {
    const auto found = m_entries.find(key);
    (void)append(key, {}, found != m_entries.end() ? std::to_string(found->second.revision) : "");
}

void KafkaLeaseTable::keepOwn() {
    const Clock::time_point now = Clock::now();
    const auto old = std::find_if(m_entries.begin(), m_entries.end(), [&](const auto& each) {
        return each.second.isOwn && now - each.second.read >= m_keepFor;
    });
    // One at a time: who waits for the answer holds up what else is due.
    if (old == m_entries.end())
        return;
    const auto [key, entry] = *old;
    (void)write(key, entry.value, entry.revision);
}

} // namespace tivra_bus
