// Random histories of subscribing, unsubscribing and snapshots, with members of the group that are lost and
// come back, against a model of what must stand. CONTRIBUTING.md tells how to run more of them.
#include <algorithm>
#include <chrono>
#include <iostream>

#include <gtest/gtest.h>

#include <tivra_sim/HubGroup.h>

#include "Client.h"
#include "Process.h"
#include "StandingRun.h"

namespace standing {
namespace {

constexpr int SEEDS = IS_SANITIZED ? 3 : 8;
constexpr int SEQUENCES = IS_SANITIZED ? 100 : 300;
constexpr auto TIME_TO_SHORTEN = std::chrono::seconds(60);

/// A history that still fails and has as few steps as could be found in the time.
class Shortening {
public:
    Shortening(History history, Fault fault) : m_history(std::move(history)), m_fault(std::move(fault)) {}

    void work() {
        if (m_fault.sequence >= 0)
            m_isAlone = accept(m_history.of(m_fault.sequence));
        for (std::size_t chunk = m_history.steps.size() / 2; chunk > 0; chunk /= 2) {
            for (std::size_t from = 0; from < m_history.steps.size();) {
                History less = m_history;
                const auto first = less.steps.begin() + static_cast<std::ptrdiff_t>(from);
                less.steps.erase(
                    first, first + static_cast<std::ptrdiff_t>(std::min(chunk, less.steps.size() - from)));
                if (isLate())
                    return;
                if (!accept(less))
                    from += chunk;
            }
        }
    }

    [[nodiscard]] std::string text() const {
        const bool isOneSequence = m_isAlone || m_fault.sequence < 0;
        const History shown = isOneSequence ? m_history : m_history.of(m_fault.sequence);
        return m_fault.what + "\n" +
               (isOneSequence ? "" : "(only with the other sequences; these are the steps of this one)\n") +
               shown.text();
    }

private:
    bool accept(const History& less) {
        const std::optional<Fault> fault = run(less);
        if (!fault)
            return false;
        m_history = less;
        m_fault = *fault;
        return true;
    }
    [[nodiscard]] bool isLate() const { return std::chrono::steady_clock::now() - m_begin > TIME_TO_SHORTEN; }

    const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
    History m_history;
    Fault m_fault;
    bool m_isAlone = false;
};

TEST(StandingRequests, AreWhatTheApplicationAskedForAfterEveryHistory) {
    const std::uint64_t first = setting("TIVRA_PROPERTY_FIRST_SEED", 1);
    const std::uint64_t count = setting("TIVRA_PROPERTY_SEEDS", SEEDS);
    const auto sequences = static_cast<int>(setting("TIVRA_PROPERTY_SEQUENCES", SEQUENCES));
    std::size_t steps = 0;
    for (std::uint64_t seed = first; seed < first + count; ++seed) {
        const History history = History::random(seed, sequences);
        steps += history.steps.size();
        std::cout << "seed " << seed << ": " << sequences << " sequences, " << history.steps.size()
                  << " steps" << std::endl;
        const std::optional<Fault> fault = run(history);
        if (!fault)
            continue;
        std::cout << "seed " << seed << " fails: " << fault->what << "; shortening" << std::endl;
        Shortening shortening(history, *fault);
        shortening.work();
        FAIL() << "seed " << seed << ": " << shortening.text();
    }
    std::cout << count * static_cast<std::uint64_t>(sequences) << " sequences, " << steps << " steps"
              << std::endl;
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
    for (std::size_t member = 0; member < group.size(); ++member)
        group.hub(member).clearRequests();
    client.forget();
    ASSERT_TRUE(client.startAndWait());
    EXPECT_EQ(client.ask(tivra::QUERYSNAP, 4100, "HEADLINES"), 0);
    for (std::size_t member = 0; member < group.size(); ++member) {
        for (const tivra_sim::Request& request : group.hub(member).requests())
            EXPECT_NE(request.command, "QuerySnapAndSubscribeWildCard") << "at member " << member;
    }
}

} // namespace
} // namespace standing
