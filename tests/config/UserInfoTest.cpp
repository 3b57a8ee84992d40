#include "config/UserInfoImpl.h"

#include <thread>

#include <gmock/gmock.h>
#include <user/UserEventHandler.h>

#include "config/RetCodeTexts.h"
#include "config/UserHub.h"
#include "support/LogCapture.h"

using testing::ElementsAre;
using testing::EndsWith;
using tivra::UserEvent;
using tivra::UserInfo;
using namespace tivra_internal;

namespace {

struct FakeHub : UserHub {
    explicit FakeHub(bool dummy = false) : isTheDummy(dummy) {}
    bool isDummy() const override { return isTheDummy; }
    bool isInitialHubDisconnected() const override { return isDropped; }
    bool isTheDummy;
    bool isDropped = false;
};

struct FakeTexts : RetCodeTexts {
    const char* getRetCodeDesc(int code) const override {
        return code == -5 ? "ERR.AUTH.LOGIN" : "Unknown code";
    }
};

/// Remembers what it was told, as "type:code:name".
struct Recorder : tivra::UserEventHandler {
    void onUserEvent(const UserEvent& event) override {
        told.push_back(std::to_string(event.getType()) + ":" + std::to_string(event.getRetCode()) + ":" +
                       event.getRetCodeString());
        lastSession = &event.getSession();
        if (inCallback)
            inCallback(event);
    }
    std::vector<std::string> told;
    const tivra::Session* lastSession = nullptr;
    std::function<void(const UserEvent&)> inCallback;
};

class UserInfoTest : public testing::Test {
protected:
    void succeed(const FakeHub& hub) {
        user.loginResult(&hub, UserEvent::AUTHORIZATION_SUCCESS, 0, session(), texts);
    }
    void fail(const FakeHub& hub, int rc = -5) {
        user.loginResult(&hub, UserEvent::AUTHORIZATION_FAILURE, rc, session(), texts);
    }
    const std::vector<std::string>& deliverAll() {
        while (!user.eventQueueEmpty())
            user.handleEvents();
        return recorder.told;
    }
    // Events carry a session by its address alone.
    tivra::Session& session(std::size_t i = 0) { return *reinterpret_cast<tivra::Session*>(&sessions[i]); }

    Recorder recorder;
    FakeTexts texts;
    HandlePtr<UserInfo> handle = HandleAccess::makeUserInfo("jane", "secret", recorder);
    UserInfoImpl& user = HandleAccess::impl(*handle);
    FakeHub a, b, c;
    FakeHub dummy{true};

private:
    void* sessions[2] = {};
};

TEST_F(UserInfoTest, SuccessIsToldOnceWhenTheLastOfSeveralHubsAccepts) {
    for (const FakeHub* hub : {&a, &b, &c, &dummy})
        user.newHub(hub);
    std::vector<UserInfo::States> states{handle->getState()};
    for (const FakeHub* hub : {&a, &b, &c}) {
        succeed(*hub);
        states.push_back(handle->getState());
    }
    EXPECT_THAT(states, ElementsAre(UserInfo::NOT_AUTHENTICATED, UserInfo::PARTIALLY_AUTHENTICATED,
                                    UserInfo::PARTIALLY_AUTHENTICATED, UserInfo::AUTHENTICATED));
    EXPECT_THAT(deliverAll(), ElementsAre("1:0:Unknown code"));
    EXPECT_EQ(recorder.lastSession, &session());
}

TEST_F(UserInfoTest, FirstHubAloneSucceedsAtOnceAndLaterHubsRaiseNothing) {
    user.newHub(&a);
    succeed(a);
    user.newHub(&b);
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED); // counted anew at the next result
    succeed(b);
    EXPECT_THAT(deliverAll(), ElementsAre("1:0:Unknown code"));
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
}

TEST_F(UserInfoTest, RefusalAfterAnAcceptanceIsToldAlthoughOthersAreAccepted) {
    user.newHub(&a);
    user.newHub(&b);
    succeed(a);
    fail(b);
    EXPECT_EQ(user.getState(), UserInfo::PARTIALLY_AUTHENTICATED);
    fail(b);
    EXPECT_THAT(deliverAll(), ElementsAre("0:-5:ERR.AUTH.LOGIN"));
    // Each other code is told, but not how often two hubs repeat theirs.
    fail(a, -6);
    fail(b);
    fail(a, -6);
    EXPECT_THAT(deliverAll(), ElementsAre("0:-5:ERR.AUTH.LOGIN", "0:-6:Unknown code"));
    succeed(a);
    succeed(b);
    EXPECT_THAT(deliverAll(), ElementsAre("0:-5:ERR.AUTH.LOGIN", "0:-6:Unknown code", "1:0:Unknown code"));
}

TEST_F(UserInfoTest, LossAndReturnOfAHubMoveTheStateButTellNothing) {
    user.newHub(&a);
    user.newHub(&b);
    succeed(a);
    succeed(b);
    user.resetHub(&a);
    EXPECT_EQ(user.getState(), UserInfo::PARTIALLY_AUTHENTICATED);
    user.resetHub(&b);
    EXPECT_EQ(user.getState(), UserInfo::NOT_AUTHENTICATED);
    succeed(b);
    succeed(a);
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
    EXPECT_THAT(deliverAll(), ElementsAre("1:0:Unknown code"));

    // One that the session lets go on purpose keeps its state until it is deleted.
    a.isDropped = true;
    user.resetHub(&a);
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
    user.resetHub(&b);
    user.deleteHub(&b);
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
    user.deleteHub(&a);
    EXPECT_EQ(user.getState(), UserInfo::NOT_AUTHENTICATED);
}

TEST_F(UserInfoTest, UnknownHubsAreReportedAndRepaired) {
    LogCapture log;
    user.resetHub(&a);
    succeed(a);
    EXPECT_THAT(log.linesAboveDebug(),
                ElementsAre(EndsWith(" missing; ignoring reset"), EndsWith(" missing; creating new one")));
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
    // Announcing a hub that is already known doesn't undo its login.
    user.newHub(&a);
    user.newHub(&b);
    user.deleteHub(&b);
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
}

TEST_F(UserInfoTest, OneEventPerCallWithNoMutexHeldInTheCallback) {
    user.newHub(&a);
    fail(a);
    succeed(a);
    recorder.inCallback = [&](const UserEvent& event) {
        EXPECT_EQ(&event.getUserInfo(), handle.get());
        static_cast<void>(user.eventQueueEmpty());
        user.resetHub(&a);
        fail(a);
        recorder.inCallback = nullptr;
    };
    LogCapture log;
    user.handleEvents();
    EXPECT_THAT(recorder.told, ElementsAre("0:-5:ERR.AUTH.LOGIN"));
    EXPECT_THAT(log.linesAboveDebug(), ElementsAre("INFO: UserEvent: AUTHORIZATION_FAILURE for user jane"));
    EXPECT_THAT(deliverAll(), ElementsAre("0:-5:ERR.AUTH.LOGIN", "1:0:Unknown code", "0:-5:ERR.AUTH.LOGIN"));
    EXPECT_TRUE(log.has("INFO: UserEvent: AUTHORIZATION_SUCCESS for user jane"));
    EXPECT_THAT(log.lines(), testing::Each(testing::Not(testing::HasSubstr("secret"))));
    user.handleEvents();
}

TEST_F(UserInfoTest, EventsOfADestroyedSessionAreNeverDelivered) {
    user.newHub(&a);
    user.loginResult(&a, UserEvent::AUTHORIZATION_FAILURE, -5, session(0), texts);
    user.loginResult(&a, UserEvent::AUTHORIZATION_SUCCESS, 0, session(1), texts);
    user.discardEvents(session(0));
    EXPECT_THAT(deliverAll(), ElementsAre("1:0:Unknown code"));
    EXPECT_EQ(recorder.lastSession, &session(1));
    fail(a); // left in the queue, for the destructor to free
}

TEST_F(UserInfoTest, HubsThatReportAtTheSameTimeEndInOneStateAndOneEvent) {
    std::vector<FakeHub> hubs(8);
    for (const FakeHub& hub : hubs)
        user.newHub(&hub);
    std::vector<std::thread> threads;
    for (const FakeHub& hub : hubs) {
        threads.emplace_back([this, &hub] {
            for (int i = 0; i < 200; ++i) {
                user.resetHub(&hub);
                succeed(hub);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(user.getState(), UserInfo::AUTHENTICATED);
    EXPECT_THAT(deliverAll(), ElementsAre("1:0:Unknown code"));
}

} // namespace
