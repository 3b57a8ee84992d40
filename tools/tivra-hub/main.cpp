#include "Options.h"

#include "common/CommandLine.h"
#include "common/UsageError.h"
#include "tivra_sim/HubGroup.h"

#include <algorithm>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace tivra_sim;

enum ExitCode { ENDED = 0, BAD_CONFIGURATION = 2, NO_PORT = 3, NO_PLAYBACK = 4, DESERTED = 5 };

/// Tenths of a second that --once waits for a client to come back while there is something left to play.
constexpr int kPatience = 50;

/// A request's text with the password left out.
std::string printable(const Request& request) {
    std::string text;
    for (const Pair& pair : splitPairs(request.text)) {
        text.append(text.empty() ? "" : "|").append(std::to_string(pair.token)).append("=");
        text.append(pair.token == token::PASSWORD ? std::string_view("***") : pair.value);
    }
    return text;
}

void printCounts(const HubStatistics& now) {
    std::cout << "connections " << now.connections << ", subscriptions " << now.subscriptions << ", requests "
              << now.requests << ", messages sent " << now.updatesSent << ", bytes sent " << now.bytesSent
              << std::endl;
}

void printSummary(const HubStatistics& total) {
    std::cout << "sent " << total.updatesSent << " messages (" << total.playbackSent << " of playback, "
              << total.playbackEvents << " events played) in " << total.framesSent << " frames and "
              << total.bytesSent << " bytes; " << total.requests << " requests on " << total.accepted
              << " connections" << std::endl;
}

/// What a load came to, and what slow clients cost it.
void printLoad(const HubConfig& config, const HubStatistics& total) {
    if (config.playback.load.symbols == 0 && !config.playback.dropsForSlow)
        return;
    const double seconds = total.playbackSeconds;
    std::cout << std::fixed << std::setprecision(0)
              << "load: " << (seconds > 0.0 ? static_cast<double>(total.playbackEvents) / seconds : 0.0)
              << " messages a second";
    if (config.playback.load.symbols > 0)
        std::cout << " of " << config.playback.load.rate * config.playback.factor << " wanted";
    std::cout << std::setprecision(1) << ", for " << seconds << " s, at most " << total.playbackLateness * 1e3
              << " ms late; " << total.slowClients << " of " << total.accepted
              << " clients were slow, for whom " << total.playbackDropped << " messages ("
              << total.playbackDroppedBytes << " bytes) were left out" << std::endl;
}

/// What all the hubs together have done.
HubStatistics totalOf(const std::vector<Hub*>& hubs) {
    HubStatistics total;
    for (const Hub* hub : hubs) {
        const HubStatistics now = hub->statistics();
        total.connections += now.connections;
        total.subscriptions += now.subscriptions;
        total.accepted += now.accepted;
        total.requests += now.requests;
        total.framesSent += now.framesSent;
        total.bytesSent += now.bytesSent;
        total.updatesSent += now.updatesSent;
        total.playbackEvents += now.playbackEvents;
        total.playbackSent += now.playbackSent;
    }
    return total;
}

/// What a hub's playback waits for.
std::string startOfPlayback(const Hub& hub) {
    const std::size_t symbols = hub.config().playback.startWhenSubscriptions;
    return "the playback starts when " + std::to_string(symbols) +
           (symbols == 1 ? " symbol is" : " symbols are") + " subscribed at " + hub.hostString();
}

/// Before it is known whether anybody comes: a client may be as quick as this program.
void printWaiting(const std::vector<Hub*>& hubs) {
    for (const Hub* hub : hubs) {
        if (hub->config().playback.isWanted())
            std::cout << startOfPlayback(*hub) << std::endl;
    }
}

/// What a playback has waited for in vain.
void printNothingPlayed(const std::vector<Hub*>& hubs) {
    for (const Hub* hub : hubs) {
        const HubStatistics now = hub->statistics();
        if (hub->config().playback.isWanted() && now.playbackEvents == 0 && !now.playbackFinished)
            std::cout << "nothing was played: " << startOfPlayback(*hub) << std::endl;
    }
}

/// True when every hub that has something to play has played it.
bool isPlayedOut(const std::vector<Hub*>& hubs) {
    return std::all_of(hubs.begin(), hubs.end(), [](const Hub* hub) {
        return !hub->config().playback.isWanted() || hub->statistics().playbackFinished;
    });
}

/// Waits for a signal, or for the end that --once asks for. The result is the exit code.
int serve(const std::vector<Hub*>& hubs, const Options& options, const sigset_t& signals) {
    const timespec slice{0, 100000000};
    int slices = 0;
    int deserted = 0;
    while (sigtimedwait(&signals, nullptr, &slice) < 0) {
        const HubStatistics now = totalOf(hubs);
        if (options.verbosity > 1 && ++slices % 10 == 0)
            printCounts(now);
        const bool isDeserted = now.requests > 0 && now.connections == 0;
        deserted = isDeserted ? deserted + 1 : 0;
        if (!options.endsAfterPlayback || !isDeserted)
            continue;
        if (isPlayedOut(hubs))
            return ENDED;
        if (deserted >= kPatience) {
            std::cerr << "tivra-hub: every client has gone for 5 seconds and the playback is not at its end"
                      << std::endl;
            return DESERTED;
        }
    }
    return ENDED;
}

/// Prints each request of a hub, which is called `name`.
void printRequests(Hub& hub, const std::string& name) {
    hub.script([name](const Request& request) -> std::optional<Hub::Frames> {
        std::cout << name + "connection " + std::to_string(request.connection) + ": " + printable(request) +
                         "\n"
                  << std::flush;
        return std::nullopt;
    });
}

int runHub(const Options& options, const sigset_t& signals) {
    const HubConfig config = makeConfig(options);
    if (options.printsConfig) {
        std::cout << config.toJson(HubConfig::Passwords::Hide) << std::endl;
        return ENDED;
    }
    Hub hub(config);
    if (options.verbosity > 0)
        printRequests(hub, "");
    hub.start();
    std::cout << "listening on " << hub.hostString() << std::endl;
    printWaiting({&hub});
    const int result = serve({&hub}, options, signals);
    printNothingPlayed({&hub});
    const HubStatistics atEnd = hub.statistics();
    hub.stop();
    if (const std::uint64_t leftOut = hub.statistics().playbackLeftOut; leftOut > 0)
        std::cerr << "tivra-hub: " << leftOut
                  << " messages of the capture have no symbol or answer a request; they were left out"
                  << std::endl;
    printLoad(config, atEnd);
    printSummary(hub.statistics());
    return result;
}

int runGroup(const Options& options, const sigset_t& signals) {
    GroupConfig config = GroupConfig::fromJsonFile(options.groupFile);
    for (GroupMember& member : config.members)
        startBySubscriptions(member.hub);
    if (options.printsConfig) {
        std::cout << config.toJson(HubConfig::Passwords::Hide) << std::endl;
        return ENDED;
    }
    HubGroup group(config);
    std::vector<Hub*> hubs;
    for (std::size_t member = 0; member < group.size(); ++member) {
        hubs.push_back(&group.hub(member));
        if (options.verbosity > 0)
            printRequests(group.hub(member), "hub " + std::to_string(member) + ", ");
    }
    group.start();
    for (std::size_t member = 0; member < group.size(); ++member)
        std::cout << (hubs[member]->isRunning() ? "listening on " : "down on ") << group.hostString(member)
                  << std::endl;
    for (std::size_t index = 0; index < group.managerCount(); ++index) {
        // What hands out the members; the first of them stands for all.
        std::cout << "manager on " << group.managedHostString(0, index)
                  << ", TIVRA_SIM_MANAGER_PORT=" << group.manager(index).port() << std::endl;
    }
    printWaiting(hubs);
    const int result = serve(hubs, options, signals);
    printNothingPlayed(hubs);
    group.stop();
    printSummary(totalOf(hubs));
    return result;
}

int run(const Options& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // Blocked before a hub's thread starts, so that only the wait takes them.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return options.groupFile.empty() ? runHub(options, signals) : runGroup(options, signals);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app(
        "A hub in a box: serves one market-data hub, or a group of them, from a configuration and plays "
        "a trading day.",
        "tivra-hub");
    Options options;
    declare(app, options);
    try {
        return tivra_tools::readCommandLine(app, argc, argv) ? run(options) : ENDED;
    } catch (const tivra_tools::UsageError& error) {
        std::cerr << "tivra-hub: " << error.what() << std::endl;
        return BAD_CONFIGURATION;
    } catch (const ConfigError& error) {
        std::cerr << "tivra-hub: cannot start with this configuration: " << error.what() << std::endl;
        return BAD_CONFIGURATION;
    } catch (const std::system_error& error) {
        std::cerr << "tivra-hub: cannot serve: " << error.what() << std::endl;
        return NO_PORT;
    } catch (const std::exception& error) {
        std::cerr << "tivra-hub: cannot start the playback: " << error.what() << std::endl;
        return NO_PLAYBACK;
    }
}
