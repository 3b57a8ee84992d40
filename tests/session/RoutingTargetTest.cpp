#include "session/routing/RoutingTarget.h"

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

/// How far the cross-reference hubs of a session behind a connection manager are.
enum class Xref { NoManager, NotNeeded, Missing, Done };
using enum Xref;
using enum RoutingTarget;

// The rows that a group of hubs without a connection manager cannot show.
TEST(Route, FindsItsTarget) {
    const struct {
        int line;
        int source;
        tivra::Commands command;
        Xref xref;
        RoutingTarget target;
    } cases[] = {{__LINE__, 4095, tivra::SUBSCRIBE, NoManager, HubOfSource},
                 {__LINE__, 4096, tivra::SUBSCRIBE, NoManager, AllHubsNews},
                 {__LINE__, 5000, tivra::SUBSCRIBE, NotNeeded, AllHubsNews},
                 {__LINE__, 5000, tivra::SUBSCRIBE, Missing, DefaultHubNewsXref},
                 {__LINE__, 5000, tivra::SUBSCRIBE, Done, AllHubsNews},
                 {__LINE__, -1, tivra::QUERYXREF, NotNeeded, AllHubs},
                 {__LINE__, -1, tivra::QUERYXREF, Missing, DefaultHubXref},
                 {__LINE__, -1, tivra::QUERYXREF, Done, AllHubs},
                 {__LINE__, -1, tivra::QUERYSNAP, Missing, AllHubs}};
    RouteQuestion question;
    question.symbol = "A";
    question.firstHubMajorVersion = 7;
    // What was not set is no command.
    question.command = tivra::LISTENUMERATION;
    EXPECT_EQ(decideRoutingTarget(question), AllHubs);
    question.command = tivra::QUERYWILDCARD;
    question.source = 100;
    question.sourceIsSplit = true;
    EXPECT_EQ(decideRoutingTarget(question), HubOfSplitSymbol);
    question.sourceIsSplit = false;
    question.isCmdSet = true;
    for (const auto& row : cases) {
        question.source = row.source;
        question.command = row.command;
        question.isCMconnection = row.xref != NoManager;
        question.initialXrefConnection = row.xref == Missing || row.xref == Done;
        question.xrefHubsDone = row.xref == Done;
        EXPECT_EQ(decideRoutingTarget(question), row.target) << "line " << row.line;
    }
}

} // namespace
