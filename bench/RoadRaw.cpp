// The two baselines of the whole road: what the same bytes cost without the library around the parser.
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <tivra_sim/Dictionary.h>
#include <tivra_sim/Wire.h>

#include "dictionary/MetaTokenMap.h"
#include "kvnparse/Message.h"
#include "kvnparse/Parser.h"

namespace tivra_bench {
namespace {

constexpr std::size_t kRing = std::size_t{64} << 20;
constexpr std::size_t kReadSize = 64 * 1024;
constexpr std::size_t kLargestFrame = 262144;

class Socket {
public:
    explicit Socket(std::uint16_t port) : m_fd(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("the hub cannot be reached");
    }
    ~Socket() { close(m_fd); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    void request(const std::string& text) {
        const std::string frame = tivra_sim::encodeFrame(text);
        if (send(m_fd, frame.data(), frame.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size()))
            throw std::runtime_error("the hub does not take a request");
    }
    [[nodiscard]] std::size_t receive(char* to, std::size_t room) {
        const ssize_t got = read(m_fd, to, room);
        if (got <= 0)
            throw std::runtime_error("the hub has closed");
        return static_cast<std::size_t>(got);
    }

private:
    int m_fd;
};

void subscribe(Socket& hub, const RoadTask& task) {
    hub.request("5026=1|5022=LoginUser|5028=demo|5029=demo|13265=0|5053=V1.7.0.1|5129=C++|5128=Linux");
    int tag = 18;
    for (const char* symbol : kSymbols) {
        if (task.paced && std::strcmp(symbol, kPacedSymbol) != 0)
            continue;
        hub.request("5022=Subscribe|4=" + std::to_string(kSource) + "|5=" + symbol +
                    "|5026=" + std::to_string(tag++));
    }
}

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
        : m_task(task)
        , m_stamp(dictionary.lookupTokenViaNum(kStampToken))
        , m_parser(KVNAPI::Parser::alloc("kvn", &dictionary, static_cast<int>(kLargestFrame))) {
        m_run.latencies.reserve(task.paced ? task.messages : 0);
    }

    /// True when all messages have come.
    bool take(const char* frame, std::size_t length) {
        m_parser->push(KVNAPI::bufref(frame, length));
        for (;;) {
            KVNAPI::Message message;
            if (m_parser->pull(&message) != 0)
                return m_run.messages == m_task.messages;
            if (message.isTagPresent != 0 || message.exchange == nullptr || message.exchange->id != kSource)
                continue;
            if (m_run.messages == warmUp(m_task))
                m_meter.begin();
            ++m_run.messages;
            if (m_task.paced)
                if (const KVNAPI::TVPair* pair = message.findPair(m_stamp))
                    m_run.latencies.push_back(nowNanoseconds() - pair->i);
            if (m_run.messages == m_task.messages)
                m_meter.end(m_run);
        }
    }

    [[nodiscard]] RoadRun& run() { return m_run; }

private:
    const RoadTask m_task;
    KVNAPI::Token* m_stamp;
    std::unique_ptr<KVNAPI::Parser> m_parser;
    RoadMeter m_meter;
    RoadRun m_run;
};

} // namespace

void RoadMeter::begin() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    m_cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
            static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    m_wall = static_cast<double>(nowNanoseconds()) / 1e9;
}

void RoadMeter::end(RoadRun& run) const {
    RoadMeter now;
    now.begin();
    run.cpuSeconds = now.m_cpu - m_cpu;
    run.wallSeconds = now.m_wall - m_wall;
}

RoadRun runBareLoop(const RoadTask& task) {
    Socket hub(task.port);
    const auto buffer = std::make_unique<char[]>(kRing);
    subscribe(hub, task);
    RoadRun run;
    RoadMeter meter;
    std::size_t have = 0;
    while (run.messages < task.messages) {
        have += hub.receive(buffer.get() + have, kReadSize);
        std::size_t at = 0;
        while (const std::size_t length = frameLength(buffer.get() + at, have - at)) {
            // An answer to a request begins with its tag; everything else is data or a system record.
            if (std::memcmp(buffer.get() + at + 6, "5026", 4) != 0) {
                if (run.messages == warmUp(task))
                    meter.begin();
                ++run.messages;
            }
            at += length;
        }
        std::memmove(buffer.get(), buffer.get() + at, have - at);
        have -= at;
    }
    meter.end(run);
    return run;
}

RoadRun runTwoThreads(const RoadTask& task) {
    const auto dictionary = makeDictionary();
    Consumer consumer(task, *dictionary);
    Socket hub(task.port);
    // Untouched at first, like the library's.
    const std::unique_ptr<char[]> ring(new char[kRing]);
    // Absolute positions in the stream; the reader waits for room, the consumer for data.
    std::atomic<std::size_t> written{0};
    std::atomic<std::size_t> consumed{0};
    std::atomic<bool> done{false};
    subscribe(hub, task);
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
        written.store(at + got, std::memory_order_release);
        written.notify_one();
    }
    parsing.join();
    return consumer.run();
}

} // namespace tivra_bench
