// A session with all defaults against a hub in the same process.
#include <iostream>
#include <string>

#include <tivra.h>
#include <tivra_sim/Hub.h>

namespace {

struct App : tivra::SessionEventHandler, tivra::UserEventHandler, tivra::MessageEventHandler {
    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}
    void onMessageEvent(const tivra::MessageEvent&) override {}
};

} // namespace

int main() {
    tivra_sim::Hub hub(tivra_sim::HubConfig::realistic());
    hub.start();

    App app;
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("consumer_sim", "1", false, "consumer_sim.log");
    tivra::UserInfo& user = factory->createUserInfo("demo", "demo", app);
    tivra::Session& session = factory->createSession(user, app);
    session.getConnectionConfig().getHostConfig(hub.hostString());
    session.registerMessageEventHandler(&app);
    std::string reason;
    const bool started = session.start(reason);
    factory->destroySession(session);
    factory->destroyUserInfo(user);
    factory->uninitialize();

    const bool asked = started && hub.requestTexts().front().find("|13265=1|") != std::string::npos;
    std::cout << reason << (asked ? ", compressed" : ", not compressed") << '\n';
    return started && asked ? 0 : 1;
}
