// The two baselines of the whole road: what the same bytes cost without the library around the parser.
#include "HubSocket.h"
#include "ParserOptions.h"
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <tivra_sim/Dictionary.h>

#include "dictionary/MetaTokenMap.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

namespace tivra_bench {
namespace {

constexpr std::size_t kRing = std::size_t{64} << 20;
constexpr std::size_t kReadSize = 64 * 1024;
constexpr std::size_t kLargestFrame = 262144;

/// Length of the frame at `at`, 0 while it is incomplete.
std::size_t frameLength(const char* at, std::size_t have) {
    if (have < 6)
        return 0;
    const auto byte = [at](int i) { return static_cast<std::size_t>(static_cast<unsigned char>(at[i])); };
    const std::size_t length = (byte(2) << 24U | byte(3) << 16U | byte(4) << 8U | byte(5)) + 7;
    return have >= length ? length : 0;
}

/// The same dictionary as the library downloads.
std::unique_ptr<tivra_internal::MetaTokenMap> makeDictionary() {
    auto map = std::make_unique<tivra_internal::MetaTokenMap>();
    for (const tivra_sim::DictionaryRow& row : tivra_sim::builtinDictionary()) {
        auto token = std::make_unique<tivra_internal::MetaToken>();
        token->setKVNToken(row.number);
        token->setTokenName(row.name.data(), static_cast<long>(row.name.size()));
        token->setKVNType(row.type.data(), static_cast<long>(row.type.size()));
        static_cast<void>(map->addMetaToken(token));
    }
    return map;
}

/// Counts what an application would be told of, and takes the latency of a paced run.
class Consumer {
public:
    Consumer(const RoadTask& task, KVNAPI::DataMap& dictionary)
        : m_isPaced(task.paced)
        , m_stamp(dictionary.lookupTokenViaNum(kStampToken))
        , m_parser(KVNAPI::Parser::alloc("kvn", &dictionary, static_cast<int>(kLargestFrame)))
        , m_progress(task) {
        setTextsInFrame(*m_parser, true);
    }

    /// True when all messages have come.
    bool take(const char* frame, std::size_t length) {
        m_parser->push(KVNAPI::bufref(frame, length));
        for (;;) {
            KVNAPI::Message message;
            if (m_parser->pull(&message) != 0)
                return m_isDone;
            if (message.isTagPresent != 0 || message.exchange == nullptr || message.exchange->id != kSource)
                continue;
            if (m_isPaced)
                if (const KVNAPI::TVPair* pair = message.findPair(m_stamp))
                    m_progress.addLatency(nowNanoseconds() - pair->i);
            m_isDone = m_progress.count();
        }
    }

    [[nodiscard]] const RoadRun& run() const { return m_progress.run(); }

private:
    const bool m_isPaced;
    KVNAPI::Token* m_stamp;
    std::unique_ptr<KVNAPI::Parser> m_parser;
    RoadProgress m_progress;
    bool m_isDone = false;
};

} // namespace

RoadRun runBareLoop(const RoadTask& task) {
    HubSocket hub(task.hub.port());
    const auto buffer = std::make_unique<char[]>(kRing);
    hub.subscribe(task);
    const std::string data = "3=100|4=" + std::to_string(kSource) + "|";
    RoadProgress progress(task);
    std::size_t have = 0;
    bool isDone = false;
    while (!isDone) {
        const std::size_t got = hub.receive(buffer.get() + have, kReadSize);
        if (got == 0)
            throw std::runtime_error("the hub has closed");
        have += got;
        std::size_t at = 0;
        while (const std::size_t length = frameLength(buffer.get() + at, have - at)) {
            // An answer begins with its tag and a system record names its own source.
            if (std::memcmp(buffer.get() + at + 6, data.data(), data.size()) == 0) {
                if (task.paced)
                    progress.addLatency(nowNanoseconds() - stampOf(buffer.get() + at, length));
                isDone = progress.count();
            }
            at += length;
        }
        std::memmove(buffer.get(), buffer.get() + at, have - at);
        have -= at;
    }
    return progress.run();
}

RoadRun runTwoThreads(const RoadTask& task) {
    const auto dictionary = makeDictionary();
    Consumer consumer(task, *dictionary);
    HubSocket hub(task.hub.port());
    // Untouched at first, like the library's.
    const std::unique_ptr<char[]> ring(new char[kRing]);
    // Absolute positions in the stream; the reader waits for room, the consumer for data.
    std::atomic<std::size_t> written{0};
    std::atomic<std::size_t> consumed{0};
    std::atomic<bool> done{false};
    hub.subscribe(task);
    std::thread parsing([&] {
        std::string wrapped;
        std::size_t at = 0;
        while (!done) {
            const std::size_t end = written.load(std::memory_order_acquire);
            if (end == at) {
                written.wait(end, std::memory_order_acquire);
                continue;
            }
            bool progress = false;
            while (at < end) {
                const std::size_t offset = at % kRing;
                const std::size_t toEnd = std::min(end - at, kRing - offset);
                const char* frame = ring.get() + offset;
                std::size_t length = frameLength(frame, toEnd);
                if (length == 0 && toEnd < end - at) {
                    // Only the one frame that crosses the ring's end is put together elsewhere.
                    wrapped.assign(frame, toEnd);
                    wrapped.append(ring.get(), std::min(end - at - toEnd, kLargestFrame));
                    frame = wrapped.data();
                    length = frameLength(frame, wrapped.size());
                }
                if (length == 0)
                    break;
                progress = true;
                at += length;
                const bool finished = consumer.take(frame, length);
                consumed.store(at, std::memory_order_release);
                if (finished) {
                    done = true;
                    hub.shutDown();
                    break;
                }
            }
            if (!progress)
                written.wait(end, std::memory_order_acquire);
        }
    });
    while (!done) {
        const std::size_t at = written.load(std::memory_order_relaxed);
        const std::size_t room = kRing - (at - consumed.load(std::memory_order_acquire));
        const std::size_t toEnd = kRing - at % kRing;
        const std::size_t length = std::min(std::min(room, toEnd), kReadSize);
        if (length == 0) {
            std::this_thread::yield();
            continue;
        }
        const std::size_t got = hub.receive(ring.get() + at % kRing, length);
        if (got == 0)
            break;
        written.store(at + got, std::memory_order_release);
        written.notify_one();
    }
    if (!done) {
        std::fprintf(stderr, "road: the hub's process died under a run\n");
        std::exit(1);
    }
    parsing.join();
    return consumer.run();
}

} // namespace tivra_bench
