#include "tivra_sim/Manager.h"

#include "Descriptor.h"
#include "ManagerEngine.h"

#include <utility>

namespace tivra_sim {

Manager::Manager(ManagerConfig config) : m_engine(std::make_unique<ManagerEngine>(std::move(config))) {}

Manager::~Manager() = default;

void Manager::start() {
    m_engine->start();
}

void Manager::stop() {
    m_engine->stop();
}

std::uint16_t Manager::port() const {
    return m_engine->use([](ManagerEngine& engine) { return engine.config().port; });
}

std::string Manager::hostString(std::uint16_t hubPort) const {
    return placeText(m_engine->use([](ManagerEngine& engine) { return engine.config().address; }), hubPort);
}

void Manager::answer(int status) {
    m_engine->use([status](ManagerEngine& engine) { engine.config().status = status; });
}

void Manager::say(std::string text) {
    m_engine->use([&](ManagerEngine& engine) { engine.text() = std::move(text); });
}

void Manager::setSilent(bool silent) {
    m_engine->use([silent](ManagerEngine& engine) { engine.isSilent() = silent; });
}

void Manager::setDelay(std::chrono::milliseconds delay) {
    m_engine->use([delay](ManagerEngine& engine) { engine.config().delay = delay; });
}

void Manager::handOut(std::uint16_t hubPort, std::vector<std::string> addresses) {
    m_engine->use([&](ManagerEngine& engine) {
        engine.config().hubs[hubPort] = std::move(addresses);
        engine.turns().erase(hubPort);
    });
}

std::vector<Manager::Question> Manager::questions() const {
    return m_engine->use([](ManagerEngine& engine) { return engine.questions(); });
}

void Manager::forget() {
    m_engine->use([](ManagerEngine& engine) { engine.questions().clear(); });
}

bool Manager::waitForQuestions(std::size_t count, std::chrono::milliseconds deadline) const {
    return m_engine->waitForQuestions(count, deadline);
}

} // namespace tivra_sim
