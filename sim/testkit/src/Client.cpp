#include "tivra_testkit/Client.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include <unistd.h>

namespace tivra_testkit {

namespace {

namespace fs = std::filesystem;

/// The library keeps the tags below it for itself.
constexpr std::int64_t kFirstTag = 18;

std::string freshLogFile() {
    static std::atomic<int> number{0};
    return fs::temp_directory_path() /
           (std::string("tivra-testkit.") + std::to_string(::getpid()) + "." + std::to_string(number++));
}

/// The files that begin with that name: the library appends the date.
std::vector<fs::path> logFiles(const std::string& base) {
    std::vector<fs::path> files;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(fs::path(base).parent_path(), ignored)) {
        if (entry.path().string().rfind(base + ".", 0) == 0)
            files.push_back(entry.path());
    }
    return files;
}

std::function<bool()>& logPredicate() {
    static std::function<bool()> predicate;
    return predicate;
}

bool printsLog() {
    return logPredicate() && logPredicate()();
}

} // namespace

void Client::printLogIf(std::function<bool()> hasFailed) {
    logPredicate() = std::move(hasFailed);
}

Client::Client(Options options) : m_logFile(freshLogFile()) {
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize("testkit", "1", std::getenv("TIVRA_TESTKIT_DEBUG") != nullptr, m_logFile,
                        options.language);
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
    if (printsLog())
        std::cerr << "The library's log:\n" << log() << '\n';
    tivra::APIFactory::getInstance()->uninitialize();
    std::error_code ignored;
    for (const auto& file : logFiles(m_logFile))
        fs::remove(file, ignored);
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
    start();
    return isStarted && waitForSessionEvent("ESTABLISHED");
}

std::chrono::milliseconds Client::timedStop() {
    const auto begin = std::chrono::steady_clock::now();
    if (!m_session->stop())
        return std::chrono::milliseconds::max();
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
    if (tag < kFirstTag || !waitForEnd(tag))
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

} // namespace tivra_testkit
