// Asks once for the present values of one symbol and ends when the hub has said that this was all.
// usage: example_snapshot HOST:PORT USER PASSWORD SOURCE SYMBOL
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>

#include <tivra.h>

namespace {

class Snapshot : public tivra::SessionEventHandler,
                 public tivra::UserEventHandler,
                 public tivra::MessageEventHandler {
public:
    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}

    void onMessageEvent(const tivra::MessageEvent& event) override {
        if (event.getType() == tivra::MessageEvent::IMAGE_PART)
            print(event);
        if (event.getType() == tivra::MessageEvent::IMAGE_COMPLETE)
            finish(event.getStatusCode(), event.getStatusString());
    }

    int waitForEnd() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return finished; });
        return status;
    }

private:
    static void print(const tivra::MessageEvent& event) {
        std::cout << event.getSymbolView() << " of source " << event.getSource() << '\n';
        tivra::MessageReader& reader = event.getReader();
        while (reader.next() != tivra::MessageReader::END_OF_MESSAGE)
            std::cout << "  " << reader.getTokenName() << " = " << reader.getValueAsString() << '\n';
    }

    void finish(int code, const std::string& text) {
        if (code != 0)
            std::cerr << "the hub answered " << code << ": " << text << '\n';
        const std::lock_guard<std::mutex> lock(mutex);
        finished = true;
        status = code;
        changed.notify_all();
    }

    std::mutex mutex;
    std::condition_variable changed;
    bool finished = false;
    int status = 0;
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: " << argv[0] << " HOST:PORT USER PASSWORD SOURCE SYMBOL\n";
        return 2;
    }
    Snapshot snapshot;
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("example_snapshot", "1.0", false, "example_snapshot.log");
    tivra::UserInfo& user = factory->createUserInfo(argv[2], argv[3], snapshot);
    tivra::Session& session = factory->createSession(user, snapshot);
    session.getConnectionConfig().getHostConfig(argv[1]);
    session.registerMessageEventHandler(&snapshot);

    int result = 1;
    std::string reason;
    if (session.start(reason)) {
        tivra::Request& request = session.createRequest();
        request.setCommand(tivra::QUERYSNAP);
        request.add(tivra::ENUM_SRC_ID, std::atoi(argv[4])).add(tivra::SYMBOL_TICKER, std::string(argv[5]));
        const std::int64_t tag = session.send(request);
        session.freeRequest(request);
        result = tag != 0 && snapshot.waitForEnd() == 0 ? 0 : 1;
    } else {
        std::cerr << "start failed: " << reason << '\n';
    }

    factory->destroySession(session);
    factory->destroyUserInfo(user);
    factory->uninitialize();
    return result;
}
