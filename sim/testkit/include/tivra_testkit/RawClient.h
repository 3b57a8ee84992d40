#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <tivra_sim/Hub.h>
#include <tivra_sim/Wire.h>

#include "tivra_testkit/Inflater.h"

namespace tivra_testkit {

/// A client of plain sockets, which knows nothing of the library: it sends request texts and reads bodies,
/// bytes, or the end of the stream. What a hub doesn't do as it should (no connection, no frame, no answer)
/// is a std::runtime_error. Used by one thread.
class RawClient {
public:
    using Milliseconds = std::chrono::milliseconds;
    static constexpr Milliseconds kDeadline{10000};

    explicit RawClient(const tivra_sim::Hub& hub) : RawClient(hub.port()) {}
    /// Connects to that port of 127.0.0.1.
    explicit RawClient(std::uint16_t port);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    void close();

    void sendBytes(std::string_view bytes);
    /// Sends a request text as a frame.
    void send(std::string_view text);

    /// Bytes as they come: one read. Empty at the end of the stream or after the deadline, which ended()
    /// tells apart.
    std::string readSome(Milliseconds deadline = kDeadline);
    /// All bytes up to the end of the stream.
    std::string readToEnd();
    /// The next body; no value at the end of the stream or after the deadline.
    std::optional<std::string> next(Milliseconds deadline = kDeadline);

    /// Sends a text and returns the bodies of its tag up to the one with a status.
    std::vector<std::string> ask(const std::string& text);
    /// Sends a text and returns the status of its answer.
    int statusOf(const std::string& text);
    /// Logs in as `demo`.
    void logIn(bool isCompressed = false);

    /// From now on bodies come out of one zlib stream.
    void expectCompression();
    /// The bytes of the stream, inflated if they are compressed.
    std::string inflated(const std::string& bytes);

    [[nodiscard]] bool ended() const { return m_ended; }
    [[nodiscard]] bool wasReset() const { return m_wasReset; }

private:
    int m_fd;
    bool m_ended = false;
    bool m_wasReset = false;
    tivra_sim::FrameReader m_reader;
    std::unique_ptr<Inflater> m_inflater;
};

} // namespace tivra_testkit
