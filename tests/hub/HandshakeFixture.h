#pragma once

#include <deque>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include "config/HostFixture.h"
#include "config/UserHub.h"
#include "hub/FakeHubSession.h"
#include "hub/HubAnswers.h"
#include "hub/HubPeer.h"
#include "hub/handshake/Handshake.h"
#include "kvnparse/Parser.h"
#include "support/LogCapture.h"

namespace tivra_internal {

/// A handshake without a connection: the test takes its requests and hands it the hub's answers. Time stands
/// still unless a test moves it.
class HandshakeFixture : public testing::Test, public HubAnswers, public HandshakePort, public UserHub {
public:
    struct Options {
        long retryLimit = 5;
        long readTimeout = 5;
        bool compression = false;
    };

    ~HandshakeFixture() override { user().deleteHub(this); }

    /// A new client of the session.
    void makeHandshake() { makeHandshake(Options()); }
    void makeHandshake(const Options& options) {
        handshake.reset();
        user().deleteHub(this);
        user().newHub(this);
        forgetConnection();
        dictionary = std::make_unique<MetaTokenMap>();
        clientOptions = {.label = hostString(),
                         .address = "127.0.0.1",
                         .port = kPort,
                         .host = &host(),
                         .connectionRetryLimit = options.retryLimit,
                         .readTimeout = options.readTimeout,
                         .compression = options.compression};
        address = std::make_unique<HubAddress>(clientOptions);
        handshake = std::make_unique<Handshake>(*this, session, user(), *address, *dictionary, clientOptions,
                                                [] { return 0.0; });
        parser = KVNAPI::Parser::alloc("kvn", dictionary.get(), 0x10000);
        if (session.first == nullptr)
            session.first = client();
    }
    HostConfigImpl& host() { return hosts.host("hub:1"); }
    UserInfoImpl& user() { return HandleAccess::impl(*userHandle); }
    static std::string hostString() { return "127.0.0.1:" + std::to_string(kPort); }
    std::string ownPort() const override { return "|13001=127.0.0.1|13101=" + std::to_string(kPort); }

    void connect() {
        suspendReason.clear();
        fd = 17;
        handshake->begin();
    }
    void connectAndLogin() {
        connect();
        ASSERT_EQ(handshake->login(), 1);
    }
    void answer(std::string_view body) {
        std::string frame = frameOf(body);
        parser->push(KVNAPI::bufref(frame.data(), frame.size()));
        KVNAPI::Message message;
        ASSERT_EQ(parser->pull(&message), 0) << body;
        handshake->take(message);
    }
    /// The next request, empty when there is none.
    std::string readRequest() {
        if (requests.empty())
            return {};
        std::string text = std::move(requests.front());
        requests.pop_front();
        return text;
    }
    /// Answers requests until nothing more is asked for; returns their texts.
    std::vector<std::string> converse(const Answers& answers) {
        std::vector<std::string> texts;
        while (fd >= 0 && !requests.empty() && !ready && texts.size() < 100) {
            texts.push_back(readRequest());
            for (const std::string& body : answersTo(texts.back(), answers)) {
                if (fd < 0)
                    break;
                answer(body);
            }
        }
        return texts;
    }
    std::vector<std::string> loginAndConverse(const Answers& answers) {
        connectAndLogin();
        return converse(answers);
    }
    std::vector<std::string> loginAndConverse(const std::string& word, std::vector<std::string> bodies) {
        return loginAndConverse(loneHubBut(word, std::move(bodies)));
    }

    // --- what the handshake asks ---
    HubClient* client() override { return reinterpret_cast<HubClient*>(&identity); }
    const UserHub& userHub() const override { return *this; }
    bool isDummy() const override { return false; }
    bool isInitialHubDisconnected() const override { return false; }
    int getFd() const override { return fd; }
    bool isDialRepeated() const override { return false; }
    int sendRequest(const char* text, timeval*) override {
        requests.emplace_back(text);
        return 1;
    }
    int sendLogin(const std::string& text) override { return sendRequest(text.c_str(), nullptr); }
    void closeConnection() override {
        if (fd >= 0)
            forgetConnection();
    }
    void noteLoginStatus(int status) override { loginStatus = status; }
    void suspendClient(const std::string& reason) override {
        closeConnection();
        suspendReason = reason;
    }
    bool isSuspended() const override { return !suspendReason.empty(); }
    void continueSoon() override {}
    void setInitHBTime() override { progressTime = tp::Clock::monotonic(); }
    void heartbeatSubscribed() override { heartbeats = true; }
    void setJit(int threshold) override { jitThreshold = threshold; }
    void becomeReady() override { ready = true; }

    static constexpr std::size_t kPort = 4711;
    // Declared first, so that times are manual for everything below.
    tp::ManualClock clock;
    FakeHubSession session;
    QuietUser handler;
    HandlePtr<tivra::UserInfo> userHandle = HandleAccess::makeUserInfo("jane", "pa55word", handler);
    HostFixture hosts;
    HubClientOptions clientOptions;
    std::unique_ptr<HubAddress> address;
    std::unique_ptr<MetaTokenMap> dictionary;
    std::unique_ptr<KVNAPI::Parser> parser;
    std::unique_ptr<Handshake> handshake;

    int fd = -1;
    std::deque<std::string> requests;
    std::string suspendReason;
    int loginStatus = 0;
    double progressTime = 0.0;
    bool heartbeats = false;
    int jitThreshold = 0;
    bool ready = false;

private:
    void forgetConnection() {
        fd = -1;
        ready = false;
        requests.clear();
        user().resetHub(this);
        if (handshake != nullptr)
            handshake->forget();
    }

    int identity = 0;
};

} // namespace tivra_internal
