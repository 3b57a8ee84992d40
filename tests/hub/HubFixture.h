#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include "config/HostFixture.h"
#include "hub/FakeHubSession.h"
#include "hub/HubEventReactor.h"
#include "hub/HubPeer.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "support/LogCapture.h"

namespace tivra_internal {

struct QuietUser : tivra::UserEventHandler {
    void onUserEvent(const tivra::UserEvent&) override {}
};

/// What a hub answers, by the command word of the request: one body per message.
using Answers = std::map<std::string, std::vector<std::string>>;

/// One client, one hub driven by the test, one reactor that doesn't run: the test calls what the loop would
/// call. Time stands still unless a test moves it.
class HubFixture : public testing::Test {
protected:
    struct Options {
        std::string address = "127.0.0.1";
        size_t port = 0; ///< 0: the port of the hub
        long retryLimit = 5;
        long readTimeout = 5;
        bool compression = false;
        bool watchlist = false;
        size_t index = 0;
    };

    HubFixture() { reactor = std::make_unique<HubEventReactor>(0, 1000); }

    void makeClient() { makeClient(Options()); }
    void makeClient(const Options& options) {
        client.reset();
        client = newClient(options);
    }
    std::unique_ptr<HubClient> newClient(const Options& options) {
        const size_t port = options.port != 0 ? options.port : hub.port();
        auto made = std::make_unique<HubClient>(
            HandleAccess::impl(*userHandle), session,
            HubClientOptions{.label = HostTable::hostInfoOf(options.address, port),
                             .address = options.address,
                             .port = port,
                             .index = options.index,
                             .host = &host(),
                             .connectionTimeout = 5,
                             .connectionRetryLimit = options.retryLimit,
                             .readTimeout = options.readTimeout,
                             .blockingConnectionLimit = 200,
                             .queueSize = 1,
                             .compression = options.compression,
                             .watchlistInUse = options.watchlist});
        made->attachReactor(reactor.get(), 0);
        return made;
    }
    HostConfigImpl& host() { return hosts.host("hub:1"); }

    /// Dials until the dial has ended; true when it has succeeded.
    bool dial(HubClient& which) {
        for (double tick = 1.0; tick < 1000.0; tick += 1.0) {
            const HubClient::Dial dial = which.connectHost(tick);
            if (dial == HubClient::Dial::Connected || dial == HubClient::Dial::Failed)
                return dial == HubClient::Dial::Connected;
        }
        return false;
    }
    void connect() {
        ASSERT_TRUE(dial(*client));
        hub.accept();
    }
    void connectAndLogin() {
        connect();
        ASSERT_EQ(client->login(), 1);
    }
    /// Lets the client take what the hub has sent.
    void serve() {
        ASSERT_TRUE(waitReadable(client->getFd()));
        client->readableEvent(tp::Clock::now());
    }
    virtual void answer(std::string_view body) {
        hub.send(body);
        serve();
    }

    /// Where the hub is, as it says that itself.
    std::string ownPort() const { return "|13001=127.0.0.1|13101=" + std::to_string(hub.port()); }

    /// The answers of a lone hub; a test replaces what it is about.
    Answers loneHub() {
        return {{"LoginUser", {"5026=1|5001=0"}},
                {"ListEnumeration",
                 {"5026=2|5034=0|5033=SUCCESS", "5026=2|5034=-5|5033=ERR.AUTH.LOGIN", "5026=2|5001=0"}},
                {"SetConflationInterval", {"5026=3|5001=0"}},
                {"SetConflationType", {"5026=4|5001=0"}},
                {"ListAdministrationInfo", {"5026=5|5080=D1|5008=V8.1.2|5001=0"}},
                {"ListInternalTokens",
                 {"5026=6|5035=10|5010=BID|5012=FLOAT|5011=20",
                  "5026=6|5035=11|5010=BID.SIZE|5012=INTEGER|5011=20", "5026=6|5001=0"}},
                {"GetPort", {"5026=7" + ownPort() + "|5001=0"}},
                {"ListSplitExchanges", {"5026=8|5001=0"}},
                {"GetAllPorts", {"5026=15|5001=0"}},
                {"ListSystemPermission", {"5026=9|3=922|3=558|5001=0"}},
                {"ListUserPermission", {"5026=10|3=922|3=558|5001=0"}},
                {"Subscribe .UTC.TIME.DATE", {"5026=12|5001=0"}},
                {"Subscribe .HUB.STATUS", {"5026=13|5001=0"}},
                {"Echo", {"5026=14|5001=0"}}};
    }

    /// Answers requests until the client asks for nothing more; returns their texts.
    std::vector<std::string> converse(const Answers& answers) {
        std::vector<std::string> requests;
        while (client->getFd() >= 0 && hub.hasRequest() && !client->isReady() && requests.size() < 100) {
            requests.push_back(hub.readRequest());
            for (const std::string& body : answersTo(requests.back(), answers)) {
                if (client->getFd() < 0)
                    break;
                answer(body);
            }
        }
        return requests;
    }
    std::vector<std::string> loginAndConverse(const Answers& answers) {
        connectAndLogin();
        return converse(answers);
    }
    /// A lone hub that answers one command word differently.
    std::vector<std::string> loginAndConverse(const std::string& word, std::vector<std::string> bodies) {
        Answers answers = loneHub();
        answers[word] = std::move(bodies);
        return loginAndConverse(answers);
    }
    void comeUp() {
        loginAndConverse(loneHub());
        ASSERT_TRUE(client->isReady());
    }
    /// The command words of requests, with what tells repeated ones apart.
    static std::vector<std::string> wordsOf(const std::vector<std::string>& requests) {
        std::vector<std::string> words;
        for (const std::string& text : requests)
            words.push_back(wordOf(text));
        return words;
    }

    // Declared first, so that times are manual for everything below.
    tp::ManualClock clock;
    FakeHubSession session;
    QuietUser handler;
    HandlePtr<tivra::UserInfo> userHandle = HandleAccess::makeUserInfo("jane", "pa55word", handler);
    HostFixture hosts;
    HubPeer hub;
    std::unique_ptr<HubEventReactor> reactor;
    std::unique_ptr<HubClient> client;

private:
    static std::string wordOf(const std::string& text) {
        const size_t start = text.find("5022=") + 5;
        std::string word = text.substr(start, text.find('|', start) - start);
        if (word == "Subscribe")
            word += ' ' + text.substr(text.rfind("5=") + 2);
        return word;
    }
    static std::vector<std::string> answersTo(const std::string& request, const Answers& answers) {
        const auto exact = answers.find(request);
        const auto found = exact != answers.end() ? exact : answers.find(wordOf(request));
        return found != answers.end() ? found->second : std::vector<std::string>();
    }
};

} // namespace tivra_internal
