#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace tivra_bench {

class TlsPapers;

/// stunnel at both ends of a hub's connections: what is sent in clear to the hub's port at 127.0.0.2 goes
/// encrypted to the other end, and in clear to the hub at 127.0.0.1.
class Stunnel {
public:
    /// Whether it is installed.
    [[nodiscard]] static bool isThere();

    Stunnel(const TlsPapers& papers, std::uint16_t hubPort);
    ~Stunnel();
    Stunnel(const Stunnel&) = delete;
    Stunnel& operator=(const Stunnel&) = delete;

    /// Of the end at the reader's side.
    [[nodiscard]] double processorSeconds() const;

private:
    pid_t m_reader = -1;
    pid_t m_hub = -1;
};

} // namespace tivra_bench
