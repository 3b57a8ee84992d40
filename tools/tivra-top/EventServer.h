#pragma once

#include "PageFeed.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct MHD_Connection;
struct MHD_Daemon;

namespace tivra_top {

/// Serves the page over HTTP, and to each browser that has it a stream of events. Browsers that don't keep up
/// are dropped and counted; they never hold up the feed or each other.
/// @thread main, but for the functions that the server's own thread calls
class EventServer {
public:
    /// Listens at "IPv4 address:port", with port 0 at a free one. Throws Failure when it can't.
    explicit EventServer(const std::string& address);
    /// Closes all connections.
    ~EventServer();
    EventServer(const EventServer&) = delete;
    EventServer& operator=(const EventServer&) = delete;

    /// Sends what has changed to all who look.
    void publish(Picture picture);

    [[nodiscard]] const std::string& address() const { return m_address; }
    /// How many streams have been opened, and how many of them were given up as too slow.
    [[nodiscard]] std::uint64_t viewers() const;
    [[nodiscard]] std::uint64_t dropped() const;

    /// A browser's stream. @thread of the server, with the lock
    struct Viewer {
        EventServer* server = nullptr;
        MHD_Connection* connection = nullptr;
        std::deque<std::shared_ptr<const std::string>> waiting;
        std::size_t sent = 0; ///< of the first that waits
        bool isSuspended = false;
        bool isDropped = false;
    };

    /// @thread of the server
    struct Reply {
        unsigned status = 200;
        std::string type;
        std::string text;
    };
    [[nodiscard]] Reply reply(const std::string& path, const char* symbol) const;
    /// Null when there are as many as there may be.
    [[nodiscard]] Viewer* join(MHD_Connection* connection);
    /// @param isStuck  whether the connection ended because the browser took nothing any more
    void leave(Viewer* viewer, bool isStuck);
    /// The next bytes of a stream: as of MHD_ContentReaderCallback.
    [[nodiscard]] std::int64_t read(Viewer& viewer, char* buffer, std::size_t room);

private:
    void push(Viewer& viewer, const std::shared_ptr<const std::string>& event);
    void wake(Viewer& viewer);

    std::string m_address;
    MHD_Daemon* m_daemon = nullptr;
    mutable std::mutex m_mutex; ///< guards all below
    PageFeed m_feed;
    std::vector<std::unique_ptr<Viewer>> m_viewers;
    std::uint64_t m_joined = 0;
    std::uint64_t m_dropped = 0;
    unsigned m_quiet = 0; ///< pictures without a change
    bool m_isClosing = false;
};

} // namespace tivra_top
