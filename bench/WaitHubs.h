#pragma once

#include "ChildProcess.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tivra_bench {

/// Hubs in a process of their own, each with one source and a symbol, and what they saw and when. Times are
/// of the monotonic clock, in nanoseconds.
class WaitHubs {
public:
    static constexpr int kSource = 1000; ///< the first hub's; the next hub has the next one
    static constexpr const char* kSymbol = "IBM";

    explicit WaitHubs(std::size_t hubs);

    [[nodiscard]] std::vector<std::string> hosts() const;
    [[nodiscard]] std::uint16_t port() const { return m_ports.front(); }

    /// All connections end. Returns when that was begun.
    std::int64_t drop();
    /// Waits for the first new connection to the first hub after a drop. Returns when it was accepted.
    std::int64_t waitForDial();
    /// From now on a login is refused, or taken again.
    void refuseLogins(bool areRefused);
    /// When the first hub read the last login request.
    [[nodiscard]] std::int64_t lastLogin() const { return m_seen->login; }
    /// Forgets the snapshot requests so far.
    void forgetSnapshots() { m_seen->snapshots = 0; }
    /// When the first hub read each snapshot request, up to as many as are kept.
    [[nodiscard]] std::vector<std::int64_t> snapshotTimes() const;

    /// What the hubs' process writes and both read.
    struct Seen {
        std::atomic<std::int64_t> dropped{0};
        std::atomic<std::int64_t> dialled{0};
        std::atomic<std::int64_t> login{0};
        std::atomic<std::size_t> snapshots{0};
        std::array<std::atomic<std::int64_t>, 4096> times{};
    };

private:
    enum Order : char { DROP, REFUSE, TAKE };

    static void serve(Seen& seen, std::size_t hubs, const ChildProcess::Ends& parent);
    void order(Order what);
    void waitForDone() const;

    struct Unmap {
        void operator()(Seen* seen) const;
    };
    std::unique_ptr<Seen, Unmap> m_seen; ///< shared with the hubs' process
    ChildProcess m_process;              ///< a byte is an order, and so is its answer
    std::vector<std::uint16_t> m_ports;
};

} // namespace tivra_bench
