// What a session takes from its machine while nothing happens: processor time, and how often its threads
// wake.
#include "Interleave.h"
#include "Report.h"
#include "Wait.h"
#include "WaitClient.h"
#include "WaitHubs.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <time.h>

namespace tivra_bench {
namespace {

constexpr int kStretches = 5;

double processSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Context switches of each thread of this process so far, by the thread's name.
std::map<std::string, double> switches() {
    std::map<std::string, double> counts;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        std::string name, key, value;
        while (status >> key && std::getline(status, value)) {
            if (key == "Name:")
                name = value.substr(value.find_first_not_of(" \t"));
            else if (key.find("ctxt_switches:") != std::string::npos)
                counts[name] += std::stod(value);
        }
    }
    return counts;
}

/// Of all threads: the sleep of the one that measures is among them.
double sum(const std::map<std::string, double>& counts) {
    double all = 0;
    for (const auto& [name, count] : counts)
        all += count;
    return all;
}

void measureOne(std::size_t hubCount, bool hasManyThreads, const Options& options) {
    const WaitHubs hubs(hubCount);
    WaitClient client(hubs.hosts(), hasManyThreads);
    if (!client.start())
        throw std::runtime_error("the session does not start");
    const auto length = std::chrono::milliseconds(options.isQuick ? 400 : 1500);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500)); // what a start leaves to do is done
    std::vector<double> shares, rates;
    const auto before = switches();
    for (int stretch = 0; stretch < kStretches; ++stretch) {
        const double count = sum(switches());
        const double cpu = processSeconds();
        std::this_thread::sleep_for(length); // the time that is measured
        const double used = processSeconds() - cpu;
        const double seconds = std::chrono::duration<double>(length).count();
        shares.push_back(used / seconds * 100.0);
        rates.push_back((sum(switches()) - count - 1) / seconds);
    }
    const std::string name = std::to_string(hubCount) + (hubCount == 1 ? " hub" : " hubs") +
                             (hasManyThreads ? ", a thread each" : "");
    Report::get().print("idle, " + name + ", processor", shares, "% of a core");
    Report::get().print("idle, " + name + ", switches", rates, "1/s");
    if (hubCount > 1)
        return;
    for (const auto& [thread, count] : switches())
        std::printf("    %-18s %8.1f switches a second\n", thread.c_str(),
                    (count - (before.count(thread) != 0 ? before.at(thread) : 0)) /
                        std::chrono::duration<double>(length * kStretches).count());
}

} // namespace

void measureIdle(const Options& options) {
    Report::get().setSection("Wait");
    std::printf("\nAn idle session, with a heartbeat of each hub a second\n");
    measureOne(1, false, options);
    measureOne(8, false, options);
    measureOne(8, true, options);
    if (options.isQuick)
        return;
    measureOne(64, false, options);
    measureOne(64, true, options);
}

} // namespace tivra_bench
