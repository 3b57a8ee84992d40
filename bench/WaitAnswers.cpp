// Snapshots of an idle session: how long one takes, how many a second, and how a thousand go out at once.
#include "Clock.h"
#include "EchoPeer.h"
#include "HandOvers.h"
#include "HubSocket.h"
#include "Interleave.h"
#include "Report.h"
#include "Wait.h"
#include "WaitClient.h"
#include "WaitHubs.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace tivra_bench {
namespace {

constexpr std::int64_t kWindow = 50'000'000; ///< nanoseconds
constexpr std::size_t kPipelined = 1000;

std::int64_t snapshot(WaitClient& client) {
    return client.snapshots(1, WaitHubs::kSource, WaitHubs::kSymbol).front();
}

/// The four ways in turn, each after a pause in which all of them are idle.
void measureRoundTrips(WaitClient& client, const WaitHubs& hubs, EchoPeer& echo, HandOvers& handOvers,
                       const Options& options) {
    HubSocket socket(hubs.port());
    socket.logIn(false);
    std::vector<double> library, handed, raw, bare;
    Rounds rounds(options.isQuick ? 200 : 1000, options.isQuick ? 4 : 15);
    for (int warmUp = 0; warmUp < 10; ++warmUp)
        snapshot(client);
    while (rounds.next()) {
        pauseOutOfStep(rounds.index(), 5);
        std::int64_t begin = nowNanoseconds();
        library.push_back(millisecondsBetween(begin, snapshot(client)));
        pauseOutOfStep(rounds.index(), 5);
        begin = nowNanoseconds();
        handed.push_back(millisecondsBetween(begin, handOvers.ask()));
        pauseOutOfStep(rounds.index(), 1);
        begin = nowNanoseconds();
        socket.snapshot(WaitHubs::kSource, WaitHubs::kSymbol);
        raw.push_back(millisecondsBetween(begin, nowNanoseconds()));
        pauseOutOfStep(rounds.index(), 1);
        begin = nowNanoseconds();
        echo.ask();
        bare.push_back(millisecondsBetween(begin, nowNanoseconds()));
    }
    Report& report = Report::get();
    std::printf("\nA question and its answer, each after a pause\n");
    report.printQuantiles("snapshot", library, "ms");
    report.printQuantiles("the same hand-overs, bare", handed, "ms");
    report.printQuantiles("bare socket, same hub", raw, "ms");
    report.printQuantiles("bare TCP, a process that only answers", bare, "ms");
    report.print("snapshot to bare TCP", ratios(library, bare), "ratio");
    report.print("snapshot to the bare hand-overs", ratios(library, handed), "ratio");
}

/// One after the other without a pause.
void measureRate(WaitClient& client, const Options& options) {
    std::vector<double> rates;
    for (int stretch = 0; stretch < 5; ++stretch) {
        const std::int64_t begin = nowNanoseconds();
        const std::int64_t length = options.isQuick ? 200'000'000 : 500'000'000;
        std::int64_t end = begin;
        double count = 0;
        for (; end < begin + length; ++count)
            end = snapshot(client);
        rates.push_back(count * 1000.0 / millisecondsBetween(begin, end));
    }
    Report::get().print("sequential snapshots", rates, "1/s", Better::HIGHER);
}

/// The most of them in any stretch of 50 ms.
double mostInWindow(const std::vector<std::int64_t>& times) {
    std::size_t most = 0;
    for (std::size_t first = 0, last = 0; last < times.size(); ++last) {
        while (times[last] - times[first] >= kWindow)
            ++first;
        most = std::max(most, last - first + 1);
    }
    return static_cast<double>(most);
}

void measurePipelined(WaitClient& client, WaitHubs& hubs, const Options& options) {
    std::vector<double> half, all, most;
    Rounds rounds(options.isQuick ? 5 : 20, 15);
    while (rounds.next()) {
        pauseOutOfStep(rounds.index(), 100);
        hubs.forgetSnapshots();
        const std::int64_t begin = nowNanoseconds();
        const std::vector<std::int64_t> answers =
            client.snapshots(kPipelined, WaitHubs::kSource, WaitHubs::kSymbol);
        half.push_back(millisecondsBetween(begin, answers[kPipelined / 2 - 1]));
        all.push_back(millisecondsBetween(begin, answers.back()));
        most.push_back(mostInWindow(hubs.snapshotTimes()));
    }
    Report& report = Report::get();
    report.print("1,000 pipelined snapshots, 500 answered", half, "ms");
    report.print("1,000 pipelined snapshots, all answered", all, "ms");
    report.print("most requests that the hub read in 50 ms", most, "requests");
    report.add("most requests that the hub read in 50 ms, worst",
               {*std::max_element(most.begin(), most.end())}, "requests");
}

} // namespace

void measureAnswers(const Options& options) {
    EchoPeer echo;
    WaitHubs hubs(1);
    HandOvers handOvers;
    WaitClient client(hubs.hosts());
    if (!client.start())
        throw std::runtime_error("the session does not start");
    Report::get().setSection("Wait");
    measureRoundTrips(client, hubs, echo, handOvers, options);
    measureRate(client, options);
    measurePipelined(client, hubs, options);
}

} // namespace tivra_bench
