#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <tp/Clock.h>

#include "config/HostFixture.h"
#include "hub/FakeHubSession.h"
#include "hub/HubAnswers.h"
#include "hub/HubEventReactor.h"
#include "hub/HubPeer.h"
#include "receive/Queue.h"
#include "receive/QueueReadHandler.h"
#include "support/LogCapture.h"

namespace tivra_internal {

/// One client, one hub driven by the test, one reactor that doesn't run: the test calls what the loop would
/// call. Time stands still unless a test moves it.
class HubFixture : public testing::Test, protected HubAnswers {
protected:
    struct Options {
        std::string address = "127.0.0.1";
        std::size_t port = 0; ///< 0: the port of the hub
        long retryLimit = 5;
        long readTimeout = 5;
        bool compression = false;
        bool watchlist = false;
        std::size_t index = 0;
        bool isInline = false;
        std::vector<std::string> addressesOfName{};
        bool requiresTls = false;
    };

    HubFixture() { reactor = std::make_unique<HubEventReactor>(0, 1000); }

    void makeClient() { makeClient(Options()); }
    void makeClient(const Options& options) {
        client.reset();
        client = newClient(options);
    }
    std::unique_ptr<HubClient> newClient(const Options& options) {
        const std::size_t port = options.port != 0 ? options.port : hub.port();
        auto made = std::make_unique<HubClient>(
            HandleAccess::impl(*userHandle), session,
            HubClientOptions{.label = HostTable::hostInfoOf(options.address, port),
                             .address = options.address,
                             .addressesOfName = options.addressesOfName,
                             .port = port,
                             .index = options.index,
                             .host = &host(),
                             .connectionTimeout = 5,
                             .connectionRetryLimit = options.retryLimit,
                             .readTimeout = options.readTimeout,
                             .queueSize = 1,
                             .compression = options.compression,
                             .tls = {.isRequired = options.requiresTls},
                             .watchlistInUse = options.watchlist,
                             .inlineDelivery = options.isInline});
        made->attachReactor(reactor.get(), 0);
        return made;
    }
    HostConfigImpl& host() { return hosts.host("hub:1"); }
    std::string ownPort() const override { return "|13001=127.0.0.1|13101=" + std::to_string(hub.port()); }

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
        return loginAndConverse(loneHubBut(word, std::move(bodies)));
    }
    void comeUp() {
        loginAndConverse(loneHub());
        ASSERT_TRUE(client->isReady());
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
};

} // namespace tivra_internal
