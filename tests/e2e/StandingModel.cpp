#include "StandingModel.h"

#include <algorithm>

namespace standing {

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

std::vector<std::size_t> Model::standing() const {
    std::vector<std::size_t> steps;
    for (const auto& entry : m_states) {
        for (const auto& [form, step] : entry.second.standing)
            steps.push_back(step);
    }
    std::sort(steps.begin(), steps.end());
    return steps;
}

} // namespace standing
