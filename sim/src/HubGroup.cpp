#include "tivra_sim/HubGroup.h"

#include "GroupDirectory.h"
#include "HubEngine.h"

#include <utility>

namespace tivra_sim {

HubGroup::HubGroup(GroupConfig config) : m_config(std::move(config)) {
    m_config.check();
    m_directory = std::make_shared<GroupDirectory>(m_config.members.size());
    for (const auto& [source, patterns] : m_config.splits) {
        m_directory->split(source, patterns);
        for (const auto& entry : patterns)
            m_config.members[entry.second].hub.boxPermissions.insert(source);
    }
    for (std::size_t member = 0; member < m_config.members.size(); ++member) {
        m_hubs.push_back(
            std::unique_ptr<Hub>(new Hub(std::move(m_config.members[member].hub), m_directory, member)));
        m_directory->setRole(member, m_config.members[member].role);
        behave(member);
    }
}

HubGroup::~HubGroup() = default;

void HubGroup::behave(std::size_t member) {
    const Behaviour& behaviour = m_config.members[member].behaviour;
    Hub& target = *m_hubs[member];
    target.setSilent(behaviour.isSilent);
    target.setAccepting(behaviour.isAccepting);
    target.setAnswerDelay(behaviour.answerDelay);
    for (const Behaviour::Fault& fault : behaviour.faults)
        target.m_engine->misbehaviour().refusals.push_back({fault.command, fault.answer, fault.times});
}

void HubGroup::start() {
    try {
        // Whoever dials the first member is told of the others' ports.
        for (std::size_t member = size(); member-- > 0;) {
            m_hubs[member]->start();
            if (m_config.members[member].behaviour.isDown)
                m_hubs[member]->stop();
        }
        startManagers();
    } catch (...) {
        stop();
        throw;
    }
}

void HubGroup::startManagers() {
    for (std::size_t index = 0; index < m_config.managers.size(); ++index) {
        // The first one's port, which is known once it has started, is that of the others.
        if (index == m_managers.size()) {
            if (index > 0)
                m_config.managers[index].port = m_managers[0]->port();
            m_managers.push_back(std::make_unique<Manager>(m_config.managers[index]));
        }
        m_managers[index]->start();
    }
}

void HubGroup::stop() {
    for (const auto& manager : m_managers)
        manager->stop();
    for (const auto& member : m_hubs)
        member->stop();
}

std::size_t HubGroup::grant(std::string_view user, int source) {
    return change(user, source, true);
}

std::size_t HubGroup::withdraw(std::string_view user, int source) {
    return change(user, source, false);
}

std::size_t HubGroup::change(std::string_view user, int source, bool granted) {
    // A client that has heard of it may ask any member.
    for (const auto& member : m_hubs) {
        HubEngine& engine = *member->m_engine;
        engine.run(
            [&] { granted ? engine.model().grant(user, source) : engine.model().withdraw(user, source); });
    }
    std::size_t told = 0;
    for (const auto& member : m_hubs) {
        HubEngine& engine = *member->m_engine;
        engine.run([&] { told += engine.alert(source, granted, user); });
    }
    return told;
}

void HubGroup::carry(int source, const std::set<std::size_t>& members) {
    for (const std::size_t member : members)
        static_cast<void>(hub(member)); // all of them are known before one changes
    for (std::size_t member = 0; member < size(); ++member)
        members.count(member) > 0 ? m_hubs[member]->carry(source) : m_hubs[member]->stopCarrying(source);
}

void HubGroup::split(int source, const GroupConfig::Split& patterns) {
    for (const auto& entry : patterns)
        hub(entry.second).carry(source);
    m_directory->split(source, patterns);
}

std::size_t HubGroup::pushRecord(const Record& record) {
    const std::string_view source = findValue(record.body(), token::SOURCE);
    const std::string_view symbol = findValue(record.body(), token::SYMBOL);
    Request named;
    named.text = "4=" + std::string(source);
    const auto number = static_cast<int>(named.number(token::SOURCE));
    std::size_t count = 0;
    for (std::size_t member = 0; member < size(); ++member) {
        HubEngine& engine = *m_hubs[member]->m_engine;
        engine.run([&] {
            if (engine.model().boxPermissions().count(number) > 0 &&
                m_directory->holds(member, number, symbol))
                count += engine.publishRecord(record.body(), FrameKind::Update);
        });
    }
    return count;
}

} // namespace tivra_sim
