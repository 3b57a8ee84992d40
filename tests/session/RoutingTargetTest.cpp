#include "session/RoutingTarget.h"

#include <gtest/gtest.h>

using namespace tivra_internal;

namespace {

struct RouteCase {
    const char* what;
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

RouteQuestion split(tivra::Commands command, const char* symbol) {
    RouteQuestion question = ask(100, command, symbol);
    question.sourceIsSplit = true;
    return question;
}

RouteQuestion behindManager(RouteQuestion question, bool needed, bool done) {
    question.isCMconnection = true;
    question.initialXrefConnection = needed;
    question.xrefHubsDone = done;
    return question;
}

RouteQuestion onOldHub(RouteQuestion question) {
    question.firstHubMajorVersion = 6;
    return question;
}

RouteQuestion withoutCommand(RouteQuestion question) {
    question.isCmdSet = false;
    return question;
}

class Route : public testing::TestWithParam<RouteCase> {};

TEST_P(Route, FindsItsTarget) {
    EXPECT_EQ(decideRoutingTarget(GetParam().question), GetParam().target);
}

INSTANTIATE_TEST_SUITE_P(
    Table, Route,
    testing::Values(
        RouteCase{"SplitWithoutSymbol", split(tivra::SUBSCRIBE, ""), RoutingTarget::EachHubOfSplitSource},
        RouteCase{"SplitPattern", split(tivra::QUERYSNAP, "{A.*}"), RoutingTarget::EachHubOfSplitSource},
        RouteCase{"SplitWildcard", split(tivra::QUERYWILDCARD, "A"), RoutingTarget::EachHubOfSplitSource},
        RouteCase{"SplitUnsubscribeWildcard", split(tivra::UNSUBSCRIBEWILDCARD, "A"),
                  RoutingTarget::EachHubOfSplitSource},
        RouteCase{"SplitWithoutCommandIgnoresAStaleOne", withoutCommand(split(tivra::QUERYWILDCARD, "A")),
                  RoutingTarget::HubOfSplitSymbol},
        RouteCase{"SplitSymbol", split(tivra::SUBSCRIBE, "IBM"), RoutingTarget::HubOfSplitSymbol},
        RouteCase{"PlainSource", ask(100, tivra::SUBSCRIBE), RoutingTarget::HubOfSource},
        RouteCase{"ListOfASource", ask(100, tivra::LISTAVAILABLETOKENS), RoutingTarget::HubOfSource},
        RouteCase{"NegativeSource", ask(-2, tivra::SUBSCRIBE), RoutingTarget::HubOfSource},
        RouteCase{"LastPlainSource", ask(4095, tivra::SUBSCRIBE), RoutingTarget::HubOfSource},
        RouteCase{"NewsOnOldHub", onOldHub(ask(4096, tivra::SUBSCRIBE)), RoutingTarget::HubOfSource},
        RouteCase{"News", ask(4096, tivra::SUBSCRIBE), RoutingTarget::AllHubsNews},
        RouteCase{"NewsManagerNoXrefYet", behindManager(ask(5000, tivra::SUBSCRIBE), false, false),
                  RoutingTarget::AllHubsNews},
        RouteCase{"NewsManagerXrefDone", behindManager(ask(5000, tivra::SUBSCRIBE), true, true),
                  RoutingTarget::AllHubsNews},
        RouteCase{"NewsManagerXrefMissing", behindManager(ask(5000, tivra::SUBSCRIBE), true, false),
                  RoutingTarget::DefaultHubNewsXref},
        RouteCase{"Enumeration", ask(-1, tivra::LISTENUMERATION), RoutingTarget::DefaultHub},
        RouteCase{"Tokens", ask(-1, tivra::LISTAVAILABLETOKENS), RoutingTarget::DefaultHub},
        RouteCase{"Administration", ask(-1, tivra::LISTADMINISTRATIONINFO), RoutingTarget::DefaultHub},
        RouteCase{"Permission", ask(-1, tivra::LISTUSERPERMISSION), RoutingTarget::DefaultHub},
        RouteCase{"NoCommandGoesToAll", withoutCommand(ask(-1, tivra::LISTENUMERATION)),
                  RoutingTarget::AllHubs},
        RouteCase{"FullSubscribe", ask(-1, tivra::SUBSCRIBE, ""), RoutingTarget::AllHubs},
        RouteCase{"Xref", ask(-1, tivra::QUERYXREF), RoutingTarget::AllHubs},
        RouteCase{"XrefManagerNotNeededYet", behindManager(ask(-1, tivra::QUERYXREF), false, false),
                  RoutingTarget::AllHubs},
        RouteCase{"XrefManagerDone", behindManager(ask(-1, tivra::QUERYXREF), true, true),
                  RoutingTarget::AllHubs},
        RouteCase{"XrefManagerMissing", behindManager(ask(-1, tivra::QUERYXREF), true, false),
                  RoutingTarget::DefaultHubXref},
        RouteCase{"OtherManagerMissing", behindManager(ask(-1, tivra::QUERYSNAP), true, false),
                  RoutingTarget::AllHubs}),
    [](const auto& row) { return row.param.what; });

} // namespace
