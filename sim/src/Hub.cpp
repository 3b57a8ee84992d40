#include "tivra_sim/Hub.h"

#include "Descriptor.h"
#include "HubEngine.h"

#include <algorithm>
#include <utility>

namespace tivra_sim {

Hub::Hub(HubConfig config) : m_engine(std::make_unique<HubEngine>(std::move(config))) {}

Hub::Hub(HubConfig config, std::shared_ptr<GroupDirectory> group, std::size_t member)
    : m_engine(std::make_unique<HubEngine>(std::move(config), std::move(group), member)) {}

Hub::~Hub() = default;

void Hub::start() {
    m_engine->start();
}

void Hub::stop() {
    m_engine->stop();
}

void Hub::restart() {
    stop();
    start();
}

bool Hub::isRunning() const {
    return m_engine->isRunning();
}

std::uint16_t Hub::port() const {
    return m_engine->port();
}

std::string Hub::hostString() const {
    const std::string& address = config().bindAddress;
    return placeText(address == "0.0.0.0" ? "127.0.0.1" : address, port());
}

const HubConfig& Hub::config() const {
    return m_engine->config();
}

HubStatistics Hub::statistics() const {
    return m_engine->journal().statistics();
}

std::vector<PresentSubscription> Hub::subscriptions() const {
    std::vector<PresentSubscription> present;
    m_engine->run([&] { present = m_engine->presentSubscriptions(); });
    return present;
}

std::vector<Request> Hub::requests() const {
    return m_engine->journal().requests();
}

std::vector<std::string> Hub::requestTexts() const {
    std::vector<std::string> texts;
    for (Request& request : m_engine->journal().requests())
        texts.push_back(std::move(request.text));
    return texts;
}

void Hub::clearRequests() {
    m_engine->journal().clearRequests();
}

std::vector<std::string> Hub::protocolErrors() const {
    return m_engine->journal().errors();
}

std::optional<Request> Hub::waitForRequest(const std::function<bool(const Request&)>& predicate,
                                           Deadline deadline) const {
    return m_engine->journal().waitForRequest(predicate, deadline);
}

std::optional<Request> Hub::waitForCommand(std::string_view command, Deadline deadline) const {
    return waitForRequest([command](const Request& request) { return request.command == command; }, deadline);
}

bool Hub::waitForRequests(std::size_t count, Deadline deadline) const {
    return m_engine->journal().waitForRequests(count, deadline);
}

bool Hub::waitForConnections(std::size_t count, Deadline deadline) const {
    return waitFor([count](const HubStatistics& now) { return now.connections == count; }, deadline);
}

bool Hub::waitForLogins(std::size_t count, Deadline deadline) const {
    return waitFor([count](const HubStatistics& now) { return now.loggedIn >= count; }, deadline);
}

bool Hub::waitForSubscriptions(std::size_t count, Deadline deadline) const {
    return waitFor([count](const HubStatistics& now) { return now.subscriptions >= count; }, deadline);
}

bool Hub::waitForPlayback(Deadline deadline) const {
    return waitFor([](const HubStatistics& now) { return now.playbackFinished; }, deadline);
}

bool Hub::waitFor(const std::function<bool(const HubStatistics&)>& predicate, Deadline deadline) const {
    return m_engine->journal().waitFor(predicate, deadline);
}

void Hub::startPlayback() {
    m_engine->run([&] { m_engine->startPlayback(); });
}

void Hub::stopPlayback() {
    m_engine->run([&] { m_engine->stopPlayback(); });
}

std::size_t Hub::pushRecord(const Record& record) {
    std::size_t count = 0;
    m_engine->run([&] { count = m_engine->publishRecord(record.body(), FrameKind::Update); });
    return count;
}

std::size_t Hub::pushRecords(const std::vector<Record>& records) {
    std::size_t count = 0;
    m_engine->run([&] {
        for (const Record& record : records)
            count += m_engine->publishRecord(record.body(), FrameKind::Update);
    });
    return count;
}

std::size_t Hub::pushRefresh(int source, std::string_view symbol) {
    std::size_t count = 0;
    m_engine->run([&] {
        if (SymbolEntry* entry = m_engine->model().find(source, symbol))
            count = m_engine->sendToSubscribers(*entry, HubModel::image(*entry, -1), FrameKind::Update);
    });
    return count;
}

std::size_t Hub::pushToAll(const Record& record) {
    std::size_t count = 0;
    m_engine->run([&] { count = m_engine->sendToAll(record.frame(), FrameKind::System, true); });
    return count;
}

std::size_t Hub::pushHeartbeat() {
    std::size_t count = 0;
    m_engine->run([&] { count = m_engine->pushHeartbeat(); });
    return count;
}

std::size_t Hub::pushHubStatus(std::int64_t droppedBytes, std::int64_t idleCount) {
    std::size_t count = 0;
    m_engine->run([&] {
        m_engine->setHubStatus(droppedBytes, idleCount);
        count = m_engine->pushHubStatus();
    });
    return count;
}

std::size_t Hub::pushJit(int conflation) {
    return pushToAll(Record(SYSTEM_SOURCE, JIT_SYMBOL).add(token::CONFLATION, conflation));
}

std::size_t Hub::pushEntitlementAlert(int source, bool granted) {
    std::size_t count = 0;
    m_engine->run([&] { count = m_engine->alert(source, granted, std::nullopt); });
    return count;
}

std::size_t Hub::grantSource(int source) {
    m_engine->run([&] {
        m_engine->model().grant(source);
        m_engine->announceBox();
    });
    return pushEntitlementAlert(source, true);
}

std::size_t Hub::withdrawSource(int source) {
    m_engine->run([&] { m_engine->model().withdraw(source); });
    return pushEntitlementAlert(source, false);
}

std::size_t Hub::grant(std::string_view user, int source) {
    std::size_t count = 0;
    m_engine->run([&] {
        m_engine->model().grant(user, source);
        count = m_engine->alert(source, true, user);
    });
    return count;
}

std::size_t Hub::withdraw(std::string_view user, int source) {
    std::size_t count = 0;
    m_engine->run([&] {
        m_engine->model().withdraw(user, source);
        count = m_engine->alert(source, false, user);
    });
    return count;
}

void Hub::carry(int source) {
    m_engine->run([&] {
        m_engine->model().carry(source);
        m_engine->announceBox();
    });
}

void Hub::stopCarrying(int source) {
    m_engine->run([&] {
        m_engine->model().stopCarrying(source);
        m_engine->announceBox();
    });
}

void Hub::dropConnections(Close how) {
    m_engine->run([&] { m_engine->drop(how); });
}

void Hub::dropAfterBytes(std::uint64_t bytes, Close how) {
    m_engine->run([&] { m_engine->dropAfter(static_cast<std::int64_t>(bytes), -1, how); });
}

void Hub::dropAfterFrames(std::uint64_t frames, Close how) {
    m_engine->run([&] { m_engine->dropAfter(-1, static_cast<std::int64_t>(frames), how); });
}

void Hub::halfClose() {
    m_engine->run([&] { m_engine->halfClose(); });
}

void Hub::setSilent(bool silent) {
    m_engine->run([&] { m_engine->misbehaviour().isSilent = silent; });
}

void Hub::setDeaf(bool deaf) {
    m_engine->run([&] {
        m_engine->misbehaviour().isDeaf = deaf;
        m_engine->applyDeafness();
    });
}

void Hub::setAccepting(bool accepting) {
    m_engine->run([&] { m_engine->misbehaviour().isAccepting = accepting; });
}

void Hub::setAnswerDelay(std::chrono::milliseconds delay) {
    m_engine->run([&] { m_engine->misbehaviour().answerDelay = delay; });
}

void Hub::refuse(std::string_view command, int status, unsigned times) {
    m_engine->run([&] {
        m_engine->misbehaviour().refusals.push_back({std::string(command), status, times});
    });
}

void Hub::refuseLogin(int status, unsigned times) {
    refuse("LoginUser", status, times);
}

void Hub::ignore(std::string_view command, unsigned times) {
    m_engine->run([&] {
        m_engine->misbehaviour().refusals.push_back({std::string(command), std::monostate{}, times});
    });
}

void Hub::answerBusy(std::string_view command, unsigned times) {
    refuse(command, status::BUSY, times);
}

void Hub::answerWrong(std::string_view command, Wrong how, unsigned times) {
    m_engine->run([&] { m_engine->misbehaviour().refusals.push_back({std::string(command), how, times}); });
}

void Hub::clearRefusals() {
    m_engine->run([&] { m_engine->misbehaviour().refusals.clear(); });
}

void Hub::script(Script script) {
    m_engine->run([&] { m_engine->misbehaviour().script = std::move(script); });
}

void Hub::sendRaw(std::string_view bytes) {
    m_engine->run([&] { m_engine->sendToAll(bytes, FrameKind::Answer, false); });
}

void Hub::sendPastCompression(std::string_view bytes) {
    m_engine->run([&] { m_engine->sendToAll(bytes, FrameKind::PastCompression, false); });
}

void Hub::sendBody(std::string_view body) {
    sendRaw(encodeFrame(body));
}

void Hub::setWriteSize(std::size_t bytes, std::chrono::microseconds pause) {
    m_engine->run([&] {
        m_engine->misbehaviour().shape = {bytes, 0, pause};
        m_engine->applyShape();
    });
}

void Hub::splitFrames(std::size_t offset, std::chrono::microseconds pause) {
    m_engine->run([&] {
        m_engine->misbehaviour().shape = {0, offset, pause};
        m_engine->applyShape();
    });
}

} // namespace tivra_sim
