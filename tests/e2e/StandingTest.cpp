// Random histories of requests and losses against a model of what must stand. CONTRIBUTING.md says how to run
// more of them.
#include <algorithm>
#include <iostream>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "Process.h"
#include "Stage.h"
#include "StandingModel.h"

namespace history {
namespace {

using tivra_sim::PresentSubscription;
using tivra_sim::Request;

constexpr std::uint64_t SEEDS = IS_SANITIZED ? 3 : 8;
constexpr std::uint64_t SEQUENCES = IS_SANITIZED ? 100 : 300;
constexpr std::int64_t FIRST_TAG = 18;
constexpr std::int64_t NOBODYS_TAG = std::int64_t{1} << 40;

tivra_sim::GroupConfig groupFor(int sequences) {
    tivra_sim::GroupConfig config = tivra_sim::GroupConfig::realistic(MEMBERS);
    for (tivra_sim::GroupMember& member : config.members) {
        for (int sequence = 0; sequence < sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Target target = targetOf(sequence, thing);
                if (target.symbol.empty())
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

/// Plays a history, and compares at every settlement what each member holds, what it has been sent again, and
/// what the application got. The first fault ends it.
class StandingRun {
public:
    explicit StandingRun(const History& history)
        : m_history(history), m_stage(history, 1, groupFor(history.sequences)) {
        // The clock that runs fast must not outrun the heartbeats.
        m_client.connections().set(tivra::HostConfig::READ_TIMEOUT_LONG, 3000);
    }

    std::string play() {
        start();
        for (const Step& step : m_history.steps)
            take(step);
        settle();
        // Whatever the last burst left open, stands or not once everybody has been asked again.
        for (std::size_t member = 0; member < MEMBERS; ++member)
            take(Step{Step::Drop, 0, 0, member});
        settle();
        return m_fault;
    }

private:
    void fail(int sequence, const std::string& what) {
        if (m_fault.empty())
            m_fault = what + "\n" + m_history.text(sequence);
    }

    void start() {
        const std::string reason = m_client.start();
        if (!m_client.isStarted)
            fail(-1, "no start: " + reason);
    }

    void take(const Step& step) {
        if (!m_fault.empty())
            return;
        switch (step.kind) {
        case Step::Subscribe:
            m_model.subscribe(step);
            [[fallthrough]];
        case Step::Snap: {
            const Asking asking = askingOf(step);
            return sent(step.id, m_client.send(asking.command, 0, "", asking.pairs));
        }
        case Step::Unsubscribe:
            return unsubscribe(step);
        case Step::Settle:
            return settle();
        case Step::Pause:
            if (m_stage.hubOf(step).isRunning())
                ask(200 + static_cast<int>(step.member), "REGION" + std::to_string(step.member));
            return;
        case Step::Restart:
            m_stage.clearUp();
            m_isRestarted = true;
            m_disturbed = {0, 1, 2};
            m_client.session().stop();
            return start();
        default:
            m_disturbed.insert(step.member);
            if (step.kind == Step::DropSoon)
                m_mustDrop.insert(step.member);
            m_stage.apply(step);
        }
    }

    void unsubscribe(const Step& step) {
        m_model.unsubscribe(m_history.steps[step.request]);
        const std::string tag =
            std::to_string(hasItsTag(step.request) ? m_tags.at(step.request) : NOBODYS_TAG);
        sent(step.id, m_client.send(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, tag}}));
    }

    void sent(std::size_t step, std::int64_t tag) {
        if (tag < FIRST_TAG)
            return fail(-1, "step " + std::to_string(step) + " was refused");
        m_tags[step] = tag;
        m_owners[tag] = step;
        m_burst.push_back(step);
    }

    /// A request of no step, whose answer is waited for.
    void ask(int source, const std::string& symbol) {
        const std::int64_t tag = m_client.send(tivra::QUERYSNAP, source, symbol);
        m_owners.erase(tag);
        m_others.insert(tag);
        if (!m_client.waitForEnd(tag, std::chrono::seconds(IS_SANITIZED ? 90 : 30)))
            fail(-1, symbol + " was not answered");
    }

    void settle() {
        m_stage.clearUp();
        // The bytes after which the connection was to close may never come.
        for (const std::size_t member : m_mustDrop)
            m_stage.apply(Step{Step::Drop, 0, 0, member});
        // News is asked of all, after all that was asked before, and answered when the last has.
        ask(4100, "HEADLINES");
        m_model.settle(m_disturbed);
        for (std::size_t member = 0; member < MEMBERS && m_fault.empty(); ++member)
            checkMember(member);
        checkAnswers();
        checkUpdates();
        for (std::size_t member = 0; member < MEMBERS; ++member)
            m_stage.sides[0].hub(member).clearRequests();
        m_client.forget();
        m_burst.clear();
        m_others.clear();
        m_disturbed.clear();
        m_mustDrop.clear();
        m_isRestarted = false;
    }

    /// The step whose tag it is, or none.
    [[nodiscard]] const Step* ownerOf(std::int64_t tag) const {
        const auto owner = m_owners.find(tag);
        return owner == m_owners.end() ? nullptr : &m_history.steps[owner->second];
    }
    /// After a restart the tag of what has ended may be another's.
    [[nodiscard]] bool hasItsTag(std::size_t step) const {
        return ownerOf(m_tags.at(step)) == &m_history.steps[step];
    }
    [[nodiscard]] int sequenceOf(std::int64_t tag) const {
        const Step* const step = ownerOf(tag);
        return step == nullptr ? -1 : step->sequence;
    }

    void checkMember(std::size_t member) {
        checkRequests(member);
        const std::string name = "member " + std::to_string(member);
        std::set<std::pair<int, int>> present;
        for (const PresentSubscription& subscription : m_stage.sides[0].hub(member).subscriptions()) {
            const Step* const step = ownerOf(subscription.tag);
            if (step == nullptr || step->kind != Step::Subscribe)
                return fail(-1, name + " holds nobody's tag " + std::to_string(subscription.tag));
            present.emplace(step->sequence, step->thing);
        }
        for (int sequence = 0; sequence < m_history.sequences; ++sequence) {
            for (int thing = 0; thing < THINGS; ++thing) {
                const Model::Live live = m_model.live(sequence, thing, member);
                const bool isPresent = present.count({sequence, thing}) > 0;
                if (live != Model::Live::Maybe && isPresent != (live == Model::Live::Yes))
                    fail(sequence, name + (isPresent ? " still holds thing " : " does not hold thing ") +
                                       std::to_string(thing));
            }
        }
    }

    /// Without requests of the application a returned member gets what stands, once, in the order of the
    /// tags, and the others get nothing. No connection ever gets a tag twice.
    void checkRequests(std::size_t member) {
        std::set<std::pair<std::uint64_t, std::int64_t>> seen;
        std::vector<std::string> texts;
        for (const Request& request : m_stage.sides[0].hub(member).requests()) {
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
        std::map<std::int64_t, std::string> standing;
        for (const std::size_t id : m_model.standing()) {
            const Step& step = m_history.steps[id];
            const Target target = targetOf(step.sequence, step.thing);
            const std::set<std::size_t>& members =
                m_isRestarted && !target.holders.empty() ? target.asked : target.holders;
            if (m_disturbed.count(member) > 0 && members.count(member) > 0)
                standing[m_tags.at(id)] = askingOf(step).text(m_tags.at(id));
        }
        std::vector<std::string> wanted;
        for (const auto& [tag, text] : standing)
            wanted.push_back(text);
        const auto [is, should] = std::mismatch(texts.begin(), texts.end(), wanted.begin(), wanted.end());
        if (is == texts.end() && should == wanted.end())
            return;
        const std::string& text = should != wanted.end() ? *should : *is;
        fail(sequenceOf(std::stoll(text.substr(text.rfind("5026=") + 5))),
             "member " + std::to_string(member) + " was asked again for " +
                 (is == texts.end() ? "nothing" : *is) + " in place of " +
                 (should == wanted.end() ? "nothing" : *should));
    }

    /// What was asked and not taken back has its answer; without losses everything has, and once.
    void checkAnswers() {
        std::map<std::int64_t, std::vector<int>> statuses; // of the ends that came under a tag
        for (const SeenMessage& message : m_client.messages()) {
            if (message.isEnd())
                statuses[message.tag].push_back(message.status);
        }
        std::set<std::size_t> listed = m_model.standing();
        std::map<std::pair<int, int>, std::size_t> latestSnaps;
        for (const std::size_t id : m_burst) {
            if (const Step& step = m_history.steps[id]; step.kind == Step::Snap)
                latestSnaps[{step.sequence, step.thing}] = id;
        }
        for (const auto& [thing, id] : latestSnaps)
            listed.insert(id);
        for (const std::size_t id : m_burst) {
            const Step& step = m_history.steps[id];
            if (!hasItsTag(id))
                continue;
            const std::vector<int>& ends = statuses[m_tags.at(id)];
            const bool isListed = listed.count(id) > 0;
            if (m_disturbed.empty() ? ends.size() != 1 : isListed && ends.empty())
                fail(step.sequence,
                     "step " + std::to_string(id) + " got " + std::to_string(ends.size()) + " answers");
            else if (isListed && ends.back() != statusOf(step) && !mayDiffer(step))
                fail(step.sequence,
                     "step " + std::to_string(id) + " got status " + std::to_string(ends.back()));
        }
    }

    /// What the members send now of what stands comes to the application, each update once.
    void checkUpdates() {
        std::map<std::string, std::size_t> sent, got;
        std::map<std::string, int> sequences;
        for (const std::size_t id : m_model.standing()) {
            const Step& step = m_history.steps[id];
            const Target target = targetOf(step.sequence, step.thing == Pattern ? Split : step.thing);
            if (!target.symbol.empty() && sequences.emplace(target.symbol, step.sequence).second)
                sent[target.symbol] = m_stage.sides[0].pushRecord(
                    tivra_sim::Record(target.source, target.symbol).add(tivra_sim::token::BID, "2"));
        }
        ask(4100, "HEADLINES");
        for (const SeenMessage& message : m_client.messages()) {
            if (message.type == tivra::MessageEvent::UPDATE)
                ++got[message.symbol];
        }
        for (const auto& [symbol, sequence] : sequences) {
            if (got[symbol] != sent[symbol])
                fail(sequence, std::to_string(got[symbol]) + " updates of " + symbol + " came of " +
                                   std::to_string(sent[symbol]));
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

    const History& m_history;
    Stage m_stage;
    Client& m_client = m_stage.client;
    Model m_model;
    std::string m_fault;

    std::map<std::size_t, std::int64_t> m_tags;
    std::map<std::int64_t, std::size_t> m_owners; ///< of the tags of steps
    /// @name Since the last settlement
    /// @{
    std::vector<std::size_t> m_burst;
    std::set<std::int64_t> m_others; ///< tags of requests of no step
    std::set<std::size_t> m_disturbed;
    std::set<std::size_t> m_mustDrop;
    bool m_isRestarted = false;
    /// @}
};

TEST(StandingRequests, AreWhatTheApplicationAskedForAfterEveryHistory) {
    const std::uint64_t first = setting("TIVRA_PROPERTY_FIRST_SEED", 1);
    const std::uint64_t count = setting("TIVRA_PROPERTY_SEEDS", SEEDS);
    const auto sequences = static_cast<int>(setting("TIVRA_PROPERTY_SEQUENCES", SEQUENCES));
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const History history = History::ofRequests(seed, sequences);
        std::cout << "seed " << seed << ": " << history.steps.size() << " steps" << std::endl;
        ASSERT_EQ(StandingRun(history).play(), "") << "seed " << seed;
    }
}

TEST(StandingRequests, AnUnsubscribedOneStaysAwayThoughAMemberStillOwesItsAnswer) {
    tivra_sim::HubGroup group;
    group.hub(1).ignore("QuerySnapAndSubscribeWildCard");
    group.start();
    Client client(group.hub(0));
    client.settings().set(tivra::SessionConfig::WATCHLIST_BOOL, true);
    ASSERT_TRUE(client.startAndWait());
    // Asked of all members, and ended with the one that has such symbols.
    const std::int64_t tag = client.send(tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, 300, "AB*");
    ASSERT_EQ(client.ask(tivra::UNSUBSCRIBE, 0, "", {{tivra::QUERY_REF_TAG, std::to_string(tag)}}), 0);
    client.session().stop();
    for (std::size_t member = 0; member < group.size(); ++member) {
        ASSERT_TRUE(group.hub(member).waitForConnections(0)) << "it has read all that came before the end";
        group.hub(member).clearRequests();
    }
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 4100, "HEADLINES"), 0);
    for (std::size_t member = 0; member < group.size(); ++member) {
        for (const Request& request : group.hub(member).requests())
            EXPECT_NE(request.command, "QuerySnapAndSubscribeWildCard") << "at member " << member;
    }
}

} // namespace
} // namespace history
