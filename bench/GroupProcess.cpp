#include "GroupProcess.h"

#include <stdexcept>

#include <unistd.h>

#include <tivra_sim/HubGroup.h>

namespace tivra_bench {
namespace {

void serve(std::size_t symbols, const ChildProcess::Ends& parent) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(kGroupHubs);
    for (std::size_t i = 0; i < symbols; ++i) {
        const std::size_t member = i % kGroupHubs;
        config.members[member].hub.symbols.push_back(
            {kFirstSource + static_cast<int>(member), symbolOf(i), {}});
    }
    tivra_sim::HubGroup group(config);
    group.start();
    const std::uint16_t port = group.hub(0).port();
    if (!writeAll(parent.tell, &port, sizeof port))
        return;
    char byte = 0;
    while (read(parent.control, &byte, 1) > 0) {
        for (std::size_t member = 0; member < group.size(); ++member)
            group.hub(member).dropConnections();
    }
    group.stop();
}

} // namespace

std::string symbolOf(std::size_t index) {
    std::string digits = std::to_string(index);
    return "SYM" + std::string(7 - digits.size(), '0') + digits;
}

GroupProcess::GroupProcess(std::size_t symbols)
    : m_process([symbols](const ChildProcess::Ends& parent) { serve(symbols, parent); }) {
    if (!m_process.read(&m_port, sizeof m_port))
        throw std::runtime_error("the group's process did not start");
}

} // namespace tivra_bench
