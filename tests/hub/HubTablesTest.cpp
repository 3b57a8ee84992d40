// The decisions of the conversation as tables: versions, split patterns, conflation, the next step.
#include <gmock/gmock.h>

#include "hub/ConflationChoice.h"
#include "hub/ConversationSteps.h"
#include "hub/HubVersion.h"
#include "hub/SplitPattern.h"
#include "support/LogCapture.h"

namespace tivra_internal {

namespace {

TEST(HubVersion, IsReadFromADottedTextOrMinusOne) {
    const struct {
        const char* text;
        HubVersion version;
    } cases[] = {
        {"V7.3.1", {7, 3}}, {"8.0.12", {8, 0}},  {"V10.11.12.13", {10, 11}},
        {"7.3", {7, -1}},   {"7", {-1, -1}},     {"", {-1, -1}},
        {"V", {-1, -1}},    {"VV7.3.1", {0, 3}}, {"abc.de.f", {0, 0}},
        {"..", {0, 0}},     {".5.", {0, 5}},     {"99999999999999999999.1.", {2147483647, 1}},
    };
    for (const auto& row : cases) {
        const HubVersion version = parseHubVersion(row.text);
        EXPECT_EQ(version, row.version) << row.text << " gives " << version.major << '.' << version.minor;
    }
}

TEST(SplitPattern, DropsDelimitersAndTurnsTildesIntoAlternatives) {
    const struct {
        const char* symbol;
        const char* pattern;
    } cases[] = {
        {"/a~b\\~c/", "a|b\\~c"}, {"/x/", "x"},   {"//", ""},           {"", ""},
        {"/a\\/", "a\\"},         {"/~~/", "||"}, {"/\\\\~/", "\\\\|"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(splitPatternOf(row.symbol), row.pattern) << row.symbol;
}

TEST(Conflation, FollowsTheSettingsAsFarAsTheHubCan) {
    const struct {
        long type;
        long threshold;
        HubVersion version;
        ConflationChoice choice;
        const char* logged;
    } cases[] = {
        {1, 25, {8, 0}, {1, false, 25}, nullptr},
        {1,
         30,
         {8, 0},
         {1, false, 25},
         "Cannot set JIT_CONFLATION_THRESHOLD_PERCENT_LONG when CONFLATION_TYPE_LONG != JIT; value will be "
         "ignored"},
        {7, 25, {8, 0}, {7, false, 25}, nullptr},
        {3,
         25,
         {7, 4},
         {1, false, 25},
         "Cannot set CONFLATION_TYPE_LONG = 3 (JIT) when HUB version < 7.5 (detected 7.4); API will use "
         "default trade-safe conflation"},
        {3, 25, {7, 5}, {3, true, 25}, nullptr},
        {4,
         25,
         {7, 7},
         {1, false, 25},
         "Cannot set CONFLATION_TYPE_LONG = 4 (JIT INTERVALIZED) when HUB version < 7.8 (detected 7.7); API "
         "will use default trade-safe conflation"},
        {4, 25, {7, 8}, {4, true, 25}, nullptr},
        {4, 75, {8, 0}, {4, true, 75}, nullptr},
        {3,
         0,
         {8, 0},
         {3, true, 1},
         "Requested JIT_CONFLATION_THRESHOLD_PERCENT_LONG of 0 percent is smaller than the minimum of 1; "
         "will use 1 percent"},
        {3,
         76,
         {8, 0},
         {3, true, 75},
         "Requested JIT_CONFLATION_THRESHOLD_PERCENT_LONG of 76 percent is larger than the maximum of 75; "
         "will use 75 percent"},
    };
    for (const auto& row : cases) {
        LogCapture log;
        EXPECT_EQ(chooseConflation(row.type, row.threshold, row.version), row.choice)
            << row.type << ' ' << row.threshold;
        if (row.logged != nullptr)
            EXPECT_THAT(log.lines(), testing::ElementsAre("WARN: " + std::string(row.logged)));
        else
            EXPECT_THAT(log.lines(), testing::IsEmpty());
    }
}

/// A first client that has come as far as possible; each case takes something back.
struct Progress {
    ConversationContext context{true, true, true, false, true, {8, 0}};
    ConversationState state;
    HubKnowledge known;

    Progress() {
        state.m_conflationIntervalSet = state.m_haveAdmin = state.m_conflationTypeSet = true;
        state.m_haveBoxEntitlements = state.m_haveEntitlements = state.m_havePorts = true;
        state.m_haveHeartbeat = state.m_haveHubStatus = true;
        known.m_haveDIC = known.m_aggChecked = known.split_processed = true;
    }
};

TEST(ConversationSteps, TheFirstOpenStepIsTaken) {
    using Change = void (*)(Progress&);
    const struct {
        const char* what;
        Change change;
        ConversationStep step;
    } cases[] = {
        {"all done", [](Progress&) {}, ConversationStep::BecomeReady},
        {"a later client loads no enumeration",
         [](Progress& p) { p.context.sessionHasEnum = p.context.loadsEnum = false; },
         ConversationStep::BecomeReady},
        {"enumeration before everything else",
         [](Progress& p) {
             p.context.sessionHasEnum = false;
             p.state = {};
         },
         ConversationStep::GetEnum},
        {"admin asked for and not answered",
         [](Progress& p) {
             p.state.m_haveAdmin = false;
             p.state.m_sentGetAdmin = true;
         },
         ConversationStep::AwaitAdmin},
        {"a send of it that failed is repeated", [](Progress& p) { p.state.m_haveAdmin = false; },
         ConversationStep::GetAdmin},
        {"7.4 knows conflation types",
         [](Progress& p) {
             p.state.m_conflationTypeSet = false;
             p.context.hubVersion = {7, 4};
         },
         ConversationStep::SetConflationType},
        {"7.3 doesn't",
         [](Progress& p) {
             p.state.m_conflationTypeSet = false;
             p.context.hubVersion = {7, 3};
         },
         ConversationStep::BecomeReady},
        {"nor does an unread version",
         [](Progress& p) {
             p.state.m_conflationTypeSet = false;
             p.context.hubVersion = {-1, -1};
         },
         ConversationStep::BecomeReady},
        {"a later client has the session's dictionary",
         [](Progress& p) { p.context.isFirst = p.known.m_haveDIC = false; }, ConversationStep::BecomeReady},
        {"a download under way comes before the rest",
         [](Progress& p) {
             p.context.isFirst = false;
             p.known.m_dowloadDIC = true;
             p.known.split_processed = false;
         },
         ConversationStep::GetDic},
        {"only the first client checks the group",
         [](Progress& p) { p.context.isFirst = p.known.m_aggChecked = false; },
         ConversationStep::BecomeReady},
        {"the first client does", [](Progress& p) { p.known.m_aggChecked = false; },
         ConversationStep::AggCheck},
        {"an aggregating hub has no split sources",
         [](Progress& p) {
             p.known.split_processed = false;
             p.known.m_isAgg = true;
         },
         ConversationStep::BecomeReady},
        {"a lone hub has none",
         [](Progress& p) {
             p.known.split_processed = false;
             p.known.m_isSingleInstanceHUB = true;
         },
         ConversationStep::BecomeReady},
        {"a member of a group may", [](Progress& p) { p.known.split_processed = false; },
         ConversationStep::GetSplit},
        {"the first of a group waits for its siblings",
         [](Progress& p) { p.state.m_haveEntitlements = false; }, ConversationStep::AwaitSiblings},
        {"but not once the session has been established",
         [](Progress& p) {
             p.state.m_haveEntitlements = false;
             p.context.wasEstablished = true;
         },
         ConversationStep::GetEntitlements},
        {"a lone hub has nobody to wait for",
         [](Progress& p) {
             p.state.m_haveEntitlements = false;
             p.known.m_isSingleInstanceHUB = true;
         },
         ConversationStep::GetEntitlements},
        {"a later client needs no user permissions",
         [](Progress& p) { p.context.isFirst = p.state.m_haveEntitlements = p.state.m_havePorts = false; },
         ConversationStep::BecomeReady},
        {"ports of a group", [](Progress& p) { p.state.m_havePorts = false; }, ConversationStep::GetPort},
        {"no ports of an aggregating hub",
         [](Progress& p) {
             p.state.m_havePorts = false;
             p.known.m_isAgg = true;
         },
         ConversationStep::BecomeReady},
        {"heartbeat", [](Progress& p) { p.state.m_haveHeartbeat = false; },
         ConversationStep::SubscribeHeartbeat},
        {"no heartbeat without a read time-out",
         [](Progress& p) { p.state.m_haveHeartbeat = p.context.wantsHeartbeat = false; },
         ConversationStep::BecomeReady},
        {"hub status last", [](Progress& p) { p.state.m_haveHubStatus = false; },
         ConversationStep::SubscribeHubStatus},
    };
    for (const auto& row : cases) {
        Progress progress;
        row.change(progress);
        EXPECT_EQ(nextConversationStep(progress.context, progress.state, progress.known), row.step)
            << row.what;
    }
}

} // namespace

} // namespace tivra_internal
