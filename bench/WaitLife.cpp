// The life of a session: how long it takes to start and stop, to report a loss or a refusal, and to dial
// anew.
#include "Clock.h"
#include "Report.h"
#include "Wait.h"
#include "WaitClient.h"
#include "WaitHubs.h"

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace tivra_bench {
namespace {

void mustStart(WaitClient& client) {
    if (!client.start())
        throw std::runtime_error("the session does not start");
}

void measureStarts(std::size_t hubCount, int most) {
    const WaitHubs hubs(hubCount);
    std::vector<double> starts, stops;
    Rounds rounds(most, 15);
    while (rounds.next()) {
        WaitClient client(hubs.hosts());
        std::int64_t begin = nowNanoseconds();
        mustStart(client);
        starts.push_back(millisecondsBetween(begin, nowNanoseconds()));
        pauseOutOfStep(rounds.index(), 100);
        begin = nowNanoseconds();
        client.stop();
        stops.push_back(millisecondsBetween(begin, nowNanoseconds()));
    }
    const std::string count = hubCount == 1 ? "" : ", " + std::to_string(hubCount) + " hubs";
    Report::get().print("start" + count, starts, "ms");
    Report::get().print("stop" + count, stops, "ms");
}

/// The connection ends; the pause before it is longer than the least time between two dials.
void measureLosses(int most) {
    WaitHubs hubs(1);
    WaitClient client(hubs.hosts());
    mustStart(client);
    std::vector<double> events, dials, returns;
    Rounds rounds(most, 45);
    while (rounds.next()) {
        pauseOutOfStep(rounds.index(), 1100);
        client.forgetEvents();
        const std::int64_t begin = hubs.drop();
        events.push_back(millisecondsBetween(begin, client.waitForLoss()));
        dials.push_back(millisecondsBetween(begin, hubs.waitForDial()));
        returns.push_back(millisecondsBetween(begin, client.waitForEstablished()));
    }
    Report::get().print("loss to its event", events, "ms");
    Report::get().print("loss to the first new dial", dials, "ms");
    Report::get().print("loss to established again", returns, "ms");
}

void measureRefusals(int most) {
    WaitHubs hubs(1);
    hubs.refuseLogins(true);
    std::vector<double> events, returns;
    Rounds rounds(most, 15);
    while (rounds.next()) {
        WaitClient client(hubs.hosts());
        const std::int64_t begin = nowNanoseconds();
        if (client.start())
            throw std::runtime_error("the session starts in spite of a refused login");
        returns.push_back(millisecondsBetween(begin, nowNanoseconds()));
        events.push_back(millisecondsBetween(hubs.lastLogin(), client.waitForRefusal()));
    }
    Report::get().print("refused login to its event", events, "ms");
    Report::get().print("start that is refused", returns, "ms");
}

} // namespace

void measureLife(const Options& options) {
    Report::get().setSection("Wait");
    std::printf("\nThe life of a session\n");
    const int most = options.isQuick ? 5 : options.rounds;
    measureStarts(1, most);
    if (!options.isQuick)
        measureStarts(8, most / 3);
    measureLosses(options.isQuick ? 4 : most / 2);
    measureRefusals(most);
}

} // namespace tivra_bench
