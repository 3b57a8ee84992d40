#include "nats/PendingSends.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tivra_bus {

namespace {

constexpr std::chrono::milliseconds kLookEvery{10};
/// The server's code for a last sequence that isn't the expected one.
constexpr int kWrongLastSequence = 10071;

SendResult resultOf(std::string_view text) {
    using Json = nlohmann::json;
    using Outcome = SendResult::Outcome;
    const Json answer = Json::parse(text, nullptr, false);
    if (answer.is_object()) {
        if (const auto error = answer.find("error"); error != answer.end() && error->is_object()) {
            const auto code = error->find("err_code");
            if (code != error->end() && code->is_number_integer() && code->get<int>() == kWrongLastSequence)
                return {Outcome::Conflict, 0, {}};
            const auto cause = error->find("description");
            return {Outcome::Failed, 0,
                    cause != error->end() && cause->is_string() ? cause->get<std::string>() : "refused"};
        }
        if (const auto position = answer.find("seq");
            position != answer.end() && position->is_number_unsigned())
            return {Outcome::Stored, position->get<std::uint64_t>(), {}};
    }
    return {Outcome::Failed, 0, "the engine's answer can't be read; see that JetStream is on"};
}

} // namespace

std::uint64_t PendingSends::add(BusPublisher::Completion done) {
    const tp::MutexLock lock(m_mutex);
    m_pending[++m_last] = {std::move(done), Clock::now() + m_patience, "no acknowledgement in time"};
    return m_last;
}

void PendingSends::answer(std::uint64_t number, std::string_view text) {
    BusPublisher::Completion done;
    {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_pending.find(number);
        if (found == m_pending.end())
            return;
        done = std::move(found->second.done);
        m_pending.erase(found);
    }
    done(resultOf(text));
}

void PendingSends::failed(std::uint64_t number, std::string cause) {
    const tp::MutexLock lock(m_mutex);
    const auto found = m_pending.find(number);
    if (found == m_pending.end())
        return;
    found->second.deadline = Clock::time_point::min();
    found->second.cause = std::move(cause);
}

void PendingSends::expire() {
    std::vector<Pending> ended;
    {
        const tp::MutexLock lock(m_mutex);
        const Clock::time_point now = Clock::now();
        if (now < m_nextLook)
            return;
        m_nextLook = now + kLookEvery;
        for (auto each = m_pending.begin(); each != m_pending.end();) {
            if (each->second.deadline > now) {
                ++each;
                continue;
            }
            ended.push_back(std::move(each->second));
            each = m_pending.erase(each);
        }
    }
    for (const Pending& each : ended)
        each.done({SendResult::Outcome::Failed, 0, each.cause});
}

std::size_t PendingSends::count() const {
    const tp::MutexLock lock(m_mutex);
    return m_pending.size();
}

} // namespace tivra_bus
