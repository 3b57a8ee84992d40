#include "soak/Trace.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include <fmt/format.h>

namespace tivra_soak {
namespace {

constexpr double kMegabyte = 1024.0 * 1024.0;
constexpr double kGrowthAllowed = 1.10;
constexpr double kSlackMegabytes = 8.0;
/// The allocator keeps some of what was freed, and more of it with each thread that came and went: how much
/// of the process that may be.
constexpr double kKeptAllowed = 2.0;
/// A connection has a descriptor to be woken by from the first time on that its reads are held back.
constexpr double kDescriptorsOnDemand = 16.0 * 5.0;
constexpr double kLogMegabytesAnHour = 100.0;

} // namespace

Trace::Trace(const std::filesystem::path& file) : m_file(file) {
    if (!m_file)
        throw std::runtime_error("cannot write " + file.string());
    m_file << "seconds,updates,rate,gaps,faults,resident_mb,heap_mb,threads,descriptors,log_mb,cpu_seconds\n";
}

void Trace::add(double seconds, const std::vector<std::unique_ptr<Reader>>& readers,
                const Footprint& footprint) {
    std::uint64_t updates = 0, gaps = 0, faults = 0;
    for (const auto& reader : readers) {
        const Ledger::Counts counts = reader->ledger().counts();
        updates += counts.updates + counts.leftOut;
        gaps += counts.gaps;
        faults += counts.faults;
    }
    const double passed = m_looks.empty() ? seconds : seconds - m_looks.back().seconds;
    const double rate = passed > 0.0 ? static_cast<double>(updates - m_lastUpdates) / passed : 0.0;
    m_lastUpdates = updates;
    m_looks.push_back({seconds, footprint});
    const std::string line = fmt::format(
        "{:.0f},{},{:.0f},{},{},{:.1f},{:.1f},{},{},{:.2f},{:.1f}", seconds, updates, rate, gaps, faults,
        footprint.residentBytes / kMegabyte, footprint.heapBytes / kMegabyte, footprint.threads,
        footprint.descriptors, static_cast<double>(footprint.logBytes) / kMegabyte, footprint.cpuSeconds);
    m_file << line << std::endl; // whoever looks on wants it now
    fmt::print("{}\n", line);
    std::fflush(stdout);
}

bool Trace::judge(double residentInUse) const {
    // The second tenth, when all subscriptions stand, against the last.
    const std::size_t tenth = m_looks.size() / 10;
    if (tenth == 0) {
        fmt::print("too short to judge memory and log\n");
        return true;
    }
    const auto most = [this](std::size_t from, std::size_t to, auto&& of) {
        double highest = 0.0;
        for (std::size_t i = from; i < to; ++i)
            highest = std::max(highest, of(m_looks[i].footprint));
        return highest;
    };
    const std::size_t count = m_looks.size();
    bool isBounded = true;
    const auto compare = [&](const char* what, double allowed, auto&& of) {
        const double early = most(tenth, 2 * tenth, of);
        const double late = most(count - tenth, count, of);
        const bool isWell = late <= early * kGrowthAllowed + allowed;
        fmt::print("{}: {:.1f} in the second tenth, {:.1f} in the last{}\n", what, early, late,
                   isWell ? "" : "  GROWS");
        isBounded = isBounded && isWell;
    };
    const double early = most(tenth, 2 * tenth, [](const Footprint& at) { return at.residentBytes; });
    const double late = most(count - tenth, count, [](const Footprint& at) { return at.residentBytes; });
    const bool isResidentWell =
        residentInUse <= early * kGrowthAllowed + kSlackMegabytes * kMegabyte && late <= early * kKeptAllowed;
    fmt::print(
        "resident MB: {:.1f} in the second tenth, {:.1f} in the last, {:.1f} without what the allocator "
        "keeps{}\n",
        early / kMegabyte, late / kMegabyte, residentInUse / kMegabyte, isResidentWell ? "" : "  GROWS");
    isBounded = isBounded && isResidentWell;
    compare("heap MB", kSlackMegabytes, [](const Footprint& at) { return at.heapBytes / kMegabyte; });
    compare("threads", 24.0, [](const Footprint& at) { return static_cast<double>(at.threads); });
    compare("descriptors", 24.0 + kDescriptorsOnDemand,
            [](const Footprint& at) { return static_cast<double>(at.descriptors); });
    const double hours = m_looks.back().seconds / 3600.0;
    const double logged = static_cast<double>(m_looks.back().footprint.logBytes) / kMegabyte / hours;
    const bool isQuiet = logged <= kLogMegabytesAnHour;
    fmt::print("log MB an hour: {:.1f}{}\n", logged, isQuiet ? "" : "  TOO MUCH");
    return isBounded && isQuiet;
}

} // namespace tivra_soak
