#include "NumberBench.h"

#include "Interleave.h"

#include "kvnparse/NumberDecode.h"
#include "kvnparse/NumericText.h"

#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tivra_bench {

namespace {

constexpr std::size_t COUNT = 200000;
constexpr int ROUNDS = 21;

/// Texts one after the other, each with a "|" behind it.
struct Texts {
    std::string bytes;
    std::vector<std::size_t> starts;

    void add(const std::string& text) {
        starts.push_back(bytes.size());
        bytes.append(text) += '|';
    }
    template<class Read>
    void forEach(Read read) const {
        for (std::size_t i = 0; i < starts.size(); ++i) {
            const std::size_t end = i + 1 < starts.size() ? starts[i + 1] : bytes.size();
            read(bytes.data() + starts[i], bytes.data() + end - 1);
        }
    }
};

void compare(const char* title, std::function<void()> ours, const char* theirName,
             std::function<void()> theirs) {
    const std::vector<Contestant> contestants{{"this library", std::move(ours)},
                                              {theirName, std::move(theirs)}};
    const Times times = interleave(contestants, ROUNDS);
    printTable(title, contestants, times, COUNT, "number");
    printAim("time against the standard library", ratios(times[0], times[1]), "below 1");
}

void benchReaders(const Texts& integers, const Texts& decimals) {
    compare(
        "Reading integers",
        [&] {
            integers.forEach(
                [](const char* p, const char* end) { benchmark::DoNotOptimize(KVNAPI::_atou64(p, end).i); });
        },
        "std::from_chars",
        [&] {
            integers.forEach([](const char* p, const char* end) {
                std::uint64_t value = 0;
                std::from_chars(p, end, value);
                benchmark::DoNotOptimize(value);
            });
        });
    compare(
        "Reading prices",
        [&] {
            decimals.forEach(
                [](const char* p, const char* end) { benchmark::DoNotOptimize(KVNAPI::_atod(p, end).d); });
        },
        "std::from_chars",
        [&] {
            decimals.forEach([](const char* p, const char* end) {
                double value = 0;
                std::from_chars(p, end, value);
                benchmark::DoNotOptimize(value);
            });
        });
}

void benchWriters(const std::vector<std::uint64_t>& integers, const std::vector<double>& decimals) {
    char text[64];
    compare(
        "Writing integers",
        [&] {
            for (const std::uint64_t value : integers) {
                benchmark::DoNotOptimize(KVNAPI::u64toa(text, value));
                benchmark::ClobberMemory();
            }
        },
        "std::to_chars",
        [&] {
            for (const std::uint64_t value : integers) {
                benchmark::DoNotOptimize(std::to_chars(text, text + sizeof text, value).ptr);
                benchmark::ClobberMemory();
            }
        });
    compare(
        "Writing prices",
        [&] {
            for (const double value : decimals) {
                benchmark::DoNotOptimize(KVNAPI::dtoa(text, value));
                benchmark::ClobberMemory();
            }
        },
        "std::to_chars",
        [&] {
            for (const double value : decimals) {
                benchmark::DoNotOptimize(std::to_chars(text, text + sizeof text, value).ptr);
                benchmark::ClobberMemory();
            }
        });
}

} // namespace

void benchNumbers() {
    std::mt19937_64 random(11);
    std::vector<std::uint64_t> integers;
    std::vector<double> decimals;
    Texts integerTexts, decimalTexts;
    for (std::size_t i = 0; i < COUNT; ++i) {
        // Sizes and sequence numbers of a feed: mostly short, some long.
        std::uint64_t limit = 10;
        for (std::uint64_t digits = 1 + random() % 8; digits > 1; --digits)
            limit *= 10;
        integers.push_back(random() % limit);
        integerTexts.add(std::to_string(integers.back()));
        char price[32];
        std::snprintf(price, sizeof price, "%llu.%04llu", static_cast<unsigned long long>(random() % 500),
                      static_cast<unsigned long long>(random() % 10000));
        decimalTexts.add(price);
        decimals.push_back(std::stod(price));
    }
    benchReaders(integerTexts, decimalTexts);
    benchWriters(integers, decimals);
}

} // namespace tivra_bench
