// What zlib alone takes for the bytes of a compressed connection.
#include "HubSocket.h"
#include "Road.h"
#include "RoadHub.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

namespace tivra_bench {
namespace {

constexpr std::size_t kRing = std::size_t{64} << 20;
constexpr std::size_t kReadSize = 64 * 1024;

/// Counts the data messages of a stream that comes in pieces.
class FrameCounter {
public:
    explicit FrameCounter(const RoadTask& task)
        : m_data("3=100|4=" + std::to_string(kSource) + "|"), m_progress(task) {}

    void take(std::string_view piece) {
        m_rest.append(piece);
        std::size_t at = 0;
        while (m_rest.size() - at > 6) {
            std::size_t length = 7;
            for (std::size_t i = 0; i < 4; ++i)
                length += static_cast<std::size_t>(static_cast<unsigned char>(m_rest[at + 2 + i]))
                          << (24 - 8 * i);
            if (m_rest.size() - at < length)
                break;
            if (m_rest.compare(at + 6, m_data.size(), m_data) == 0)
                static_cast<void>(m_progress.count());
            at += length;
        }
        m_rest.erase(0, at);
    }
    [[nodiscard]] std::size_t passesDone() const { return m_progress.passesDone(); }

private:
    const std::string m_data;
    std::string m_rest;
    RoadProgress m_progress;
};

/// One inflate state that writes round a buffer of the library's size, as the library's ring is written.
class Inflater {
public:
    explicit Inflater(std::vector<char>& ring) : m_ring(ring) {
        if (inflateInit(&m_stream) != Z_OK)
            throw std::runtime_error("zlib does not start");
    }
    Inflater(const Inflater& other, std::vector<char>& ring) : m_ring(ring), m_at(other.m_at) {
        if (inflateCopy(&m_stream, const_cast<z_stream*>(&other.m_stream)) != Z_OK)
            throw std::runtime_error("zlib does not copy its state");
    }
    ~Inflater() { inflateEnd(&m_stream); }
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    template<class Take>
    void inflateAll(const std::string& block, Take take) {
        m_stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(block.data()));
        m_stream.avail_in = static_cast<uInt>(block.size());
        do {
            char* const to = m_ring.data() + m_at;
            const std::size_t room = kRing - m_at;
            m_stream.next_out = reinterpret_cast<Bytef*>(to);
            m_stream.avail_out = static_cast<uInt>(room);
            const int result = ::inflate(&m_stream, Z_NO_FLUSH);
            if (result != Z_OK && result != Z_BUF_ERROR)
                throw std::runtime_error("the stream does not inflate");
            const std::size_t made = room - m_stream.avail_out;
            m_at = (m_at + made) % kRing;
            take(std::string_view(to, made));
        } while (m_stream.avail_in > 0);
    }

private:
    std::vector<char>& m_ring;
    std::size_t m_at = 0;
    z_stream m_stream{};
};

} // namespace

RoadRun runInflate(const RoadTask& task) {
    HubSocket hub(task.hub.port());
    std::vector<char> ring(kRing);
    Inflater all(ring);
    FrameCounter counter(task);
    std::unique_ptr<Inflater> last;
    std::vector<std::string> blocks; // of the last pass
    std::string block(kReadSize, '\0');
    hub.subscribe(task);
    while (counter.passesDone() < task.passes) {
        if (last == nullptr && counter.passesDone() + 1 == task.passes)
            last = std::make_unique<Inflater>(all, ring);
        block.resize(kReadSize);
        block.resize(hub.receive(block.data(), block.size()));
        if (block.empty())
            throw std::runtime_error("the hub has closed");
        if (last != nullptr)
            blocks.push_back(block);
        all.inflateAll(block, [&counter](std::string_view made) { counter.take(made); });
    }
    RoadRun run;
    const double from = processorSeconds();
    for (const std::string& each : blocks)
        last->inflateAll(each, [](std::string_view) {});
    run.cpuSeconds = run.wallSeconds = processorSeconds() - from;
    return run;
}

} // namespace tivra_bench
