// What it costs to keep updates: records, queues and boards, above a callback that does nothing.
#include "HoldLoop.h"
#include "Interleave.h"
#include "Report.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <feed.h>

namespace {

thread_local std::size_t t_allocations = 0;

} // namespace

void* operator new(std::size_t size) {
    ++t_allocations;
    if (void* const block = std::malloc(size))
        return block;
    throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace tivra_bench {
namespace {

constexpr std::size_t kUpdates = 1'000'000;
constexpr std::size_t kFewSymbols = 16;
constexpr std::size_t kManySymbols = 100'000;
constexpr std::size_t kQueueSymbols = 10'000;

[[nodiscard]] tivra::SubscriptionHandlers onUpdate(std::function<void(const tivra::Update&)> call) {
    tivra::SubscriptionHandlers handlers;
    handlers.onUpdate = std::move(call);
    return handlers;
}

/// Nanoseconds of each update above another loop's, round by round.
[[nodiscard]] std::vector<double> above(const std::vector<double>& times, const std::vector<double>& base,
                                        std::size_t updates) {
    std::vector<double> result;
    for (std::size_t i = 0; i < times.size(); ++i)
        result.push_back((times[i] - base[i]) / static_cast<double>(updates) * 1e9);
    return result;
}

void measureCopies(int rounds, std::size_t updates) {
    tivra::Record last;
    std::vector<tivra::Record> kept(10'000);
    std::size_t next = 0;
    HoldLoop plain(kFewSymbols, onUpdate([](const tivra::Update&) {}));
    HoldLoop dropping(kFewSymbols, onUpdate([&](const tivra::Update& update) { last = update.copy(); }));
    HoldLoop keeping(kFewSymbols, onUpdate([&](const tivra::Update& update) {
                         kept[next] = update.copy();
                         next = next + 1 < kept.size() ? next + 1 : 0;
                     }));
    keeping.run(2 * kept.size());
    std::vector<double> allocations;
    const Times times = interleave({{"callback", [&] { plain.run(updates); }},
                                    {"copy()",
                                     [&] {
                                         t_allocations = 0;
                                         dropping.run(updates);
                                         allocations.push_back(static_cast<double>(t_allocations) /
                                                               static_cast<double>(updates));
                                     }},
                                    {"copy(), 10,000 kept", [&] { keeping.run(updates); }}},
                                   rounds);
    Report::get().print("copy of an update", above(times[1], times[0], updates), "ns");
    Report::get().print("copy of an update, 10,000 kept", above(times[2], times[0], updates), "ns");
    Report::get().print("allocations for each copy", allocations, "");
}

void measureBoard(int rounds, std::size_t updates, std::size_t symbols, const char* suffix) {
    tivra::Board board;
    HoldLoop plain(symbols, onUpdate([](const tivra::Update&) {}));
    HoldLoop onBoard(symbols, board.handlers());
    tivra::BoardCursor cursor;
    const Times times =
        interleave({{"callback", [&] { plain.run(updates); }},
                    {"board", [&] { onBoard.run(updates); }},
                    {"changes", [&] { board.changedSince(cursor, [](const tivra::BoardRow&) {}); }}},
                   rounds);
    const std::string name = std::string(", ") + suffix;
    Report::get().print("Board write above the callback" + name, above(times[1], times[0], updates), "ns");
    std::vector<double> perSymbol;
    for (const double time : times[2])
        perSymbol.push_back(time / static_cast<double>(symbols) * 1e9);
    Report::get().print("Board, a changed symbol read" + name, perSymbol, "ns");
    Report::get().print("Board, memory of a symbol of five fields" + name,
                        {static_cast<double>(board.statistics().bytes) / static_cast<double>(symbols)},
                        "bytes");
}

/// A reader that comes by when it likes: what it finds is never more than an event for each symbol.
void measureLatest(int rounds, std::size_t updates) {
    tivra::UpdateQueue queue({tivra::QueuePolicy::Latest, kQueueSymbols});
    HoldLoop plain(kQueueSymbols, onUpdate([](const tivra::Update&) {}));
    HoldLoop queued(kQueueSymbols, queue.handlers());
    std::vector<double> most;
    const Times times = interleave({{"callback", [&] { plain.run(updates); }},
                                    {"merged into the queue",
                                     [&] {
                                         queued.run(updates);
                                         most.push_back(static_cast<double>(queue.statistics().updates));
                                     }}},
                                   rounds);
    Report::get().print("Queue, update merged, 10,000 symbols", above(times[1], times[0], updates), "ns");
    std::atomic<bool> isOver{false};
    std::thread reader([&] {
        while (!isOver || queue.wait(std::chrono::nanoseconds(0)))
            queue.poll(100, [](const tivra::QueueEvent&) {});
    });
    std::vector<double> beside;
    for (int round = 0; round < rounds; ++round) {
        const Times pair = interleave({{"callback", [&] { plain.run(updates); }},
                                       {"queue with a reader", [&] { queued.run(updates); }}},
                                      1);
        beside.push_back(above(pair[1], pair[0], updates).front());
        most.push_back(static_cast<double>(queue.statistics().updates));
    }
    isOver = true;
    reader.join();
    Report::get().print("Queue, update beside a busy reader, 10,000 symbols", beside, "ns");
    Report::get().print("Queue, most updates that waited of 10,000 symbols",
                        {*std::max_element(most.begin(), most.end())}, "");
    const tivra::QueueStatistics figures = queue.statistics();
    if (figures.entered != figures.taken + figures.merged || figures.dropped != 0)
        throw std::runtime_error("the queue has lost an update");
}

int run(const Options& options) {
    const int rounds = options.isQuick ? std::min(options.rounds, 3) : options.rounds;
    const std::size_t updates = options.isQuick ? kUpdates / 5 : kUpdates;
    Report::get().setSection("Hold");
    measureCopies(rounds, updates);
    measureBoard(rounds, updates, kFewSymbols, "16 symbols");
    measureBoard(rounds, updates, kManySymbols, "100,000 symbols");
    measureLatest(rounds, updates);
    Report::get().finish();
    return 0;
}

} // namespace
} // namespace tivra_bench

int main(int argc, char** argv) {
    try {
        return tivra_bench::run(tivra_bench::Options(argc, argv, 11));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "hold: %s\n", error.what());
        return 1;
    }
}
