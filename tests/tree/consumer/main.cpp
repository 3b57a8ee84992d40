// A session with all defaults against the hub that is named and, with the simulator, against one in the same
// process.
#include <cstring>
#include <iostream>
#include <string>

#include <tivra.h>
#include <tivra/session/Session.h>
#include <tivra/tivra.h>
#ifdef CONSUMER_HAS_SIM
#    include <tivra_sim/Hub.h>
#    include <tivra_testkit/Client.h>
#endif

namespace {

struct App : tivra::SessionEventHandler, tivra::UserEventHandler, tivra::MessageEventHandler {
    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}
    void onMessageEvent(const tivra::MessageEvent&) override {}
};

bool starts(const std::string& host) {
    App app;
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("consumer", TIVRA_VERSION_STRING, false, "consumer.log");
    tivra::UserInfo& user = factory->createUserInfo("demo", "demo", app);
    tivra::Session& session = factory->createSession(user, app);
    session.getConnectionConfig().getHostConfig(host);
    session.registerMessageEventHandler(&app);
    std::string reason;
    const bool started = session.start(reason);
    factory->destroySession(session);
    factory->destroyUserInfo(user);
    factory->uninitialize();
    std::cout << host << ": " << reason << '\n';
    return started;
}

} // namespace

int main(int, char** argv) {
    static_assert(TIVRA_VERSION_MAJOR * 1000000 + TIVRA_VERSION_MINOR * 10000 + TIVRA_VERSION_PATCH * 100 <=
                  TIVRA_VERSION);
    bool isRight = std::strcmp(tivra::version(), TIVRA_VERSION_STRING) == 0 && starts(argv[1]);
#ifdef CONSUMER_HAS_SIM
    tivra_sim::Hub hub(tivra_sim::HubConfig::realistic());
    hub.start();
    isRight = isRight && starts(hub.hostString()) &&
              hub.requestTexts().front().find("|13265=1|") != std::string::npos;
    tivra_testkit::Client client(hub);
    isRight = isRight && client.startAndWait() && client.ask(tivra::QUERYSNAP, 100, "IBM") == 0;
#endif
    return isRight ? 0 : 1;
}
