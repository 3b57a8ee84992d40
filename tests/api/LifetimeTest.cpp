#include <gmock/gmock.h>
#include <tivra.h>
#include <tp/Thread.h>

#include "support/HeapControl.h"
#include "support/LogCapture.h"

using testing::HasSubstr;
using namespace tivra;

namespace {

constexpr const char* kNoHandler = "Cannot start session without first registering a message event handler";
constexpr const char* kMultiple = "Multiple Sessions are not supported; ignoring start request";

struct SilentHandler : SessionEventHandler, UserEventHandler, MessageEventHandler {
    void onSessionEvent(const SessionEvent&) override {}
    void onUserEvent(const UserEvent&) override {}
    void onMessageEvent(const MessageEvent&) override {}
};

class Lifetime : public testing::Test {
protected:
    Session& newSession() {
        Session& session = factory.createSession(user, handler);
        session.getConnectionConfig().getHostConfig("127.0.0.1:1");
        return session;
    }
    static std::string startReason(Session& session) {
        std::string reason;
        EXPECT_FALSE(session.start(reason));
        return reason;
    }
    /// The lines above the debug level, in one text.
    std::string logged() {
        std::string text;
        for (const std::string& line : log.linesAboveDebug())
            text += line + "\n";
        log.forget();
        return text;
    }

    LogCapture log;
    SilentHandler handler;
    APIFactory& factory = *APIFactory::getInstance();
    UserInfo& user = factory.createUserInfo("jane", "secret", handler);
};

TEST_F(Lifetime, OnlyTheSessionMadeWhileNoneExistedCanStart) {
    Session& first = newSession();
    Session& second = newSession();
    EXPECT_EQ(startReason(second), kMultiple);
    EXPECT_EQ(startReason(first), kNoHandler);
    factory.destroySession(first);
    EXPECT_EQ(startReason(second), kMultiple); // for its whole life
    factory.destroySession(second);
    for (int i = 0; i < 3; ++i) {
        Session& next = newSession();
        EXPECT_EQ(startReason(next), kNoHandler);
        factory.destroySession(next);
    }
    factory.destroyUserInfo(user);
}

TEST_F(Lifetime, ASessionThatCouldNotBeBuiltIsNotCounted) {
    Session* session = nullptr;
    long failures = 0;
    for (; session == nullptr; ++failures) {
        const FailedAllocation fails(failures);
        try {
            session = &factory.createSession(user, handler);
        } catch (const std::bad_alloc&) {
        }
    }
    EXPECT_GT(failures, 3);
    session->getConnectionConfig().getHostConfig("127.0.0.1:1");
    EXPECT_EQ(startReason(*session), kNoHandler);
    factory.destroySession(*session);
    factory.destroyUserInfo(user);
    EXPECT_THAT(logged(), testing::Not(HasSubstr("still refers"))) << "nor does it hold its user";
}

TEST_F(Lifetime, ObjectsGivenBackTwiceAreLeftAlone) {
    Session& session = newSession();
    EXPECT_EQ(&session.getUserInfo(), &user);
    Request& request = session.createRequest();
    session.freeRequest(request);
    logged();
    session.freeRequest(request);
    EXPECT_THAT(logged(), HasSubstr("WARN: Session::freeRequest: request"));

    factory.destroyUserInfo(user);
    EXPECT_THAT(logged(), HasSubstr("CRIT: destroyUserInfo: a session still refers to user"));
    EXPECT_EQ(user.getState(), UserInfo::NOT_AUTHENTICATED);

    factory.destroySession(session);
    factory.destroySession(session);
    EXPECT_THAT(logged(), HasSubstr("WARN: destroySession: session"));
    factory.destroyUserInfo(user);
    factory.destroyUserInfo(user);
    EXPECT_THAT(logged(), HasSubstr("INFO: destroyUserInfo called\nWARN: destroyUserInfo: user"));

    // The unknown ones above haven't been counted as sessions that went.
    SilentHandler other;
    UserInfo& nextUser = factory.createUserInfo("jane", "secret", other);
    Session& a = factory.createSession(nextUser, other);
    Session& b = factory.createSession(nextUser, other);
    b.getConnectionConfig().getHostConfig("127.0.0.1:1");
    EXPECT_EQ(startReason(b), kMultiple);
    factory.destroySession(a);
    factory.destroySession(b);
    factory.destroyUserInfo(nextUser);
}

TEST_F(Lifetime, RequestOutlivesItsSessionWithoutReachingIntoIt) {
    Session& gone = newSession();
    Request& request = gone.createRequest();
    request.setCommand(QUERYSNAP);
    EXPECT_GE(request.generateTag(), 18);
    factory.destroySession(gone);
    EXPECT_EQ(request.generateTag(), 0);

    Session& next = newSession();
    EXPECT_EQ(next.send(request), 0);
    next.freeRequest(request);
    EXPECT_THAT(logged(), testing::Not(HasSubstr("freeRequest: request")));
    factory.destroySession(next);
    factory.destroyUserInfo(user);
}

TEST_F(Lifetime, NothingIsStartedStoppedOrDestroyedOnALibraryThread) {
    Session& session = newSession();
    {
        const tp::LibraryThreadMark inCallback;
        EXPECT_EQ(startReason(session), "start called on a library thread");
        EXPECT_TRUE(session.stop());
        factory.destroySession(session);
        factory.destroyUserInfo(user);
    }
    const std::string text = logged();
    EXPECT_THAT(text, HasSubstr("CRIT: start called on a library thread"));
    EXPECT_THAT(text, HasSubstr("CRIT: stop called on a library thread"));
    EXPECT_THAT(text, HasSubstr("CRIT: destroySession called on a library thread"));
    EXPECT_THAT(text, HasSubstr("CRIT: destroyUserInfo called on a library thread"));
    EXPECT_EQ(startReason(session), kNoHandler);
    factory.destroySession(session);
    factory.destroyUserInfo(user);
}

TEST_F(Lifetime, ASessionWithoutAPrimaryHostDoesNotStart) {
    const std::string noPrimary = "Primary connection empty or Primary and backup have same connection";
    Session& session = factory.createSession(user, handler);
    session.registerMessageEventHandler(&handler);
    EXPECT_EQ(startReason(session), noPrimary);
    session.getConnectionConfig().getHostConfig("127.0.0.1:1").set(HostConfig::BACKUP_BOOL, true);
    EXPECT_EQ(startReason(session), noPrimary);
    factory.destroySession(session);
    factory.destroyUserInfo(user);
}

} // namespace
