#include "StandingRun.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include <tivra_sim/HubGroup.h>

#include "Client.h"
#include "FastTime.h"
#include "StandingModel.h"

namespace standing {
namespace {

using tivra::MessageEvent;
using tivra_sim::Hub;
using tivra_sim::PresentSubscription;
using tivra_sim::Request;

constexpr std::int64_t FIRST_TAG = 18;
constexpr std::int64_t NOBODYS_TAG = std::int64_t{1} << 40;
constexpr auto PATIENCE = std::chrono::seconds(IS_SANITIZED ? 60 : 15);

/// What the application has been told.
class Heard {
public:
    struct Answer {
        int ends = 0;
        int status = 0; ///< of the last end
    };

    void note(const MessageEvent& event) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (event.getType() == MessageEvent::UPDATE) {
            ++m_updates[event.getSymbol()];
        } else if (event.getType() == MessageEvent::STATUS ||
                   event.getType() == MessageEvent::IMAGE_COMPLETE) {
            Answer& answer = m_answers[event.getTag()];
            ++answer.ends;
            answer.status = event.getStatusCode();
        }
        m_changed.notify_all();
    }
    bool waitForEnd(std::int64_t tag) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, PATIENCE, [&] { return m_answers.count(tag) > 0; });
    }
    Answer answer(std::int64_t tag) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_answers.find(tag);
        return found == m_answers.end() ? Answer{} : found->second;
    }
    std::map<std::string, int> updates() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_updates;
    }
    void forget() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_answers.clear();
        m_updates.clear();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::int64_t, Answer> m_answers;
    std::map<std::string, int> m_updates;
};

tivra_sim::GroupConfig groupFor(int sequences) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(MEMBERS);
    for (tivra_sim::GroupMember& member : config.members) {
        for (int sequence = 0; sequence < sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Target target = targetOf(sequence, thing);
                if (target.symbol.empty() || thing == Pattern)
                    continue;
                tivra_sim::Symbol symbol{target.source, target.symbol, {{tivra_sim::token::BID, "1"}}};
                if (!target.cusip.empty())
                    symbol.fields[tivra_sim::token::CUSIP] = target.cusip;
                member.hub.symbols.push_back(std::move(symbol));
            }
        }
    }
    return config;
}

class Player {
public:
    explicit Player(const History& history) : m_history(history), m_group(groupFor(history.sequences)) {
        for (const Step& step : history.steps)
            m_steps[step.id] = &step;
    }

    std::optional<Fault> play() {
        m_group.start();
        m_client = std::make_unique<Client>(m_group.hub(0));
        m_client->messageHook = [this](const MessageEvent& event) { m_heard.note(event); };
        m_client->settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
        m_client->settings().set(tivra::SessionConfig::MULTITHREADED_API_CONNECTIONS_BOOL,
                                 m_history.hasThreadPerHub);
        // The clock that runs fast must not outrun the heartbeats.
        m_client->connections().set(tivra::HostConfig::READ_TIMEOUT_LONG, 3000);
        start();
        for (const Step& step : m_history.steps) {
            if (!m_fault)
                take(step);
        }
        if (!m_fault)
            settle();
        // Whatever the last burst left open, stands or not once everybody has been asked again.
        for (std::size_t member = 0; member < MEMBERS && !m_fault; ++member)
            drop(member);
        if (!m_fault)
            settle();
        if (!m_fault)
            checkUpdates();
        return m_fault;
    }

private:
    void fail(int sequence, const std::string& what) {
        if (!m_fault)
            m_fault = Fault{sequence, what};
    }

    void start() {
        const std::string reason = m_client->start();
        if (!m_client->isStarted)
            fail(-1, "no start: " + reason);
    }

    void take(const Step& step) {
        switch (step.kind) {
        case Step::Subscribe:
            m_model.subscribe(step);
            ask(step);
            break;
        case Step::Snap:
            ask(step);
            break;
        case Step::Unsubscribe:
            unsubscribe(step);
            break;
        case Step::Pause:
            pause(step.member);
            break;
        case Step::Drop:
            drop(step.member);
            break;
        case Step::DropSoon:
            m_disturbed.insert(step.member);
            m_dropSoon.insert(step.member);
            m_group.hub(step.member).dropAfterFrames(step.frames);
            break;
        case Step::Leave:
            m_disturbed.insert(step.member);
            m_away.insert(step.member);
            m_group.hub(step.member).stop();
            break;
        case Step::Return:
            bringBack(step.member);
            break;
        case Step::Restart:
            restart();
            break;
        case Step::Settle:
            settle();
            break;
        }
    }

    void ask(const Step& step) {
        const Asking asking = askingOf(step);
        tivra::Commands command = asking.command;
        sent(step.id, m_client->send(command, 0, "", asking.pairs));
    }

    void unsubscribe(const Step& step) {
        std::int64_t tag = NOBODYS_TAG;
        const auto request = m_steps.find(step.request);
        if (request != m_steps.end()) {
            m_model.unsubscribe(*request->second);
            tag = m_tags.at(step.request);
            // After a restart the tag of what has ended may be another's.
            if (m_owners.at(tag) != step.request)
                tag = NOBODYS_TAG;
        }
        sent(step.id,
             m_client->send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(tag)}}));
    }

    void sent(std::size_t step, std::int64_t tag) {
        if (tag < FIRST_TAG)
            return fail(m_steps.at(step)->sequence, "step " + std::to_string(step) + " was refused");
        m_tags[step] = tag;
        m_owners[tag] = step;
        m_burst.push_back(step);
    }

    void pause(std::size_t member) {
        if (!m_away.empty())
            return;
        const std::int64_t tag = m_client->send(tivra::QUERYSNAP, 200 + static_cast<int>(member),
                                                "REGION" + std::to_string(member));
        m_others.insert(tag);
        m_owners[tag] = NO_STEP;
        if (!m_heard.waitForEnd(tag))
            fail(-1, "a snapshot of member " + std::to_string(member) + " was not answered");
    }

    void drop(std::size_t member) {
        m_disturbed.insert(member);
        if (m_away.count(member) == 0)
            m_group.hub(member).dropConnections(member % 2 == 0 ? Hub::Close::Orderly : Hub::Close::Reset);
    }

    void bringBack(std::size_t member) {
        if (m_away.erase(member) > 0)
            m_group.hub(member).start();
    }

    void bringAllBack() {
        for (std::size_t member = 0; member < MEMBERS; ++member)
            bringBack(member);
    }

    void restart() {
        bringAllBack();
        m_isRestarted = true;
        m_disturbed = {0, 1, 2};
        m_client->session().stop();
        start();
    }

    void settle() {
        bringAllBack();
        // The frames after which the connection was to close may never come.
        for (const std::size_t member : m_dropSoon)
            drop(member);
        // News is asked of all, behind all that was asked before, and answered when the last has.
        const std::int64_t tag = m_client->send(tivra::QUERYSNAP, 4100, "HEADLINES");
        m_others.insert(tag);
        m_owners[tag] = NO_STEP;
        if (!m_heard.waitForEnd(tag))
            return fail(-1, "news was not answered");
        m_model.settle(m_disturbed);
        for (std::size_t member = 0; member < MEMBERS && !m_fault; ++member)
            checkMember(member);
        checkAnswers();
        for (std::size_t member = 0; member < MEMBERS; ++member)
            m_group.hub(member).clearRequests();
        m_heard.forget();
        m_burst.clear();
        m_others.clear();
        m_disturbed.clear();
        m_dropSoon.clear();
        m_isRestarted = false;
    }

    void checkMember(std::size_t member) {
        checkRequests(member);
        std::map<std::pair<int, int>, std::vector<std::int64_t>> present;
        for (const PresentSubscription& subscription : m_group.hub(member).subscriptions()) {
            const auto owner = m_owners.find(subscription.tag);
            const Step* step =
                owner == m_owners.end() || owner->second == NO_STEP ? nullptr : m_steps.at(owner->second);
            if (step == nullptr || step->kind != Step::Subscribe)
                return fail(-1, "member " + std::to_string(member) + " holds a subscription of nobody, tag " +
                                    std::to_string(subscription.tag));
            present[{step->sequence, step->thing}].push_back(subscription.tag);
        }
        for (int sequence = 0; sequence < m_history.sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Model::Live live = m_model.live(sequence, thing, member);
                const bool isPresent = present.count({sequence, thing}) > 0;
                if (live != Model::Live::Maybe && isPresent != (live == Model::Live::Yes))
                    fail(sequence, "member " + std::to_string(member) + (isPresent ? " still" : " does not") +
                                       " hold " + targetOf(sequence, thing).name + " of thing " +
                                       std::to_string(thing));
            }
        }
    }

    /// Without requests of the application a returned member gets what stands, once, in the order of the
    /// tags, and the others get nothing. No connection ever gets a tag twice.
    void checkRequests(std::size_t member) {
        std::set<std::pair<std::uint64_t, std::int64_t>> seen;
        std::vector<std::string> texts;
        for (const Request& request : m_group.hub(member).requests()) {
            if (request.tag < FIRST_TAG)
                continue;
            if (!seen.emplace(request.connection, request.tag).second)
                fail(sequenceOf(request.tag),
                     "member " + std::to_string(member) + " got twice " + request.text);
            if (m_others.count(request.tag) == 0)
                texts.push_back(request.text);
        }
        if (!m_burst.empty())
            return;
        std::vector<std::pair<std::int64_t, std::string>> wanted;
        std::vector<std::pair<std::int64_t, int>> sequences;
        for (const std::size_t id : m_model.standing()) {
            const Step& step = *m_steps.at(id);
            const Target target = targetOf(step.sequence, step.thing);
            const std::set<std::size_t>& members =
                m_isRestarted && !target.holders.empty() ? target.asked : target.holders;
            if (m_disturbed.count(member) > 0 && members.count(member) > 0)
                wanted.emplace_back(m_tags.at(id), askingOf(step).text(m_tags.at(id)));
        }
        std::sort(wanted.begin(), wanted.end());
        for (std::size_t i = 0; i < std::max(wanted.size(), texts.size()); ++i) {
            const std::string should = i < wanted.size() ? wanted[i].second : "nothing";
            const std::string is = i < texts.size() ? texts[i] : "nothing";
            if (should == is)
                continue;
            const std::size_t at = is.rfind("5026=");
            const bool isLost =
                i >= texts.size() || (i < wanted.size() && wanted[i].first < std::stoll(is.substr(at + 5)));
            return fail(sequenceOf(isLost ? wanted[i].first : std::stoll(is.substr(at + 5))),
                        "member " + std::to_string(member) + " was asked again for " + is + " in place of " +
                            should);
        }
    }

    [[nodiscard]] int sequenceOf(std::int64_t tag) const {
        const auto owner = m_owners.find(tag);
        return owner == m_owners.end() || owner->second == NO_STEP ? -1 : m_steps.at(owner->second)->sequence;
    }

    /// What was asked and not taken back has its answer; without losses everything has, and once.
    void checkAnswers() {
        std::set<std::size_t> standing;
        for (const std::size_t id : m_model.standing())
            standing.insert(id);
        std::map<std::pair<int, int>, std::size_t> latestSnaps;
        for (const std::size_t id : m_burst) {
            const Step& step = *m_steps.at(id);
            if (step.kind == Step::Snap)
                latestSnaps[{step.sequence, step.thing}] = id;
        }
        for (const std::size_t id : m_burst) {
            const Step& step = *m_steps.at(id);
            const bool isListed = step.kind == Step::Snap ? latestSnaps.at({step.sequence, step.thing}) == id
                                                          : standing.count(id) > 0;
            if (m_owners.at(m_tags.at(id)) != id)
                continue; // its tag is another's since a restart
            const Heard::Answer answer = m_heard.answer(m_tags.at(id));
            const std::string name = "step " + std::to_string(id) + ", tag " + std::to_string(m_tags.at(id));
            if (m_disturbed.empty() ? answer.ends != 1 : isListed && answer.ends == 0)
                fail(step.sequence, name + ", got " + std::to_string(answer.ends) + " answers");
            if (isListed && answer.status != statusOf(step) && !mayDiffer(step))
                fail(step.sequence, name + ", got status " + std::to_string(answer.status));
        }
    }

    static int statusOf(const Step& step) {
        const bool isRefused = step.thing == Unknown || step.thing == Pattern;
        return isRefused ? tivra_sim::status::UNKNOWN_SYMBOL : tivra_sim::status::SUCCESS;
    }

    /// A fanned-out request that is asked again is asked of one member alone, whose answer then counts.
    [[nodiscard]] bool mayDiffer(const Step& step) const {
        return !m_disturbed.empty() && (step.thing == News || step.thing == Pattern);
    }

    /// Every symbol is sent once by whoever has it, and the application gets it from those that it asked.
    void checkUpdates() {
        for (int sequence = 0; sequence < m_history.sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Target target = targetOf(sequence, thing);
                if (thing != Pattern && !target.symbol.empty())
                    m_group.pushRecord(
                        tivra_sim::Record(target.source, target.symbol).add(tivra_sim::token::BID, "2"));
            }
        }
        const std::int64_t tag = m_client->send(tivra::QUERYSNAP, 4100, "HEADLINES");
        if (!m_heard.waitForEnd(tag))
            return fail(-1, "news was not answered behind the updates");
        std::map<std::string, int> updates = m_heard.updates();
        for (int sequence = 0; sequence < m_history.sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Target target = targetOf(sequence, thing);
                if (thing == Pattern || target.symbol.empty())
                    continue;
                int wanted = 0;
                for (std::size_t member = 0; member < MEMBERS; ++member) {
                    const bool isCovered =
                        m_model.live(sequence, thing, member) == Model::Live::Yes ||
                        (thing == Split && m_model.live(sequence, Pattern, member) == Model::Live::Yes);
                    wanted += isCovered ? 1 : 0;
                }
                if (updates[target.symbol] != wanted)
                    fail(sequence, std::to_string(updates[target.symbol]) + " updates of " + target.symbol +
                                       " in place of " + std::to_string(wanted));
            }
        }
    }

    const History& m_history;
    std::map<std::size_t, const Step*> m_steps;
    tivra_sim::HubGroup m_group;
    Heard m_heard;
    FastTime m_time;
    std::unique_ptr<Client> m_client;
    Model m_model;
    std::optional<Fault> m_fault;

    std::map<std::size_t, std::int64_t> m_tags;
    std::map<std::int64_t, std::size_t> m_owners; ///< of tags; NO_STEP for requests of the player itself
    /// @name Since the last settlement
    /// @{
    std::vector<std::size_t> m_burst;
    std::set<std::int64_t> m_others; ///< tags of requests of no step
    std::set<std::size_t> m_disturbed;
    std::set<std::size_t> m_dropSoon;
    std::set<std::size_t> m_away;
    bool m_isRestarted = false;
    /// @}
};

} // namespace

std::optional<Fault> run(const History& history) {
    return Player(history).play();
}

} // namespace standing
