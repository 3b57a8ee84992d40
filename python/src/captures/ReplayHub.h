#pragma once

#include <tivra_sim/Hub.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace tivra_python {

/// A hub that plays a capture to those who subscribe its symbols.
/// @thread any, one at a time
class ReplayHub {
public:
    /// Where it listens and how it plays.
    struct Options {
        std::string path;
        std::uint16_t port = 0;    ///< 0 takes a free one
        double factor = 0.0;       ///< 1 is the pace of the recording, 0 as fast as clients read
        std::size_t startWhen = 1; ///< symbols that must be subscribed before it begins
    };

    /// Begins to listen. Throws FileFault for a capture that can't be read, and std::system_error when the
    /// port can't be had.
    explicit ReplayHub(const Options& options);

    [[nodiscard]] std::uint16_t port() const { return m_hub.port(); }
    [[nodiscard]] bool isPlayedOut() const { return m_hub.statistics().playbackFinished; }
    [[nodiscard]] std::uint64_t played() const { return m_hub.statistics().playbackEvents; }
    /// Messages that nobody can subscribe, and answers to requests.
    [[nodiscard]] std::uint64_t leftOut() const { return m_hub.statistics().playbackLeftOut; }
    [[nodiscard]] std::size_t connections() const { return m_hub.statistics().connections; }
    void stop() { m_hub.stop(); }

private:
    tivra_sim::Hub m_hub;
};

} // namespace tivra_python
