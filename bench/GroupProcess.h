#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ChildProcess.h"

namespace tivra_bench {

inline constexpr std::size_t kGroupHubs = 8;
/// The first hub's own source; the next hub has the next one.
inline constexpr int kFirstSource = 200;

/// The symbol of the i-th subscription. It is on the source `kFirstSource` + i % `kGroupHubs`.
[[nodiscard]] std::string symbolOf(std::size_t index);

/// A group of hubs in one process of its own, which carries as many symbols as are asked for.
class GroupProcess {
public:
    explicit GroupProcess(std::size_t symbols);

    /// The hub that a session is to dial.
    [[nodiscard]] std::string hostString() const { return "127.0.0.1:" + std::to_string(m_port); }
    /// All hubs close their connections at once, and take new ones.
    void dropConnections() const { m_process.write(1); }

private:
    ChildProcess m_process; ///< a byte drops the connections
    std::uint16_t m_port = 0;
};

} // namespace tivra_bench
