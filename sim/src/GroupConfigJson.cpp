#include "HubConfigJson.h"
#include "tivra_sim/GroupConfig.h"

#include <array>
#include <utility>

namespace tivra_sim {

namespace {

using namespace json_reading;

constexpr std::array<std::pair<const char*, Hub::Wrong>, 4> kWrongs{{{"wrong-tag", Hub::Wrong::Tag},
                                                                     {"twice", Hub::Wrong::Twice},
                                                                     {"no-status", Hub::Wrong::NoStatus},
                                                                     {"garbage", Hub::Wrong::Garbage}}};
constexpr const char* kNoAnswer = "none";

using Answer = decltype(Behaviour::Fault::answer);

Answer readAnswer(const json& value, const std::string& where) {
    if (value.is_number())
        return intOf(value, where);
    const std::string word = textOf(value, where);
    if (word == kNoAnswer)
        return std::monostate{};
    std::string known = kNoAnswer;
    for (const auto& [name, wrong] : kWrongs) {
        if (word == name)
            return wrong;
        known += std::string(", ") + name;
    }
    fail(where, "must be a status or one of " + known + ", not \"" + word + "\"");
}

ordered answerJson(const Answer& answer) {
    if (const int* status = std::get_if<int>(&answer))
        return *status;
    if (const Hub::Wrong* wrong = std::get_if<Hub::Wrong>(&answer)) {
        for (const auto& [name, candidate] : kWrongs) {
            if (candidate == *wrong)
                return name;
        }
    }
    return kNoAnswer;
}

Behaviour::Fault readFault(const json& value, const std::string& where) {
    Behaviour::Fault fault;
    readObject(value, where,
               {{"command", [&](const json& v, const std::string& w) { fault.command = textOf(v, w); }},
                {"answer", [&](const json& v, const std::string& w) { fault.answer = readAnswer(v, w); }},
                {"times", [&](const json& v, const std::string& w) {
                     fault.times = static_cast<unsigned>(intOf(v, w, 0));
                 }}});
    if (fault.command.empty())
        fail(inside(where, "command"), "is missing");
    return fault;
}

void readBehaviour(const json& value, const std::string& where, Behaviour& behaviour) {
    readObject(
        value, where,
        {{"down", [&](const json& v, const std::string& w) { behaviour.isDown = boolOf(v, w); }},
         {"silent", [&](const json& v, const std::string& w) { behaviour.isSilent = boolOf(v, w); }},
         {"accepting", [&](const json& v, const std::string& w) { behaviour.isAccepting = boolOf(v, w); }},
         {"answerDelayMs",
          [&](const json& v, const std::string& w) {
              behaviour.answerDelay = std::chrono::milliseconds(integerOf(v, w, 0, 86400000));
          }},
         {"faults", listReader(behaviour.faults, readFault)}});
}

ordered behaviourJson(const Behaviour& behaviour) {
    ordered faults = ordered::array();
    for (const Behaviour::Fault& fault : behaviour.faults)
        faults.push_back(
            {{"command", fault.command}, {"answer", answerJson(fault.answer)}, {"times", fault.times}});
    return {{"down", behaviour.isDown},
            {"silent", behaviour.isSilent},
            {"accepting", behaviour.isAccepting},
            {"answerDelayMs", behaviour.answerDelay.count()},
            {"faults", faults}};
}

constexpr std::array<std::pair<const char*, Role>, 3> kRoles{
    {{"data", Role::Data}, {"door", Role::Door}, {"xref", Role::Xref}}};

Role readRole(const json& value, const std::string& where) {
    const std::string word = textOf(value, where);
    for (const auto& [name, role] : kRoles) {
        if (word == name)
            return role;
    }
    fail(where, "must be \"data\", \"door\" or \"xref\", not \"" + word + "\"");
}

ManagerConfig readManager(const json& value, const std::string& where) {
    ManagerConfig manager;
    const auto readUsers = [&](const json& v, const std::string& w) {
        if (!v.is_object())
            fail(w, "must be an object of names and passwords");
        for (const auto& [name, password] : v.items())
            manager.users[name] = textOf(password, inside(w, name));
    };
    readObject(value, where,
               {{"address", [&](const json& v, const std::string& w) { manager.address = textOf(v, w); }},
                {"port",
                 [&](const json& v, const std::string& w) {
                     manager.port = static_cast<std::uint16_t>(intOf(v, w, 0, 65535));
                 }},
                {"users", readUsers},
                {"hubs", [&](const json& v, const std::string& w) { manager.otherHubs = textOf(v, w); }},
                {"status", [&](const json& v, const std::string& w) { manager.status = intOf(v, w); }},
                {"delayMs", [&](const json& v, const std::string& w) {
                     manager.delay = std::chrono::milliseconds(integerOf(v, w, 0, 86400000));
                 }}});
    return manager;
}

ordered managerJson(const ManagerConfig& manager, HubConfig::Passwords passwords) {
    ordered users = ordered::object();
    for (const auto& [name, password] : manager.users)
        users[name] = passwords == HubConfig::Passwords::Show ? password : "***";
    return {{"address", manager.address}, {"port", manager.port},     {"users", users},
            {"hubs", manager.otherHubs},  {"status", manager.status}, {"delayMs", manager.delay.count()}};
}

std::size_t memberOf(const json& value, const std::string& where) {
    return static_cast<std::size_t>(intOf(value, where, 0, static_cast<int>(GroupConfig::MOST_MEMBERS) - 1));
}

void readSplit(const json& value, const std::string& where, std::map<int, GroupConfig::Split>& splits) {
    int source = 0;
    GroupConfig::Split patterns;
    const auto readPatterns = [&](const json& v, const std::string& w) {
        if (!v.is_object())
            fail(w, "must be an object of patterns and members");
        for (const auto& [pattern, member] : v.items())
            patterns[pattern] = memberOf(member, inside(w, pattern));
    };
    readObject(value, where,
               {{"source", [&](const json& v, const std::string& w) { source = intOf(v, w, 1); }},
                {"patterns", readPatterns}});
    if (source == 0)
        fail(inside(where, "source"), "is missing");
    splits[source] = std::move(patterns);
}

/// What every member starts from: what the group's size gives, changed by the keys for all hubs.
GroupMember memberBase(const GroupConfig& group, const json& value, std::size_t member) {
    GroupMember base;
    if (member < group.members.size())
        base = group.members[member];
    if (value.contains("hub")) {
        if (group.members.empty())
            base.hub = baseOf(value["hub"], "hub");
        readObject(value["hub"], "hub", hubReaders(base.hub));
    } else if (group.members.empty()) {
        base.hub = HubConfig::realistic();
    }
    return base;
}

void readMembers(const json& value, const json* list, GroupConfig& config) {
    const std::size_t given = list == nullptr ? 0 : arrayOf(*list, "members").size();
    if (!config.members.empty() && given > config.members.size())
        fail("members", "must not be more than \"size\" says");
    const std::size_t count = config.members.empty() ? given : config.members.size();
    std::vector<GroupMember> members;
    for (std::size_t i = 0; i < count; ++i) {
        GroupMember member = memberBase(config, value, i);
        if (i < given) {
            auto readers = hubReaders(member.hub);
            readers["behaviour"] = [&](const json& v, const std::string& w) {
                readBehaviour(v, w, member.behaviour);
            };
            readers["role"] = [&](const json& v, const std::string& w) { member.role = readRole(v, w); };
            if ((*list)[i].is_object() && (*list)[i].contains("base"))
                member.hub = baseOf((*list)[i], at("members", i));
            readObject((*list)[i], at("members", i), readers);
        }
        members.push_back(std::move(member));
    }
    config.members = std::move(members);
}

} // namespace

GroupConfig GroupConfig::fromJson(std::string_view text) {
    const json value = parsed(text);
    GroupConfig config;
    const json* members = nullptr;
    const auto readSize = [&](const json& v, const std::string& w) {
        config = realistic(static_cast<std::size_t>(intOf(v, w, 1, static_cast<int>(MOST_MEMBERS))));
    };
    if (value.is_object() && value.contains("size"))
        readSize(value["size"], "size");
    readObject(value, "",
               {{"size", [](const json&, const std::string&) {}},
                {"hub", [](const json&, const std::string&) {}},
                {"members", [&](const json& v, const std::string&) { members = &v; }},
                {"managers", listReader(config.managers, readManager)},
                {"splits", [&](const json& v, const std::string& w) {
                     config.splits.clear();
                     for (std::size_t i = 0; i < arrayOf(v, w).size(); ++i)
                         readSplit(v[i], at(w, i), config.splits);
                 }}});
    readMembers(value, members, config);
    config.check();
    return config;
}

GroupConfig GroupConfig::fromJsonFile(const std::string& path) {
    return readFile(path, [](const std::string& text) { return fromJson(text); });
}

std::string GroupConfig::toJson(HubConfig::Passwords passwords) const {
    ordered splitList = ordered::array();
    for (const auto& [source, patterns] : splits) {
        ordered list = ordered::object();
        for (const auto& [pattern, member] : patterns)
            list[pattern] = member;
        splitList.push_back({{"source", source}, {"patterns", list}});
    }
    ordered memberList = ordered::array();
    for (const GroupMember& member : members) {
        ordered entry = hubJson(member.hub, passwords);
        entry["behaviour"] = behaviourJson(member.behaviour);
        for (const auto& [name, role] : kRoles) {
            if (role == member.role)
                entry["role"] = name;
        }
        memberList.push_back(std::move(entry));
    }
    ordered managerList = ordered::array();
    for (const ManagerConfig& manager : managers)
        managerList.push_back(managerJson(manager, passwords));
    const ordered value{{"splits", splitList}, {"members", memberList}, {"managers", managerList}};
    return value.dump(2, ' ', false, ordered::error_handler_t::replace);
}

} // namespace tivra_sim
