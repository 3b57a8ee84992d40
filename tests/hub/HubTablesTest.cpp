// The decisions of the handshake as tables: versions, split patterns, conflation, the pace
// of the dials, the next step.
#include <gmock/gmock.h>

#include "hub/ConflationChoice.h"
#include "hub/HubVersion.h"
#include "hub/RequestPace.h"
#include "hub/RetryPace.h"
#include "hub/handshake/NextStep.h"
#include "hub/handshake/Steps.h"
#include "support/LogCapture.h"

namespace tivra_internal {
namespace {

TEST(HubVersion, IsReadFromADottedTextOrMinusOne) {
    const std::pair<const char*, HubVersion> cases[] = {
        {"V7.3.1", {7, 3}}, {"8.0.12", {8, 0}},  {"V10.11.12.13", {10, 11}},
        {"7.3", {7, -1}},   {"7", {-1, -1}},     {"", {-1, -1}},
        {"V", {-1, -1}},    {"VV7.3.1", {0, 3}}, {"abc.de.f", {0, 0}},
        {"..", {0, 0}},     {".5.", {0, 5}},     {"99999999999999999999.1.", {2147483647, 1}},
    };
    for (const auto& [text, expected] : cases) {
        const HubVersion version = parseHubVersion(text);
        EXPECT_EQ(version, expected) << text << " gives " << version.major << '.' << version.minor;
    }
}

TEST(SplitPattern, DropsDelimitersAndTurnsTildesIntoAlternatives) {
    const std::pair<const char*, const char*> cases[] = {
        {"/a~b\\~c/", "a|b\\~c"}, {"/x/", "x"},   {"//", ""},           {"", ""},
        {"/a\\/", "a\\"},         {"/~~/", "||"}, {"/\\\\~/", "\\\\|"},
    };
    for (const auto& [symbol, pattern] : cases)
        EXPECT_EQ(splitPatternOf(symbol), pattern) << symbol;
}

TEST(Conflation, FollowsTheSettingsAsFarAsTheHubCan) {
    const struct {
        int line;
        long type;
        long threshold;
        HubVersion version;
        ConflationChoice expected;
        const char* warning = "";
    } cases[] = {{__LINE__, 1, 25, {8, 0}, {1, false, 25}},
                 {__LINE__, 7, 25, {8, 0}, {7, false, 25}},
                 {__LINE__, 1, 30, {8, 0}, {1, false, 25}, "when CONFLATION_TYPE_LONG != JIT"},
                 {__LINE__, 3, 25, {7, 4}, {1, false, 25}, "when HUB version < 7.5 (detected 7.4)"},
                 {__LINE__, 3, 25, {7, 5}, {3, true, 25}},
                 {__LINE__, 4, 25, {7, 7}, {1, false, 25}, "when HUB version < 7.8 (detected 7.7)"},
                 {__LINE__, 4, 25, {7, 8}, {4, true, 25}},
                 {__LINE__, 4, 75, {8, 0}, {4, true, 75}},
                 {__LINE__, 3, 0, {8, 0}, {3, true, 1}, "will use 1 percent"},
                 {__LINE__, 3, 76, {8, 0}, {3, true, 75}, "will use 75 percent"}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.line);
        LogCapture log;
        EXPECT_EQ(chooseConflation(row.type, row.threshold, row.version), row.expected);
        EXPECT_EQ(log.lines().size(), *row.warning != '\0' ? 1U : 0U);
        EXPECT_THAT(log.lines(), testing::Each(testing::HasSubstr(row.warning)));
    }
    LogCapture log; // an interval that the hub will ignore
    for (const long type : {1L, 3L, 4L}) {
        noteIgnoredInterval(type, 1000);
        noteIgnoredInterval(type, 500);
    }
    EXPECT_THAT(log.lines(), testing::ElementsAre(testing::HasSubstr("== 3"), testing::HasSubstr("== 4")));
}

TEST(RequestPace, LetsFiveHundredRequestsOutInAnyFiftyMilliseconds) {
    RequestPace pace;
    EXPECT_EQ(pace.allowance(10.0), 500U);
    pace.note(10.0, 300);
    pace.note(10.02, 200);
    EXPECT_EQ(pace.allowance(10.049), 0U);
    EXPECT_NEAR(pace.secondsToNext(10.03), 0.02, 1e-9);
    EXPECT_EQ(pace.allowance(10.0501), 300U);
    EXPECT_EQ(pace.allowance(10.071), 500U);
}

TEST(RetryPace, WaitsTwiceAsLongAfterEachRefusalUpToALimitAndAFifthMoreByChance) {
    double chance = 0.0;
    RetryPace pace([&chance] { return chance; });
    EXPECT_TRUE(pace.mayDial(0.0));
    for (int round = 0; round < 2; ++round) {
        double now = 1000.0;
        for (const double wait : {1.0, 2.0, 4.0, 8.0, 16.0, 30.0, 30.0}) {
            chance = round;
            EXPECT_DOUBLE_EQ(pace.refused(now), wait * (1.0 + 0.2 * round));
            now += wait * (1.0 + 0.2 * round);
            EXPECT_FALSE(pace.mayDial(now - 0.01));
            EXPECT_TRUE(pace.mayDial(now));
        }
        pace.accepted();
    }
}

/// The first client of a group that has come as far as possible.
class HandshakeStepsTest : public testing::Test {
protected:
    HandshakeStepsTest() {
        state.m_conflationIntervalSet = state.m_haveAdmin = state.m_conflationTypeSet = true;
        state.m_haveBoxEntitlements = state.m_haveEntitlements = state.m_havePorts = true;
        state.m_haveHeartbeat = state.m_haveHubStatus = true;
        known.m_haveDIC = known.m_aggChecked = known.split_processed = true;
    }
    /// The step that is taken while these flags stand the other way round.
    template<class... Flags>
    HandshakeStep stepWithout(Flags&... flags) {
        ((flags = !flags), ...);
        const HandshakeStep step = nextHandshakeStep(situation, state, known);
        ((flags = !flags), ...);
        return step;
    }

    HandshakeSituation situation{true, true, true, false, true, {8, 0}, false};
    HandshakeState state;
    HubKnowledge known;
};

TEST_F(HandshakeStepsTest, TheFirstOpenStepIsTaken) {
    using enum HandshakeStep;
    EXPECT_EQ(stepWithout(), BecomeReady);
    EXPECT_EQ(stepWithout(situation.sessionHasEnum, state.m_conflationIntervalSet), GetEnum);
    EXPECT_EQ(stepWithout(situation.sessionHasEnum, situation.loadsEnum), BecomeReady) << "a later client";
    EXPECT_EQ(stepWithout(state.m_haveAdmin, state.m_sentGetAdmin), AwaitAdmin);
    EXPECT_EQ(stepWithout(state.m_haveAdmin), GetAdmin) << "a send that failed is repeated";
    EXPECT_EQ(stepWithout(known.m_haveDIC, situation.isFirst), BecomeReady) << "the session has a dictionary";
    EXPECT_EQ(stepWithout(known.m_dowloadDIC, situation.isFirst, known.split_processed), GetDic);
    EXPECT_EQ(stepWithout(known.m_aggChecked, known.split_processed), AggCheck);
    EXPECT_EQ(stepWithout(known.m_aggChecked, situation.isFirst), BecomeReady)
        << "only the first client asks";
    EXPECT_EQ(stepWithout(situation.behindManager, known.split_processed), GetAllPorts);
    EXPECT_EQ(stepWithout(situation.behindManager, situation.isFirst), BecomeReady);
    EXPECT_EQ(stepWithout(situation.behindManager, known.m_haveAllPorts), BecomeReady);
    EXPECT_EQ(stepWithout(known.split_processed, state.m_haveBoxEntitlements), GetSplit);
    EXPECT_EQ(stepWithout(state.m_haveBoxEntitlements, state.m_haveEntitlements), GetBoxEntitlements);
    EXPECT_EQ(stepWithout(state.m_haveEntitlements, state.m_havePorts), AwaitSiblings);
    EXPECT_EQ(stepWithout(state.m_haveEntitlements, situation.wasEstablished), GetEntitlements);
    EXPECT_EQ(stepWithout(situation.isFirst, state.m_haveEntitlements, state.m_havePorts), BecomeReady);
    EXPECT_EQ(stepWithout(state.m_havePorts, state.m_haveHeartbeat), GetPort);
    EXPECT_EQ(stepWithout(state.m_haveHeartbeat, state.m_haveHubStatus), SubscribeHeartbeat);
    EXPECT_EQ(stepWithout(state.m_haveHeartbeat, situation.wantsHeartbeat), BecomeReady);
    EXPECT_EQ(stepWithout(state.m_haveHubStatus), SubscribeHubStatus);

    for (const HubKind alone : {HubKind::Aggregating, HubKind::SingleInstance}) {
        known.m_kind = alone;
        EXPECT_EQ(stepWithout(known.split_processed), BecomeReady);
        EXPECT_EQ(stepWithout(state.m_haveEntitlements), GetEntitlements);
        EXPECT_EQ(stepWithout(state.m_havePorts), BecomeReady);
    }
    for (const HubVersion version : {HubVersion{7, 4}, {8, 0}, {7, 3}, {6, 9}, {-1, -1}}) {
        situation.hubVersion = version;
        EXPECT_EQ(stepWithout(state.m_conflationTypeSet),
                  version.major == 8 || version.minor == 4 ? SetConflationType : BecomeReady)
            << version.major << '.' << version.minor;
    }
}

} // namespace
} // namespace tivra_internal
