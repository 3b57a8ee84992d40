#include "session/RoutingTarget.h"

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

// The rows that a group of hubs without a connection manager cannot show.
struct RouteCase {
    int line;
    RouteQuestion question;
    RoutingTarget target;
};

RouteQuestion ask(int source, tivra::Commands command, const char* symbol = "IBM") {
    RouteQuestion question;
    question.source = source;
    question.isCmdSet = true;
    question.command = command;
    question.symbol = symbol;
    question.firstHubMajorVersion = 7;
    return question;
}

RouteQuestion behindManager(RouteQuestion question, bool needed, bool done) {
    question.isCMconnection = true;
    question.initialXrefConnection = needed;
    question.xrefHubsDone = done;
    return question;
}

RouteQuestion withoutCommand(RouteQuestion question, bool isSplit) {
    question.isCmdSet = false;
    question.sourceIsSplit = isSplit;
    return question;
}

TEST(Route, FindsItsTarget) {
    for (const RouteCase& row :
         {RouteCase{__LINE__, withoutCommand(ask(100, tivra::QUERYWILDCARD, "A"), true),
                    RoutingTarget::HubOfSplitSymbol},
          RouteCase{__LINE__, withoutCommand(ask(-1, tivra::LISTENUMERATION), false), RoutingTarget::AllHubs},
          RouteCase{__LINE__, ask(4095, tivra::SUBSCRIBE), RoutingTarget::HubOfSource},
          RouteCase{__LINE__, ask(4096, tivra::SUBSCRIBE), RoutingTarget::AllHubsNews},
          RouteCase{__LINE__, behindManager(ask(5000, tivra::SUBSCRIBE), false, false),
                    RoutingTarget::AllHubsNews},
          RouteCase{__LINE__, behindManager(ask(5000, tivra::SUBSCRIBE), true, true),
                    RoutingTarget::AllHubsNews},
          RouteCase{__LINE__, behindManager(ask(5000, tivra::SUBSCRIBE), true, false),
                    RoutingTarget::DefaultHubNewsXref},
          RouteCase{__LINE__, behindManager(ask(-1, tivra::QUERYXREF), false, false), RoutingTarget::AllHubs},
          RouteCase{__LINE__, behindManager(ask(-1, tivra::QUERYXREF), true, true), RoutingTarget::AllHubs},
          RouteCase{__LINE__, behindManager(ask(-1, tivra::QUERYXREF), true, false),
                    RoutingTarget::DefaultHubXref},
          RouteCase{__LINE__, behindManager(ask(-1, tivra::QUERYSNAP), true, false), RoutingTarget::AllHubs}})
        EXPECT_EQ(decideRoutingTarget(row.question), row.target) << "line " << row.line;
}

} // namespace
