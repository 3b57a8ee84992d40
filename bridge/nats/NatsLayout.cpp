#include "nats/NatsLayout.h"

#include "bus/BusError.h"
#include "bus/SubjectNames.h"

#include <fmt/format.h>

#include <string>

namespace tivra_bus {

namespace {

constexpr const char* kLeases = "TIVRA_LEASES";
constexpr const char* kDictionary = "TIVRA_DICTIONARY";

struct StreamPlan {
    std::string name;
    std::string subject;
    std::int64_t maxAge = 0; ///< nanoseconds; 0 for no limit
    std::int64_t maxBytes = -1;
    std::int64_t maxPerSubject = -1;
    int replicas = 1;
};

void checkDirectGets(const jsStreamConfig& config) {
    if (!config.AllowDirect)
        throw BusError(fmt::format("the stream {} doesn't allow direct gets: set allow_direct", config.Name));
}

void checkStream(const jsStreamInfo& info, const StreamPlan& plan) {
    const jsStreamConfig& config = *info.Config;
    if (config.SubjectsLen != 1 || plan.subject != config.Subjects[0])
        throw BusError(
            fmt::format("the stream {} takes other subjects than {}: delete it, or use another account",
                        plan.name, plan.subject));
    if (plan.maxPerSubject != config.MaxMsgsPerSubject)
        throw BusError(
            fmt::format("the stream {} keeps {} messages of a subject, and {} are wanted: delete it",
                        plan.name, config.MaxMsgsPerSubject, plan.maxPerSubject));
    checkDirectGets(config);
}

/// What to do when the servers won't make a stream.
const char* adviceFor(jsErrCode refusal) {
    switch (refusal) {
    case JSStorageResourcesExceededErr:
    case JSInsufficientResourcesErr:
        return ": give the server more room with max_file, or each partition less with --max-megabytes";
    case JSClusterNoPeersErr:
    case JSStreamReplicasNotSupportedErr:
        return ": the cluster has fewer servers than --replicas, or they have too little room for "
               "--max-megabytes";
    default:
        return "";
    }
}

void ensureStream(const NatsConnection& connection, const StreamPlan& plan) {
    jsStreamInfo* info = nullptr;
    jsErrCode refusal{};
    natsStatus status = js_GetStreamInfo(&info, connection.context(), plan.name.c_str(), nullptr, nullptr);
    if (status == NATS_NOT_FOUND) {
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        const char* subject = plan.subject.c_str();
        config.Name = plan.name.c_str();
        config.Subjects = &subject;
        config.SubjectsLen = 1;
        config.MaxAge = plan.maxAge;
        config.MaxBytes = plan.maxBytes;
        config.MaxMsgsPerSubject = plan.maxPerSubject;
        config.Replicas = plan.replicas;
        config.AllowDirect = true;
        status = js_AddStream(&info, connection.context(), &config, nullptr, &refusal);
    }
    const NatsStreamInfo owner(info);
    connection.check(status, "the stream " + plan.name, adviceFor(refusal));
    checkStream(*info, plan);
}

NatsBucket ensureBucket(const NatsConnection& connection, const char* name, int replicas) {
    kvStore* bucket = nullptr;
    natsStatus status = js_KeyValue(&bucket, connection.context(), name);
    if (status == NATS_NOT_FOUND) {
        kvConfig config;
        kvConfig_Init(&config);
        config.Bucket = name;
        config.History = 1;
        config.Replicas = replicas;
        status = js_CreateKeyValue(&bucket, connection.context(), &config);
    }
    NatsBucket owner(bucket);
    connection.check(status, std::string("the bucket ") + name);
    return owner;
}

/// The number of partitions is written once, by whoever comes first.
void agreeOnLayout(const NatsConnection& connection, kvStore* bucket, unsigned partitions) {
    const std::string wanted = fmt::format(R"({{"tivra":{},"partitions":{}}})", kLayoutVersion, partitions);
    kvStore_CreateString(nullptr, bucket, "layout", wanted.c_str());
    kvEntry* entry = nullptr;
    connection.check(kvStore_Get(&entry, bucket, "layout"), "the layout in the bucket TIVRA_LEASES");
    const NatsEntry owner(entry);
    const std::string present(static_cast<const char*>(kvEntry_Value(entry)),
                              static_cast<std::size_t>(kvEntry_ValueLen(entry)));
    if (present != wanted)
        throw BusError(fmt::format("the engine is laid out as {}, and this bridge wants {}: give it the same "
                                   "--partitions, or delete the TIVRA_ streams",
                                   present, wanted));
}

} // namespace

void prepareNats(const NatsConnection& connection, const BusLayout& layout) {
    const NatsBucket leases = ensureBucket(connection, kLeases, layout.replicas);
    const std::string stream = std::string("KV_") + kLeases;
    jsStreamInfo* info = nullptr;
    connection.check(js_GetStreamInfo(&info, connection.context(), stream.c_str(), nullptr, nullptr), stream);
    const NatsStreamInfo infoOwner(info);
    checkDirectGets(*info->Config);
    agreeOnLayout(connection, leases.get(), layout.partitions);
    (void)ensureBucket(connection, kDictionary, layout.replicas);
    const auto nanoseconds = std::chrono::nanoseconds(layout.maxAge).count();
    for (unsigned partition = 0; partition < layout.partitions; ++partition)
        ensureStream(connection, {fmt::format("TIVRA_TICK_{}", partition), tickSubject(partition),
                                  nanoseconds, layout.maxBytes, -1, layout.replicas});
    const std::string root = fmt::format("tivra.v{}.", kLayoutVersion);
    ensureStream(connection, {"TIVRA_LAST", root + "last.>", 0, -1, 1, layout.replicas});
    ensureStream(connection, {"TIVRA_STATUS", root + "status.*", 0, -1, 1, layout.replicas});
}

std::uint64_t storeNatsDictionary(const NatsConnection& connection, const std::string& text) {
    const NatsBucket bucket = ensureBucket(connection, kDictionary, 1);
    kvEntry* entry = nullptr;
    if (kvStore_Get(&entry, bucket.get(), "fields") == NATS_OK) {
        const NatsEntry owner(entry);
        const std::string_view present(static_cast<const char*>(kvEntry_Value(entry)),
                                       static_cast<std::size_t>(kvEntry_ValueLen(entry)));
        if (present == text)
            return kvEntry_Revision(entry);
    }
    std::uint64_t revision = 0;
    connection.check(
        kvStore_Put(&revision, bucket.get(), "fields", text.data(), static_cast<int>(text.size())),
        "the dictionary in the bucket TIVRA_DICTIONARY");
    return revision;
}

} // namespace tivra_bus
