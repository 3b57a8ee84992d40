#include "StandingModel.h"

#include <algorithm>

namespace history {
namespace {

struct Form {
    tivra::Commands command;
    const char* word;
    bool hasMore; ///< with the conflation pair
};

const Form& formOf(const Step& step) {
    static constexpr Form BY_SYMBOL[] = {{tivra::SUBSCRIBE, "Subscribe", false},
                                         {tivra::QUERYSNAPANDSUBSCRIBE, "QuerySnapAndSubscribe", false},
                                         {tivra::SUBSCRIBE, "Subscribe", true},
                                         {tivra::QUERYDEPTHANDSUBSCRIBE, "QueryDepthAndSubscribe", false}};
    static constexpr Form BY_PATTERN[] = {
        {tivra::SUBSCRIBEWILDCARD, "SubscribeWildCard", false},
        {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "QuerySnapAndSubscribeWildCard", false}};
    // The library makes a snap of it, since only its answer tells the symbol.
    static constexpr Form BY_CUSIP{tivra::SUBSCRIBE, "QuerySnapAndSubscribe", false};
    static constexpr Form SNAP{tivra::QUERYSNAP, "QuerySnap", false};
    static constexpr Form SNAP_BY_PATTERN{tivra::QUERYWILDCARD, "QueryWildCard", false};
    if (step.kind == Step::Snap)
        return step.thing == Pattern ? SNAP_BY_PATTERN : SNAP;
    return step.thing == ByCusip   ? BY_CUSIP
           : step.thing == Pattern ? BY_PATTERN[step.form]
                                   : BY_SYMBOL[step.form];
}

} // namespace

Target targetOf(int sequence, int thing) {
    const auto number = static_cast<std::size_t>(sequence);
    const std::string text = std::to_string(sequence);
    const std::size_t letter = number * 7 % 26;
    std::size_t owner = 0;
    while (letter >= (owner + 1) * 26 / MEMBERS)
        ++owner;
    const std::string splitName = std::string(1, static_cast<char>('A' + letter)) + "S" + text + "X";
    const auto regional = [&](std::size_t shift, const std::string& name) {
        const std::size_t member = (number + shift) % MEMBERS;
        return Target{200 + static_cast<int>(member), name, "", name, {member}, {member}};
    };
    switch (thing) {
    case Regional:
        return regional(0, "R" + text);
    case OtherRegional:
        return regional(1, "Q" + text);
    case Split:
        return {300, splitName, "", splitName, {owner}, {owner}};
    case News:
        return {4100, "N" + text, "", "N" + text, {0, 1, 2}, {0, 2}};
    case Unknown: {
        Target unknown = regional(2, "U" + text);
        unknown.symbol.clear();
        unknown.holders.clear();
        return unknown;
    }
    case Pattern:
        return {300, splitName + "*", "", "", {0, 1, 2}, {owner}};
    default: {
        Target alternate = regional(2, "C" + text);
        alternate.name.clear();
        alternate.cusip = "90" + std::to_string(1000000 + sequence);
        return alternate;
    }
    }
}

std::string Asking::text(std::int64_t tag) const {
    std::string text = "5022=" + word + "|";
    for (const auto& [token, value] : pairs)
        text += std::to_string(token) + "=" + value + "|";
    return text + "5026=" + std::to_string(tag);
}

Asking askingOf(const Step& step) {
    const Target target = targetOf(step.sequence, step.thing);
    const Form& form = formOf(step);
    Asking asking{form.command, form.word, {{tivra::ENUM_SRC_ID, std::to_string(target.source)}}};
    if (target.name.empty())
        asking.pairs.emplace_back(tivra::CUSIP, target.cusip);
    else
        asking.pairs.emplace_back(tivra::SYMBOL_TICKER, target.name);
    if (form.hasMore)
        asking.pairs.emplace_back(tivra::CONFLATION, "1");
    if (step.isReversed)
        std::reverse(asking.pairs.begin(), asking.pairs.end());
    return asking;
}

void Model::subscribe(const Step& step) {
    State& state = m_states[{step.sequence, step.thing}];
    state.standing[step.form] = step.id;
    state.isLastEnded = false;
    for (const std::size_t member : targetOf(step.sequence, step.thing).holders)
        state.live[member] = Live::Yes;
}

void Model::unsubscribe(const Step& request) {
    if (request.kind != Step::Subscribe)
        return;
    State& state = m_states[{request.sequence, request.thing}];
    const auto entry = state.standing.find(request.form);
    if (entry != state.standing.end() && entry->second == request.id) {
        state.standing.erase(entry);
        state.isLastEnded = true;
        m_ended.insert(request.id);
        state.live.fill(Live::No);
    } else if (entry == state.standing.end() && m_ended.count(request.id) > 0) {
        // The second unsubscribe of one request reaches the members when the first one hasn't been written.
        state.isLastEnded = true;
        std::replace(state.live.begin(), state.live.end(), Live::Yes, Live::Maybe);
    }
}

void Model::settle(const std::set<std::size_t>& returned) {
    for (auto& [key, state] : m_states) {
        for (const std::size_t member : targetOf(key.first, key.second).holders) {
            if (returned.count(member) == 0)
                continue;
            const Live live = state.isLastEnded ? Live::Maybe : Live::Yes;
            state.live[member] = state.standing.empty() ? Live::No : live;
        }
        state.isLastEnded = false;
    }
    m_ended.clear();
}

Model::Live Model::live(int sequence, int thing, std::size_t member) const {
    const auto state = m_states.find({sequence, thing});
    return state == m_states.end() ? Live::No : state->second.live[member];
}

std::set<std::size_t> Model::standing() const {
    std::set<std::size_t> steps;
    for (const auto& entry : m_states) {
        for (const auto& [form, step] : entry.second.standing)
            steps.insert(step);
    }
    return steps;
}

} // namespace history
