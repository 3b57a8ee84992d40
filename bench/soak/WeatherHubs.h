#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ChildProcess.h"

namespace tivra_soak {

/// What the hubs are to do.
struct Weather {
    std::size_t symbols = 16'000;
    double rate = 50'000.0; ///< records a second, of all hubs together
    unsigned seed = 1;      ///< of the weather and of which symbol is next
};

/// Hubs in a process of its own. BID of each symbol counts up by one with each record, so that whoever reads
/// it can tell what is missing. Meanwhile hubs lose connections, go down, fall silent, write by the crumb,
/// answer late, say that they are busy, and lose rights.
class WeatherHubs {
public:
    explicit WeatherHubs(const Weather& weather);

    /// The one that a feed is to dial; it names the others.
    [[nodiscard]] std::string hostString() const { return "127.0.0.1:" + std::to_string(m_port); }
    /// Ends the weather and then the records.
    /// @return the last value of each symbol
    [[nodiscard]] std::vector<std::int32_t> calm();

private:
    std::size_t m_symbols;
    tivra_bench::ChildProcess m_process; ///< a byte calms it
    std::uint16_t m_port = 0;
};

} // namespace tivra_soak
