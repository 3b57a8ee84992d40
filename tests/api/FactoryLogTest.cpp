#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <tivra.h>
#include <tp/eprintf.h>

#include "session/SessionImpl.h"

using testing::HasSubstr;
using testing::Not;

namespace {

struct SilentHandler : tivra::SessionEventHandler, tivra::UserEventHandler, tivra::MessageEventHandler {
    void onSessionEvent(const tivra::SessionEvent&) override {}
    void onUserEvent(const tivra::UserEvent&) override {}
    void onMessageEvent(const tivra::MessageEvent&) override {}
};

/// A log in a directory of its own, read back as a text.
class FactoryLog : public testing::Test {
protected:
    FactoryLog() {
        char name[] = "/tmp/tivra-XXXXXX";
        if (const char* made = mkdtemp(name))
            directory = made;
    }
    ~FactoryLog() override {
        tivra::APIFactory::getInstance()->uninitialize();
        std::filesystem::remove_all(directory);
        static_cast<void>(tp::eprintf_init(EPF_STDERR, EPF_WARN, "%s", "test"));
        tivra_internal::SessionImpl::setLanguage("C++");
    }
    std::string base() const { return directory + "/log"; }
    std::string text() const {
        std::time_t now = std::time(nullptr);
        std::tm local{};
        localtime_r(&now, &local);
        char date[16];
        std::strftime(date, sizeof date, ".%m%d%Y", &local);
        std::ifstream file(base() + date);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    std::string directory;
    SilentHandler handler;
    tivra::APIFactory& factory = *tivra::APIFactory::getInstance();
};

TEST_F(FactoryLog, DebugDecidesOnLevelAndFileInformationAndNoLineIsFolded) {
    EXPECT_EQ(factory.initialize("app", "1.2", false, base(), "External"), 0);
    eprintf(EPF_DBUG, "a debug line");
    for (int i = 0; i < 2; ++i)
        eprintf(EPF_INFO, "said twice");
    EXPECT_THAT(text(), HasSubstr("INFO: APIFactory initialized Usage : External"));
    EXPECT_THAT(text(), HasSubstr("app-1.2"));
    EXPECT_THAT(text(), testing::ContainsRegex("said twice\n.*said twice\n"));
    EXPECT_THAT(text(), Not(HasSubstr("a debug line")));
    EXPECT_THAT(text(), Not(HasSubstr(".cpp[")));

    for (int i = 0; i < 1000; ++i)
        eprintf(EPF_WARN, "a flood");
    EXPECT_EQ(factory.initialize("app", "1.2", true, base()), 0);
    EXPECT_THAT(text(),
                testing::ContainsRegex("(WARN: a flood\n.*){10}WARN: a flood \\(repeated 990 times\\)"));
    eprintf(EPF_DBUG, "a debug line");
    EXPECT_THAT(text(), HasSubstr("FactoryLogTest.cpp["));
    EXPECT_THAT(text(), HasSubstr("DBUG: a debug line"));
}

TEST_F(FactoryLog, TextsOfTheApplicationAreNeverFormats) {
    factory.initialize("%s%n", "%d", false, base(), "%n%s");
    EXPECT_THAT(text(), HasSubstr("%s%n-%d"));
    EXPECT_THAT(text(), HasSubstr("Usage : %n%s"));
}

TEST_F(FactoryLog, CredentialsThatCouldForgePairsAreRefusedUnshown) {
    factory.initialize("app", "1", false, base(), "C|5028=root");
    for (const auto& [name, password] : {std::pair{"jane|5028=root", "pw"}, std::pair{"jane", "root\x03"}}) {
        tivra::UserInfo& user = factory.createUserInfo(name, password, handler);
        tivra::Session& session = factory.createSession(user, handler);
        EXPECT_EQ(tivra_internal::HandleAccess::impl(session).getLanguage(), "C++");
        session.getConnectionConfig().getHostConfig("127.0.0.1:9");
        session.registerMessageEventHandler(&handler);
        std::string reason;
        EXPECT_FALSE(session.start(reason));
        EXPECT_EQ(reason, "User name or password can't be sent to a hub");
        factory.destroySession(session);
        factory.destroyUserInfo(user);
    }
    EXPECT_THAT(text(), HasSubstr("Invalid user name passed to APIFactory::createUserInfo: it holds"));
    EXPECT_THAT(text(), HasSubstr("Invalid password passed to APIFactory::createUserInfo: it holds"));
    EXPECT_THAT(text(), Not(HasSubstr("root")));
}

TEST_F(FactoryLog, WhatWasCutIsReportedOnStandardError) {
    testing::internal::CaptureStderr();
    factory.initialize(std::string(200, 'p'), "1", false, base() + std::string(60, 'n'));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(HasSubstr("prefix"), HasSubstr("log file name")));
}

TEST_F(FactoryLog, OnlyAWordOfItsOwnReplacesTheLanguage) {
    tivra::UserInfo& user = factory.createUserInfo("jane", "secret", handler);
    tivra::Session& session = factory.createSession(user, handler);
    const tivra_internal::SessionImpl& impl = tivra_internal::HandleAccess::impl(session);
    for (const auto& [usage, language] : {std::pair{"", "C++"}, std::pair{"External", "C++"},
                                          std::pair{"Python", "Python"}, std::pair{"External", "Python"}}) {
        factory.initialize("app", "1", false, base(), usage);
        EXPECT_EQ(impl.getLanguage(), language) << usage;
    }
    factory.destroySession(session);
    factory.destroyUserInfo(user);
}

} // namespace
