// What the memory of a process that logs in still holds of the password. The hub is another process.
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <feed.h>
#include <gtest/gtest.h>
#include <tivra.h>
#include <tivra_testkit/RecordingApp.h>

#include "HiddenWord.h"
#include "tls/Certificates.h"
#include "tools/Process.h"

using tivra::Feed;
using tivra::FeedOptions;
using tivra::HostConfig;
using tivra::Password;

namespace {

/// tivra-hub with the user "ali" and a password that a file has.
class HubProcess {
public:
    HubProcess(const HiddenWord& password, bool isEncrypted) {
        char name[] = "/tmp/tivra-password-test.XXXXXX";
        m_folder = ::mkdtemp(name);
        password.writeTo(passwordFile());
        std::string tls;
        if (isEncrypted)
            tls = " --tls-cert " + m_hubFile + " --tls-key " + m_hubFile;
        m_program = std::make_unique<Process>(
            m_folder, "exec " TIVRA_HUB " --port 0 --user ali --password-file " + passwordFile() + tls,
            Process::Place::Files);
        EXPECT_TRUE(m_program->waitForOutput([this](const std::string& text) {
            const std::size_t at = text.find("listening on ");
            const std::size_t end = text.find('\n', at);
            if (at == std::string::npos || end == std::string::npos)
                return false;
            m_address = text.substr(at + 13, text.find_first_of(" \n", at + 13) - at - 13);
            return true;
        })) << m_program->output()
            << m_program->error();
    }
    ~HubProcess() { std::filesystem::remove_all(m_folder); }
    HubProcess(const HubProcess&) = delete;
    HubProcess& operator=(const HubProcess&) = delete;

    [[nodiscard]] const std::string& address() const { return m_address; }
    [[nodiscard]] std::string passwordFile() const { return m_folder + "/password"; }
    [[nodiscard]] const std::string& issuerFile() const { return m_issuerFile; }

private:
    const Certificate m_issuer{{.name = "issuer", .isIssuer = true}, nullptr};
    const Certificate m_hub{{}, &m_issuer};
    const CertificateFiles m_files;
    const std::string m_issuerFile = m_files.write("issuer.pem", m_issuer.pem());
    const std::string m_hubFile = m_files.write("hub.pem", m_hub.pem() + m_hub.keyPem());
    std::string m_folder;
    std::string m_address;
    std::unique_ptr<Process> m_program; ///< goes before the folder does
};

FeedOptions optionsFor(const HubProcess& hub, bool isEncrypted) {
    FeedOptions options;
    options.hosts = {hub.address()};
    options.user = "ali";
    options.parameters["read_timeout"] = "60";
    if (isEncrypted)
        options.set("tls", "true").set("tls_ca_file", hub.issuerFile());
    return options;
}

/// Short texts lie within their objects, long ones on the heap.
TEST(PasswordMemory, HoldsNoPasswordThatWasAskedForAfterTheLogin) {
    for (const bool isEncrypted : {false, true})
        for (const std::size_t length : {std::size_t{12}, std::size_t{40}}) {
            SCOPED_TRACE(std::to_string(length) + (isEncrypted ? " letters over TLS" : " letters"));
            const HiddenWord word(length);
            const HubProcess hub(word, isEncrypted);
            FeedOptions options = optionsFor(hub, isEncrypted);
            options.onPassword = [path = hub.passwordFile()](const std::string&) {
                return Password::fromFile(path);
            };
            Feed feed = Feed::open(options);
            EXPECT_NO_THROW(static_cast<void>(feed.query({100, "IBM"}).get()));
            EXPECT_EQ(word.countInMemory(), 0U);

            options = FeedOptions();
            EXPECT_EQ(word.countInMemory(), 0U) << "though the feed is all that goes on";
        }
}

/// The search finds what is there: a password that is given stays for the logins to come.
TEST(PasswordMemory, HoldsOneThatWasGiven) {
    const HiddenWord word(40);
    const HubProcess hub(word, false);
    {
        FeedOptions options = optionsFor(hub, false);
        options.password = Password::fromFile(hub.passwordFile());
        Feed feed = Feed::open(options);
        EXPECT_GE(word.countInMemory(), 2U) << "the options and the feed";
    }
    // A thread of the feed that ends after it takes its stack along.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (word.countInMemory() > 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(word.countInMemory(), 0U) << "they are gone";
}

struct Vault : tivra::PasswordHandler {
    Password onPassword(const std::string& hub) override {
        askedFor.push_back(hub);
        return Password::fromFile(path);
    }
    std::string path;
    std::vector<std::string> askedFor; ///< read once the session has stopped
};

TEST(PasswordMemory, HoldsNoneOfASessionEither) {
    const HiddenWord word(40);
    const HubProcess hub(word, false);
    Vault vault;
    vault.path = hub.passwordFile();
    tivra_testkit::RecordingApp application;
    tivra::APIFactory& factory = *tivra::APIFactory::getInstance();
    tivra::UserInfo& user = factory.createUserInfo("ali", vault, application);
    tivra::Session& session = factory.createSession(user, application);
    session.registerMessageEventHandler(&application);
    static_cast<void>(session.getConnectionConfig().getHostConfig(hub.address()));
    std::string reason;
    EXPECT_TRUE(session.start(reason)) << reason;
    EXPECT_EQ(word.countInMemory(), 0U);
    session.stop();
    factory.destroySession(session);
    factory.destroyUserInfo(user);
    EXPECT_EQ(vault.askedFor, std::vector<std::string>{hub.address()});
}

} // namespace
