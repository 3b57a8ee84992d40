#include "HubDictionary.h"

#include "ExitCode.h"
#include "TokenCollector.h"

#include "common/ClientSession.h"
#include "common/LogFile.h"
#include "common/StartFailure.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>

namespace tivra_wire {

namespace {

using Clock = std::chrono::steady_clock;

constexpr long kListMegabytes = 128;

/// One conversation with a hub, from the login to the last of its tokens.
class Conversation {
public:
    Conversation(const HubOptions& options, const std::string& password)
        : m_options(options)
        , m_logFile(tivra_tools::logFileName(options.logFile, "tivra-wire"))
        , m_client({"tivra-wire", TIVRA_WIRE_VERSION, m_logFile, false}, options.user, password, m_collector,
                   m_collector)
        , m_session(m_client.session()) {
        m_session.registerMessageEventHandler(&m_collector);
        tivra::ConnectionConfig& connections = m_session.getConnectionConfig();
        // The list comes faster than it is taken, and a queue that it fills costs the answer.
        connections.set(tivra::HostConfig::QUEUE_SIZE_LONG, kListMegabytes);
        if (!options.hasCompression)
            connections.set(tivra::HostConfig::COMPRESSION_BOOL, false);
        tivra_tools::applyTls(options.tls, connections);
        tivra_tools::applyAddresses(options.addresses, connections);
        connections.getHostConfig(options.host);
    }

    std::vector<HubToken> fetch() {
        start();
        ask();
        m_session.stop();
        if (const std::string error = m_collector.error(); !error.empty())
            fail(error);
        return m_collector.takeTokens();
    }

private:
    [[noreturn]] void fail(const std::string& what) const {
        throw Failure(ExitCode::HubFailed,
                      fmt::format("no dictionary from {}: {}. Log: {}", m_options.host, what, m_logFile));
    }

    void start() {
        std::string reason;
        bool isStarted = false;
        std::thread starter([&] {
            isStarted = m_session.start(reason);
            m_collector.noteStart();
        });
        bool isLate = false;
        // Once more at each look: a stop that comes before the start has begun finds nothing to end.
        while (
            !m_collector.waitForStart(isLate ? Clock::now() + std::chrono::milliseconds(100) : deadline())) {
            isLate = true;
            m_session.stop();
        }
        starter.join();
        if (isLate && !m_collector.refusal())
            fail(fmt::format("in {} seconds no session stood; --timeout gives it longer",
                             m_options.timeoutSeconds));
        if (isLate || !isStarted)
            throw Failure(ExitCode::HubFailed, startError(reason));
    }

    void ask() {
        TokenCollector::Outcome outcome = TokenCollector::Outcome::Lost;
        while (outcome == TokenCollector::Outcome::Lost) {
            send();
            outcome = m_collector.waitForAnswer(deadline());
        }
        if (outcome == TokenCollector::Outcome::Late)
            fail(fmt::format("{} tokens have come, but in {} seconds not the last; --timeout gives it longer",
                             m_collector.tokenCount(), m_options.timeoutSeconds));
    }

    void send() {
        tivra::Request& request = m_session.createRequest();
        request.setCommand(tivra::LISTAVAILABLETOKENS);
        const bool isSent = m_session.send(request) != 0;
        m_session.freeRequest(request);
        if (!isSent)
            fail("the library did not take the request");
    }

    [[nodiscard]] std::string startError(const std::string& reason) const {
        tivra_tools::StartAttempt attempt;
        attempt.hosts = m_options.host;
        attempt.addresses = {m_options.host};
        attempt.user = m_options.user;
        attempt.asksForCompression = m_options.hasCompression;
        attempt.seconds = std::chrono::duration<double>(Clock::now() - m_begin).count();
        attempt.logFile = m_logFile;
        attempt.reason = reason;
        attempt.refusal = m_collector.refusal();
        return startFailureText(attempt);
    }

    [[nodiscard]] Clock::time_point deadline() const {
        return m_begin + std::chrono::duration_cast<Clock::duration>(
                             std::chrono::duration<double>(m_options.timeoutSeconds));
    }

    const HubOptions& m_options;
    const std::string m_logFile;
    const Clock::time_point m_begin = Clock::now();
    TokenCollector m_collector; ///< outlives the session that calls it
    const tivra_tools::ClientSession m_client;
    tivra::Session& m_session;
};

} // namespace

std::vector<HubToken> fetchDictionary(const HubOptions& options, const std::string& password) {
    return Conversation(options, password).fetch();
}

} // namespace tivra_wire
