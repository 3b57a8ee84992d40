#include "Stage.h"

#include <functional>
#include <map>
#include <random>

#include <tp/Clock.h>

using std::chrono::microseconds;
using std::chrono::milliseconds;
using tivra_sim::Hub;
using tivra_sim::HubGroup;

namespace history {
namespace {

constexpr int RIGHT = 102; // comes and goes, and nothing hangs on it

std::deque<HubGroup> started(std::size_t sides, const tivra_sim::GroupConfig& config) {
    std::deque<HubGroup> groups;
    for (std::size_t side = 0; side < sides; ++side)
        groups.emplace_back(config).start();
    return groups;
}

std::string garbage(unsigned amount) {
    std::minstd_rand dice(amount + 1);
    std::string bytes(1 + amount % 300, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(dice());
    if (amount % 3 == 0)
        bytes =
            tivra_sim::encodeFrameWithLength("4=200|5=REGION0", static_cast<std::uint32_t>(dice())) + bytes;
    return bytes;
}

auto withDictionary(unsigned version) {
    return [version](const tivra_sim::Request& request) -> std::optional<Hub::Frames> {
        if (request.command != "ListAdministrationInfo")
            return std::nullopt;
        return Hub::Frames{tivra_sim::encodeFrame("5026=" + std::to_string(request.tag) +
                                                  "|5080=" + std::to_string(20140000 + version) +
                                                  ".1|5008=V8.2.1|5001=0")};
    };
}

Hub::Close closeOf(unsigned amount) {
    return amount % 2 == 0 ? Hub::Close::Orderly : Hub::Close::Reset;
}

using Faults = std::map<Step::Kind, std::function<void(Hub&, unsigned)>>;

/// What happens to a hub at once; the number is the step's amount.
const Faults FAULTS{
    {Step::Leave, [](Hub& hub, unsigned) { hub.stop(); }},
    {Step::Bounce, [](Hub& hub, unsigned) { hub.restart(); }},
    {Step::Drop, [](Hub& hub, unsigned) { hub.dropConnections(); }},
    {Step::Reset, [](Hub& hub, unsigned) { hub.dropConnections(Hub::Close::Reset); }},
    {Step::HalfClose, [](Hub& hub, unsigned) { hub.halfClose(); }},
    {Step::DropSoon, [](Hub& hub, unsigned amount) { hub.dropAfterBytes(amount * 20, closeOf(amount)); }},
    {Step::Silence, [](Hub& hub, unsigned) { hub.setSilent(true); }},
    {Step::Deafness, [](Hub& hub, unsigned) { hub.setDeaf(true); }},
    {Step::Drip, [](Hub& hub, unsigned amount) { hub.setWriteSize(1 + amount % 64, microseconds(200)); }},
    {Step::Splitting, [](Hub& hub, unsigned amount) { hub.splitFrames(1 + amount % 12, microseconds(200)); }},
    {Step::Garbage, [](Hub& hub, unsigned amount) { hub.sendRaw(garbage(amount)); }},
    {Step::Delay, [](Hub& hub, unsigned amount) { hub.setAnswerDelay(milliseconds(amount % 200)); }},
    {Step::ClockJump, [](Hub&, unsigned amount) { tp::Clock::advance(amount); }},
    {Step::WallClockStep,
     [](Hub&, unsigned amount) { tp::Clock::stepWallClock(amount * 1000.0 - 500000.0); }},
};

/// What shows in the handshake of the next connection, for which the present ones end.
const Faults FAULTS_OF_THE_NEXT{
    {Step::ShutDoor, [](Hub& hub, unsigned) { hub.setAccepting(false); }},
    {Step::RefuseLogin,
     [](Hub& hub, unsigned amount) {
         hub.refuseLogin(amount % 2 == 0 ? tivra_sim::status::BAD_LOGIN : tivra_sim::status::TOO_MANY_LOGINS,
                         1 + amount % 3);
     }},
    {Step::Busy,
     [](Hub& hub, unsigned amount) {
         hub.answerBusy(amount % 2 == 0 ? "Subscribe" : "QuerySnapAndSubscribe", 1 + amount % 5);
     }},
    {Step::Wrong,
     [](Hub& hub, unsigned amount) {
         hub.answerWrong(Hub::ANY_COMMAND, static_cast<Hub::Wrong>(amount % 4), 1 + amount % 5);
     }},
    {Step::NewDictionary, [](Hub& hub, unsigned amount) { hub.script(withDictionary(amount)); }},
};

} // namespace

Stage::Stage(const History& history, std::size_t sideCount, const tivra_sim::GroupConfig& config)
    : sides(started(sideCount, config)), client(sides[0].hub(0)) {
    client.settings()
        .set(tivra::SessionConfig::WATCHLIST_BOOL, true)
        .set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL, history.hasThreadPerHub);
    client.connections().set(tivra::HostConfig::COMPRESSION_BOOL, history.isCompressed);
    if (history.hasBackup)
        client.host(sides[1].hostString()).set(tivra::HostConfig::BACKUP_BOOL, true);
}

void Stage::apply(const Step& step) {
    Hub& hub = hubOf(step);
    if (step.kind == Step::Rights) {
        m_hasMoreRights = !m_hasMoreRights;
        for (HubGroup& side : sides)
            m_hasMoreRights ? side.grant("demo", RIGHT) : side.withdraw("demo", RIGHT);
    } else if (const auto fault = FAULTS.find(step.kind); fault != FAULTS.end()) {
        fault->second(hub, step.amount);
    } else {
        FAULTS_OF_THE_NEXT.at(step.kind)(hub, step.amount);
        hub.dropConnections(step.kind == Step::Wrong ? Hub::Close::Reset : Hub::Close::Orderly);
    }
}

void Stage::clearUp() {
    for (HubGroup& side : sides) {
        for (std::size_t member = 0; member < side.size(); ++member) {
            Hub& hub = side.hub(member);
            hub.setSilent(false);
            hub.setDeaf(false);
            hub.setAccepting(true);
            hub.setWriteSize(0);
            hub.splitFrames(0);
            hub.setAnswerDelay(milliseconds(0));
            hub.clearRefusals();
            hub.script(nullptr);
            hub.start();
        }
    }
}

} // namespace history
