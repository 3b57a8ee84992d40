// Bad days: hubs that die, hang, come back, lie and change under a subscriber. CONTRIBUTING.md tells how to
// run more of them.
#include <chrono>
#include <iostream>
#include <thread>

#include <gtest/gtest.h>

#include "ChaosRun.h"
#include "Process.h"
#include "RecordingApp.h"

namespace chaos {
namespace {

constexpr std::uint64_t SEEDS = IS_SANITIZED ? 2 : 6;

TEST(Chaos, EverythingIsAliveAgainWhenTheWeatherClears) {
    const std::uint64_t first = setting("TIVRA_CHAOS_FIRST_SEED", 1);
    const std::uint64_t count = setting("TIVRA_CHAOS_SEEDS", SEEDS);
    Totals totals;
    std::thread([] {}).join(); // a sanitizer makes a thread of its own beside the first
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const Forecast forecast = Forecast::random(seed);
        std::cout << forecast.text() << std::flush;
        const std::size_t threadsBefore = threads();
        const std::size_t descriptorsBefore = descriptors();
        const std::optional<std::string> fault = run(forecast, totals);
        ASSERT_FALSE(fault) << "seed " << seed << ": " << *fault;
        EXPECT_EQ(threadsOnce(threadsBefore), threadsBefore);
        EXPECT_EQ(descriptors(), descriptorsBefore);
    }
    std::cout << count << " seeds, " << totals.spells << " spells, " << totals.updates << " updates, "
              << totals.gaps << " spells with gaps; alive again after " << totals.longestCalm.count()
              << " ms at the most, longest stop " << totals.longestStop.count() << " ms" << std::endl;
}

} // namespace
} // namespace chaos
