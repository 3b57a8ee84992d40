// Publishes batches that a bridge has written once more onto their streams, asynchronously and as fast as the
// server takes them: what the bytes cost without anything that makes them. It prints a line when it begins,
// and its figures at the end. usage: tivra_plain_publisher URL PARTITIONS SECONDS
#include "Clock.h"

#include <bus/Handle.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nats/nats.h>
#include <sys/resource.h>

namespace {

using tivra_bus::Handle;

/// Of batches, which are published again and again.
constexpr std::size_t kMostBytes = 64U << 20;
constexpr std::int64_t kInFlight = 512;
constexpr std::int64_t kPatience = 60'000; // milliseconds

struct Batch {
    std::string subject;
    std::string bytes;
    std::uint64_t records = 0;
};

std::atomic<std::uint64_t> s_failed{0};

void check(natsStatus status, const std::string& what) {
    if (status != NATS_OK)
        throw std::runtime_error(what + ": " + natsStatus_GetText(status));
}

/// What a partition's stream holds, from its beginning.
std::vector<Batch> read(jsCtx* context, unsigned partition, std::size_t most) {
    const std::string stream = "TIVRA_TICK_" + std::to_string(partition);
    jsStreamInfo* raw = nullptr;
    check(js_GetStreamInfo(&raw, context, stream.c_str(), nullptr, nullptr), stream);
    const Handle<jsStreamInfo, jsStreamInfo_Destroy> info(raw);
    std::vector<Batch> batches;
    jsDirectGetMsgOptions options;
    jsDirectGetMsgOptions_Init(&options);
    std::size_t bytes = 0;
    for (options.Sequence = raw->State.FirstSeq; options.Sequence <= raw->State.LastSeq && bytes < most;
         ++options.Sequence) {
        natsMsg* message = nullptr;
        check(js_DirectGetMsg(&message, context, stream.c_str(), nullptr, &options), stream);
        const Handle<natsMsg, natsMsg_Destroy> owner(message);
        Batch batch{"tivra.v1.tick." + std::to_string(partition),
                    {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))}};
        // A header, and a line for each record.
        batch.records =
            static_cast<std::uint64_t>(std::count(batch.bytes.begin(), batch.bytes.end(), '\n')) - 1;
        bytes += batch.bytes.size();
        batches.push_back(std::move(batch));
    }
    return batches;
}

double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void onFailure(jsCtx*, jsPubAckErr*, void*) {
    ++s_failed;
}

void publish(jsCtx* context, const std::vector<Batch>& batches, double seconds) {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    const double before = processorSeconds();
    const std::int64_t begin = tivra_bench::nowNanoseconds();
    const std::int64_t end = begin + static_cast<std::int64_t>(seconds * 1e9);
    for (std::size_t i = 0; tivra_bench::nowNanoseconds() < end; ++i) {
        const Batch& batch = batches[i % batches.size()];
        check(js_PublishAsync(context, batch.subject.c_str(), batch.bytes.data(),
                              static_cast<int>(batch.bytes.size()), nullptr),
              batch.subject);
        records += batch.records;
        bytes += batch.bytes.size();
    }
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MaxWait = kPatience;
    check(js_PublishAsyncComplete(context, &options), "waiting for acknowledgements");
    if (s_failed != 0)
        throw std::runtime_error(std::to_string(s_failed) + " publishes have failed");
    std::printf("{\"records\": %llu, \"bytes\": %llu, \"seconds\": %.6f, \"processor\": %.6f}\n",
                static_cast<unsigned long long>(records), static_cast<unsigned long long>(bytes),
                static_cast<double>(tivra_bench::nowNanoseconds() - begin) * 1e-9,
                processorSeconds() - before);
}

void run(const char* url, unsigned partitions, double seconds) {
    natsConnection* rawConnection = nullptr;
    check(natsConnection_ConnectTo(&rawConnection, url), url);
    const Handle<natsConnection, natsConnection_Destroy> connection(rawConnection);
    jsOptions options;
    jsOptions_Init(&options);
    options.PublishAsync.MaxPending = kInFlight;
    options.PublishAsync.StallWait = kPatience;
    options.PublishAsync.ErrHandler = onFailure;
    jsCtx* rawContext = nullptr;
    check(natsConnection_JetStream(&rawContext, rawConnection, &options), "JetStream");
    const Handle<jsCtx, jsCtx_Destroy> context(rawContext);
    std::vector<std::vector<Batch>> streams;
    std::size_t longest = 0;
    for (unsigned partition = 0; partition < partitions; ++partition) {
        streams.push_back(read(rawContext, partition, kMostBytes / partitions));
        longest = std::max(longest, streams.back().size());
    }
    // In turn, as a bridge writes them.
    std::vector<Batch> batches;
    for (std::size_t i = 0; i < longest; ++i)
        for (std::vector<Batch>& stream : streams)
            if (i < stream.size())
                batches.push_back(std::move(stream[i]));
    std::printf("publishing\n");
    std::fflush(stdout);
    publish(rawContext, batches, seconds);
}

} // namespace

int main(int argc, char** argv) {
    const unsigned long partitions = argc == 4 ? std::strtoul(argv[2], nullptr, 10) : 0;
    if (partitions == 0 || partitions > 1024) {
        std::fprintf(stderr, "usage: tivra_plain_publisher URL PARTITIONS SECONDS\n");
        return 2;
    }
    try {
        run(argv[1], static_cast<unsigned>(partitions), std::strtod(argv[3], nullptr));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tivra_plain_publisher: %s\n", error.what());
        return 1;
    }
}
