#include "nats/NatsLeaseTable.h"

#include "nats/NatsAnswer.h"

#include "bus/BusError.h"

#include <fmt/format.h>

namespace tivra_bus {

namespace {

constexpr const char* kBucket = "TIVRA_LEASES";
constexpr const char* kStream = "KV_TIVRA_LEASES";
constexpr std::string_view kSubjects = "$KV.TIVRA_LEASES.";
/// Half a minute of them: with a thousand partitions reading all takes about as long as renewing may wait.
constexpr unsigned kReadingsUntilAll = 120;

} // namespace

void NatsLeaseTable::forget() {
    m_entries.clear();
    m_next = 1;
    m_readings = 0;
}

bool NatsLeaseTable::readNext() {
    const std::string subjects = std::string(kSubjects) + ">";
    jsDirectGetMsgOptions options;
    jsDirectGetMsgOptions_Init(&options);
    options.Sequence = m_next;
    options.NextBySubject = subjects.c_str();
    natsMsg* raw = nullptr;
    const natsStatus status = js_DirectGetMsg(&raw, m_connection.context(), kStream, nullptr, &options);
    const NatsMessage message(raw);
    if (status == NATS_NOT_FOUND)
        return false;
    m_connection.check(status, "reading the table of leases");
    const std::string_view subject = natsMsg_GetSubject(raw);
    const std::uint64_t place = natsMsg_GetSequence(raw);
    if (place < m_next || !subject.starts_with(kSubjects))
        throw BusError("reading the table of leases: the server's answer is about something else");
    m_next = place + 1;
    // One that was deleted keeps its revision, which the next to write it has to know.
    m_entries[std::string(subject.substr(kSubjects.size()))] = {
        {natsMsg_GetData(raw), static_cast<std::size_t>(natsMsg_GetDataLength(raw))}, place};
    return true;
}

std::vector<LeaseEntry> NatsLeaseTable::entries() {
    if (++m_readings > kReadingsUntilAll)
        forget();
    while (readNext()) {
    }
    std::vector<LeaseEntry> entries;
    entries.reserve(m_entries.size());
    for (const auto& [key, entry] : m_entries)
        entries.push_back({key, entry.value, entry.revision});
    return entries;
}

std::optional<std::uint64_t> NatsLeaseTable::write(const std::string& key, const std::string& value,
                                                   std::uint64_t revision) {
    // The client library's own call doesn't give the server's code, which tells "somebody else was first"
    // from every other refusal.
    const std::string attempt = "writing the lease " + key;
    natsMsg* raw = nullptr;
    m_connection.check(natsMsg_Create(&raw, fmt::format("$KV.{}.{}", kBucket, key).c_str(), nullptr,
                                      value.data(), static_cast<int>(value.size())),
                       attempt);
    const NatsMessage message(raw);
    m_connection.check(
        natsMsgHeader_Set(raw, "Nats-Expected-Last-Subject-Sequence", std::to_string(revision).c_str()),
        attempt);
    jsPubAck* ack = nullptr;
    jsErrCode code{};
    const natsStatus status = js_PublishMsg(&ack, m_connection.context(), raw, nullptr, &code);
    const NatsAcknowledgement owner(ack);
    if (status == NATS_OK)
        return ack->Sequence;
    if (isConflict(static_cast<int>(code))) {
        forget();
        return std::nullopt;
    }
    m_connection.check(status, attempt);
    return std::nullopt;
}

void NatsLeaseTable::remove(const std::string& key) {
    const std::string attempt = "removing the lease " + key;
    kvStore* raw = nullptr;
    m_connection.check(js_KeyValue(&raw, m_connection.context(), kBucket), attempt);
    const NatsBucket bucket(raw);
    m_connection.check(kvStore_Delete(raw, key.c_str()), attempt);
}

} // namespace tivra_bus
