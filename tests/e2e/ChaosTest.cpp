// Bad days: hubs that die, hang, come back, lie and change under a subscriber. CONTRIBUTING.md tells how to
// run more of them.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <thread>

#include <gtest/gtest.h>

#include "ChaosRun.h"
#include "RecordingApp.h"

namespace chaos {
namespace {

constexpr std::uint64_t SEEDS = IS_SANITIZED ? 2 : 6;

std::uint64_t setting(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::size_t entriesOf(const char* directory) {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory))
        ++count;
    return count;
}

TEST(Chaos, EverythingIsAliveAgainWhenTheWeatherClears) {
    const std::uint64_t first = setting("TIVRA_CHAOS_FIRST_SEED", 1);
    const std::uint64_t count = setting("TIVRA_CHAOS_SEEDS", SEEDS);
    Totals totals;
    std::thread([] {}).join(); // a sanitizer makes a thread of its own beside the first
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const Forecast forecast = Forecast::random(seed);
        std::cout << forecast.text() << std::flush;
        const std::size_t threads = entriesOf("/proc/self/task");
        const std::size_t descriptors = entriesOf("/proc/self/fd");
        const std::optional<std::string> fault = run(forecast, totals);
        ASSERT_FALSE(fault) << "seed " << seed << ": " << *fault;
        // The system lists a joined thread for a moment longer.
        for (int turn = 0; turn < 1'000'000 && entriesOf("/proc/self/task") != threads; ++turn)
            std::this_thread::yield();
        EXPECT_EQ(entriesOf("/proc/self/task"), threads);
        EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    }
    std::cout << count << " seeds, " << totals.spells << " spells, " << totals.updates << " updates, "
              << totals.gaps << " spells with gaps; alive again after " << totals.longestCalm.count()
              << " ms at the most, longest stop " << totals.longestStop.count() << " ms" << std::endl;
}

} // namespace
} // namespace chaos
