#include "nats/NatsLeaseTable.h"

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
    options.IgnoreDeletes = true;
    m_connection.check(kvStore_WatchAll(&raw, bucket(), &options), "reading the table of leases");
    const NatsWatcher watcher(raw);
    std::vector<LeaseEntry> entries;
    for (;;) {
        kvEntry* entry = nullptr;
        m_connection.check(kvWatcher_Next(&entry, raw, kReadMilliseconds), "reading the table of leases");
        if (entry == nullptr) // all that were there have come
            return entries;
        const NatsEntry owner(entry);
        entries.push_back({kvEntry_Key(entry),
                           {static_cast<const char*>(kvEntry_Value(entry)),
                            static_cast<std::size_t>(kvEntry_ValueLen(entry))},
                           kvEntry_Revision(entry)});
    }
}

std::optional<std::uint64_t> NatsLeaseTable::write(const std::string& key, const std::string& value,
                                                   std::uint64_t revision) {
    std::uint64_t written = 0;
    const natsStatus status =
        revision == 0 ? kvStore_CreateString(&written, bucket(), key.c_str(), value.c_str())
                      : kvStore_UpdateString(&written, bucket(), key.c_str(), value.c_str(), revision);
    if (status == NATS_OK)
        return written;
    // That the revision isn't the expected one is the server's only answer of its own.
    if (status == NATS_ERR)
        return std::nullopt;
    m_connection.check(status, "writing the lease " + key);
    return std::nullopt;
}

void NatsLeaseTable::remove(const std::string& key) {
    m_connection.check(kvStore_Delete(bucket(), key.c_str()), "removing the lease " + key);
}

} // namespace tivra_bus
