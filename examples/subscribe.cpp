// The smallest useful subscriber: every update of one symbol, for a few messages, as raw fields.
// usage: example_subscribe HOST:PORT USER PASSWORD SOURCE SYMBOL [MESSAGES]
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include <tivra.h>

namespace {

class Printer : public tivra::SessionEventHandler,
                public tivra::UserEventHandler,
                public tivra::MessageEventHandler {
public:
    std::atomic<int> messages{0};

    void onSessionEvent(const tivra::SessionEvent&) override {}

    void onUserEvent(const tivra::UserEvent& event) override {
        if (event.getType() == tivra::UserEvent::AUTHORIZATION_FAILURE)
            std::cerr << "login refused: " << event.getRetCodeString() << '\n';
    }

    void onMessageEvent(const tivra::MessageEvent& event) override {
        std::cout << event.getSymbolView();
        tivra::MessageReader& reader = event.getReader();
        while (reader.next() != tivra::MessageReader::END_OF_MESSAGE)
            std::cout << ' ' << reader.getTokenName() << '=' << reader.getValueAsString();
        std::cout << '\n';
        ++messages;
    }
};

} // namespace

int main(int argc, char** argv) {
    if (argc < 6) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE SYMBOL [MESSAGES]\n";
        return 2;
    }
    const int wanted = argc > 6 ? std::atoi(argv[6]) : 10;

    Printer printer;
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("example_subscribe", "1.0", false, "example_subscribe.log");
    tivra::UserInfo& user = factory->createUserInfo(argv[2], argv[3], printer);
    tivra::Session& session = factory->createSession(user, printer);
    session.getConnectionConfig().getHostConfig(argv[1]);
    session.registerMessageEventHandler(&printer);

    std::string reason;
    const bool started = session.start(reason);
    if (started) {
        tivra::Request& request = session.createRequest();
        request.setCommand(tivra::SUBSCRIBE);
        request.add(tivra::ENUM_SRC_ID, std::atoi(argv[4])).add(tivra::SYMBOL_TICKER, std::string(argv[5]));
        session.send(request);
        session.freeRequest(request);
        while (printer.messages < wanted)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        session.stop();
    } else {
        std::cerr << "start failed: " << reason << '\n';
    }

    factory->destroySession(session);
    factory->destroyUserInfo(user);
    factory->uninitialize();
    return started ? 0 : 1;
}
