#include "GroupDirectory.h"

#include <algorithm>
#include <utility>

namespace tivra_sim {

namespace {

std::shared_ptr<const regex_t> compiled(const std::string& pattern) {
    auto expression = std::make_unique<regex_t>();
    if (::regcomp(expression.get(), pattern.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB) != 0)
        return nullptr;
    return {expression.release(), [](regex_t* owned) {
                ::regfree(owned);
                delete owned;
            }};
}

} // namespace

void GroupDirectory::setPlace(std::size_t member, Place place) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_members.at(member).place = std::move(place);
}

void GroupDirectory::setRole(std::size_t member, Role role) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_members.at(member).role = role;
}

void GroupDirectory::setSources(std::size_t member, std::set<int> sources) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_members.at(member).sources = std::move(sources);
}

void GroupDirectory::split(int source, const Patterns& patterns) {
    std::map<std::string, Rule> rules;
    for (const auto& [text, member] : patterns)
        rules[text] = {member, compiled(text)};
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (rules.empty())
        m_splits.erase(source);
    else
        m_splits[source] = std::move(rules);
}

template<class Wanted>
std::vector<GroupDirectory::Place> GroupDirectory::placesWhere(Wanted wanted) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Place> places;
    for (const Member& member : m_members) {
        if (wanted(member))
            places.push_back(member.place);
    }
    return places;
}

std::vector<GroupDirectory::Place> GroupDirectory::places() const {
    return placesWhere([](const Member& member) { return member.role != Role::Door; });
}

std::vector<GroupDirectory::Place> GroupDirectory::dataPlaces() const {
    return placesWhere([](const Member& member) { return member.role == Role::Data; });
}

std::vector<GroupDirectory::Place> GroupDirectory::carriers(int source) const {
    return placesWhere([source](const Member& member) {
        return member.role != Role::Door && member.sources.count(source) > 0;
    });
}

std::map<int, std::vector<std::string>> GroupDirectory::splitsOf(std::size_t member) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::map<int, std::vector<std::string>> splits;
    for (const auto& [source, rules] : m_splits) {
        if (m_members.at(member).sources.count(source) == 0)
            continue;
        std::vector<std::string>& own = splits[source];
        for (const auto& [text, rule] : rules) {
            if (rule.member == member)
                own.push_back(text);
        }
    }
    return splits;
}

bool GroupDirectory::holds(std::size_t member, int source, std::string_view symbol) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto split = m_splits.find(source);
    if (split == m_splits.end())
        return true;
    const std::string text(symbol);
    for (const auto& entry : split->second) {
        const Rule& rule = entry.second;
        if (rule.expression && ::regexec(rule.expression.get(), text.c_str(), 0, nullptr, 0) == 0)
            return rule.member == member;
    }
    // Nobody's symbol is with the first that carries the source.
    const auto first =
        std::find_if(m_members.begin(), m_members.end(), [source = source](const Member& candidate) {
            return candidate.sources.count(source) > 0;
        });
    return first - m_members.begin() == static_cast<std::ptrdiff_t>(member);
}

} // namespace tivra_sim
