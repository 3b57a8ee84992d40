#include "nats/NatsLeaseTable.h"

#include "nats/NatsAnswer.h"

#include <fmt/format.h>

namespace tivra_bus {

namespace {

constexpr const char* kBucket = "TIVRA_LEASES";
constexpr std::int64_t kReadMilliseconds = 1000;

} // namespace

kvStore* NatsLeaseTable::bucket() {
    if (!m_bucket) {
        kvStore* raw = nullptr;
        m_connection.check(js_KeyValue(&raw, m_connection.context(), kBucket), "the table of leases");
        m_bucket.reset(raw);
    }
    return m_bucket.get();
}

std::vector<LeaseEntry> NatsLeaseTable::entries() {
    kvWatcher* raw = nullptr;
    kvWatchOptions options;
    kvWatchOptions_Init(&options);
    m_connection.check(kvStore_WatchAll(&raw, bucket(), &options), "reading the table of leases");
    const NatsWatcher watcher(raw);
    std::vector<LeaseEntry> entries;
    for (;;) {
        kvEntry* entry = nullptr;
        m_connection.check(kvWatcher_Next(&entry, raw, kReadMilliseconds), "reading the table of leases");
        if (entry == nullptr) // all that were there have come
            return entries;
        const NatsEntry owner(entry);
        // One that was deleted keeps its revision, which the next to write it has to know.
        entries.push_back({kvEntry_Key(entry),
                           {static_cast<const char*>(kvEntry_Value(entry)),
                            static_cast<std::size_t>(kvEntry_ValueLen(entry))},
                           kvEntry_Revision(entry)});
    }
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
    if (isConflict(static_cast<int>(code)))
        return std::nullopt;
    m_connection.check(status, attempt);
    return std::nullopt;
}

void NatsLeaseTable::remove(const std::string& key) {
    m_connection.check(kvStore_Delete(bucket(), key.c_str()), "removing the lease " + key);
}

} // namespace tivra_bus
