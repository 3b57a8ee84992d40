#include "common/SessionOptions.h"

#include "common/HostAddress.h"
#include "common/UsageError.h"

#include <fmt/format.h>

#include <algorithm>

namespace tivra_tools {

void declareHosts(CLI::App& app, const std::string& group, std::vector<std::string>& hosts,
                  std::vector<std::string>& backups) {
    app.add_option("-H,--host", hosts, "hub as ADDRESS:PORT; repeat it for more hubs")
        ->allow_extra_args(false)
        ->group(group);
    app.add_option("-B,--backup", backups, "backup hub, used when the others are lost; repeatable")
        ->allow_extra_args(false)
        ->group(group);
}

void checkHosts(const std::vector<std::string>& hosts, const std::vector<std::string>& backups) {
    std::vector<std::string> places;
    places.reserve(hosts.size());
    for (const std::string& host : hosts)
        places.push_back(resolveHost(host).front());
    for (const std::string& backup : backups)
        if (std::find(places.begin(), places.end(), resolveHost(backup).front()) != places.end())
            throw UsageError(fmt::format("{} is named both as a hub and as its backup", backup));
}

void declareReadTimeout(CLI::App& app, const std::string& group, std::optional<long>& seconds) {
    app.add_option("--read-timeout", seconds,
                   "seconds of silence after which a hub counts as lost, 0 for never")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
}

void declareLogFile(CLI::App& app, const std::string& group, std::string& logFile) {
    app.add_option("--log-file", logFile, "base name of the library's log; default in the state directory")
        ->group(group);
}

} // namespace tivra_tools
