#include "Client.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::string freshLogFile() {
    static std::atomic<int> number{0};
    return "/tmp/tivra-e2e." + std::to_string(::getpid()) + "." + std::to_string(number++);
}

/// The files that begin with that name: the library puts the date behind it.
std::vector<std::filesystem::path> logFiles(const std::string& base) {
    std::vector<std::filesystem::path> files;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/tmp", ignored)) {
        if (entry.path().string().rfind(base + ".", 0) == 0)
            files.push_back(entry.path());
    }
    return files;
}

} // namespace

tivra_sim::HubConfig hubOf(const std::set<int>& sources) {
    tivra_sim::HubConfig config = tivra_sim::HubConfig::realistic();
    config.boxPermissions = sources;
    config.users[0].permissions = sources;
    return config;
}

Client::Client(Options options) : m_logFile(freshLogFile()) {
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("e2e", "1", std::getenv("TIVRA_E2E_DEBUG") != nullptr, m_logFile, options.language);
    m_user = &factory->createUserInfo(options.user, options.password, *this);
    m_session = &factory->createSession(*m_user, *this);
    connections().set(tivra::HostConfig::COMPRESSION_BOOL, false);
    for (const std::string& host : options.hosts)
        connections().getHostConfig(host);
    if (options.registerHandler)
        m_session->registerMessageEventHandler(this);
}

Client::~Client() {
    destroySession();
    destroyUser();
    if (testing::Test::HasFailure())
        std::cerr << "The library's log:\n" << log() << '\n';
    tivra::APIFactory::getInstance()->uninitialize();
    for (const auto& file : logFiles(m_logFile))
        std::filesystem::remove(file);
}

void Client::destroySession() {
    if (m_session != nullptr)
        tivra::APIFactory::getInstance()->destroySession(*m_session);
    m_session = nullptr;
}

void Client::destroyUser() {
    if (m_user != nullptr)
        tivra::APIFactory::getInstance()->destroyUserInfo(*m_user);
    m_user = nullptr;
}

std::string Client::start() {
    std::string reason;
    isStarted = m_session->start(reason);
    return reason;
}

bool Client::startAndWait() {
    EXPECT_EQ(start(), "Session started");
    return isStarted && waitForSessionEvent("ESTABLISHED");
}

std::chrono::milliseconds Client::timedStop() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(m_session->stop());
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

std::int64_t Client::send(tivra::Commands command, int source, const std::string& symbol,
                          const std::vector<Field>& more) {
    tivra::Request& request = m_session->createRequest();
    request.setCommand(command);
    if (source != 0)
        request.add(tivra::ENUM_SRC_ID, source);
    if (!symbol.empty())
        request.add(tivra::SYMBOL_TICKER, symbol);
    for (const Field& field : more)
        request.add(field.first, field.second);
    const std::int64_t tag = m_session->send(request);
    m_session->freeRequest(request);
    return tag;
}

int Client::ask(tivra::Commands command, int source, const std::string& symbol,
                const std::vector<Field>& more) {
    const std::int64_t tag = send(command, source, symbol, more);
    if (tag < 18 || !waitForEnd(tag))
        return NO_ANSWER;
    return messagesOf(tag).back().status;
}

bool Client::waitForLog(const std::string& text) const {
    const auto end = std::chrono::steady_clock::now() + LONG;
    while (log().find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // a file tells nobody that it grows
    }
    return true;
}

std::string Client::log() const {
    std::ostringstream text;
    for (const auto& path : logFiles(m_logFile))
        text << std::ifstream(path).rdbuf();
    return text.str();
}
