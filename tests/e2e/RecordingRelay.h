#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

/// Stands between one client and a hub at 127.0.0.1, at the same port of 127.0.0.2, and keeps a copy of all
/// that passes in either direction. One connection at a time.
class RecordingRelay {
public:
    explicit RecordingRelay(std::uint16_t hubPort);
    ~RecordingRelay();
    RecordingRelay(const RecordingRelay&) = delete;
    RecordingRelay& operator=(const RecordingRelay&) = delete;

    [[nodiscard]] std::string host() const { return "127.0.0.2:" + std::to_string(m_hubPort); }
    /// Ends the connection and returns the copy.
    [[nodiscard]] std::string end();

private:
    void run();
    void relay(int client);
    bool pass(int from, int to);

    const std::uint16_t m_hubPort;
    int m_listener = -1;
    int m_wake = -1;
    std::string m_copy; ///< the thread's until it has been joined
    std::thread m_thread;
};
