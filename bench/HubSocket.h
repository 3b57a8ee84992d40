#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tivra_bench {

struct RoadTask;

/// A bare connection to a hub, for what is measured without the library.
class HubSocket {
public:
    explicit HubSocket(std::uint16_t port);
    ~HubSocket();
    HubSocket(const HubSocket&) = delete;
    HubSocket& operator=(const HubSocket&) = delete;

    void logIn(bool compressed);
    /// Asks for a snapshot and reads until its end has come.
    void snapshot(int source, const std::string& symbol);
    /// Logs in and subscribes what the task is about.
    void subscribe(const RoadTask& task);
    /// 0 after the end of the stream.
    [[nodiscard]] std::size_t receive(char* to, std::size_t room);
    /// Ends a read in another thread.
    void shutDown();

private:
    void request(const std::string& text);

    int m_fd;
};

} // namespace tivra_bench
