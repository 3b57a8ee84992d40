// Hours of weather: sixteen hubs, tens of thousands of standing requests, readers fast and slow. It checks
// that each symbol's values come in order, that whatever is missing was reported, and that memory,
// descriptors, threads and the log stay bounded.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "soak/Footprint.h"
#include "soak/Guests.h"
#include "soak/Reader.h"
#include "soak/Trace.h"
#include "soak/WeatherHubs.h"

namespace tivra_soak {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

struct Options {
    double hours = 2.0;
    Weather weather;
    fs::path folder = "soak";
};

/// The log stays open for whoever opens the next feed.
constexpr std::size_t kKeptByTheLog = 1;

using Readers = std::vector<std::unique_ptr<Reader>>;

tivra::FeedOptions feedOptions(const WeatherHubs& hubs, const fs::path& logs) {
    tivra::FeedOptions options;
    options.hosts = {hubs.hostString()};
    options.user = "demo";
    options.password = "demo";
    options.logFile = (logs / "tivra.log").string();
    options.retry = {50ms, 2000ms, 20};
    return options;
}

Readers openReaders(const tivra::FeedOptions& options, std::size_t symbols) {
    Readers readers;
    readers.push_back(callbackReader(options, symbols, false));
    readers.push_back(callbackReader(options, symbols, true));
    readers.push_back(queueReader(options, symbols, tivra::QueuePolicy::DropOldest));
    readers.push_back(queueReader(options, symbols, tivra::QueuePolicy::Latest));
    return readers;
}

/// Until the readers have all that the hubs have sent, which takes what the longest pause takes and a little.
std::size_t waitForTheEnd(const Readers& readers, const std::vector<std::int32_t>& newest) {
    const auto end = Clock::now() + 120s;
    for (;;) {
        std::size_t behind = 0;
        for (const auto& reader : readers)
            behind += reader->ledger().behind(newest);
        if (behind == 0 || Clock::now() > end)
            return behind;
        std::this_thread::sleep_for(100ms);
    }
}

void print(const Reader& reader, const std::vector<std::int32_t>& newest) {
    const Ledger::Counts counts = reader.ledger().counts();
    const tivra::FeedStatistics statistics = reader.feed().statistics();
    fmt::print("{:28} {:>12} {:>9} {:>9} {:>9} {:>12} {:>7} {:>7} {:>9.0f} {:>9.0f}\n",
               reader.ledger().reader(), counts.updates, counts.images, counts.losses, counts.gaps,
               counts.leftOut, counts.faults, reader.ledger().behind(newest),
               1e-3 * static_cast<double>(statistics.socketToDecode.p99.count()),
               1e-3 * static_cast<double>(statistics.decodeToCallback.p99.count()));
    for (const std::string& fault : reader.ledger().faults())
        fmt::print("  FAULT {}\n", fault);
}

/// @return whether all is well
bool soak(const Options& options) {
    const fs::path logs = options.folder / "log";
    fs::create_directories(logs);
    WeatherHubs hubs(options.weather); // a process of its own, so before any thread
    Trace trace(options.folder / "soak.csv");
    const Footprint before = Footprint::now(logs);
    std::size_t behind = 0;
    std::uint64_t faults = 0;
    double residentInUse = 0.0;
    {
        const tivra::FeedOptions feeds = feedOptions(hubs, logs);
        Readers readers = openReaders(feeds, options.weather.symbols);
        {
            const Guests guests(feeds, options.weather.symbols);
            const auto begin = Clock::now();
            const std::chrono::duration<double> length = options.hours * 1h;
            for (auto next = begin; next < begin + length; next += 10s) {
                std::this_thread::sleep_until(next);
                const std::chrono::duration<double> passed = Clock::now() - begin;
                trace.add(passed.count(), readers, Footprint::now(logs));
            }
            fmt::print("feeds that came and went: {}, turned away by a storm: {}\n", guests.count(),
                       guests.turnedAway());
        }
        for (const auto& reader : readers)
            reader->hurry();
        const std::vector<std::int32_t> newest = hubs.calm();
        behind = waitForTheEnd(readers, newest);
        fmt::print("{:28} {:>12} {:>9} {:>9} {:>9} {:>12} {:>7} {:>7} {:>9} {:>9}\n", "reader", "updates",
                   "images", "losses", "gaps", "left out", "faults", "behind", "p99 us", "p99 us");
        fmt::print("{:>109} {:>9}\n", "decode", "callback");
        for (const auto& reader : readers) {
            print(*reader, newest);
            faults += reader->ledger().counts().faults;
        }
        residentInUse = Footprint::residentInUse();
    }
    // What a feed leaves behind ends by itself, and soon.
    Footprint after = Footprint::now(logs);
    for (int i = 0; i < 50 && after.threads != before.threads; ++i) {
        std::this_thread::sleep_for(100ms);
        after = Footprint::now(logs);
    }
    fmt::print("subscriptions that aren't live with the last value at the end: {}\n", behind);
    fmt::print("threads before {} after {}; descriptors before {} after {}\n", before.threads, after.threads,
               before.descriptors, after.descriptors);
    const bool isBounded = trace.judge(residentInUse);
    const bool isTidy =
        after.threads == before.threads && after.descriptors <= before.descriptors + kKeptByTheLog;
    return behind == 0 && faults == 0 && isBounded && isTidy;
}

} // namespace
} // namespace tivra_soak

int main(int argc, char** argv) {
    tivra_soak::Options options;
    CLI::App app("Runs readers in the weather of sixteen hubs for hours and checks what they are told.");
    app.add_option("hours", options.hours, "how long")->check(CLI::Range(0.001, 1000.0))->required();
    app.add_option("--rate", options.weather.rate, "records a second")->check(CLI::Range(1.0, 1e6));
    app.add_option("--symbols", options.weather.symbols, "symbols, each subscribed by four readers")
        ->check(CLI::Range(16, 1'000'000));
    app.add_option("--seed", options.weather.seed, "of the weather");
    app.add_option("--folder", options.folder, "where soak.csv and the log go");
    CLI11_PARSE(app, argc, argv);
    try {
        const bool isWell = tivra_soak::soak(options);
        std::puts(isWell ? "all is well" : "NOT all is well");
        return isWell ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 2;
    }
}
