#ifndef TIVRA_TESTS_TOOLS_CATFIXTURE_H
#define TIVRA_TESTS_TOOLS_CATFIXTURE_H

#include "Process.h"

#include <tivra_sim/Hub.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <netinet/in.h>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

/// A port that refuses every connection: nobody listens, and nobody else can take it while this lives.
class ClosedPort {
public:
    ClosedPort() : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_address;
        EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&m_address), length), 0);
        EXPECT_EQ(getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_address), &length), 0);
    }
    ~ClosedPort() { close(m_fd); }
    ClosedPort(const ClosedPort&) = delete;
    ClosedPort& operator=(const ClosedPort&) = delete;

    [[nodiscard]] std::string hostString() const {
        return "127.0.0.1:" + std::to_string(ntohs(m_address.sin_port));
    }

private:
    int m_fd;
    sockaddr_in m_address{};
};

/// A hub in this process, a folder for files, and tivra-cat as a process against them.
class CatFixture : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;
    /// For what must come, however busy the machine is.
    static constexpr std::chrono::milliseconds PATIENCE{60000};

    CatFixture() : hub(tivra_sim::HubConfig::realistic()) {
        char name[] = "/tmp/tivra-cat-test.XXXXXX";
        directory = mkdtemp(name);
        setup.program = TIVRA_CAT_PROGRAM;
        setup.environment = {{"TIVRA_PASSWORD", "demo"}, {"HOME", directory}, {"TERM", "xterm"}};
        for (const char* inherited : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS"}) {
            if (const char* value = getenv(inherited))
                setup.environment[inherited] = value;
        }
        hub.start();
    }

    ~CatFixture() override { std::filesystem::remove_all(directory); }

    /// Starts tivra-cat with the arguments behind those that every run against a hub needs.
    Process& start(const Arguments& arguments) { return startAt(hub, arguments); }

    Process& startAt(const tivra_sim::Hub& server, const Arguments& arguments) {
        Arguments all{"--host", server.hostString(), "--user", "demo"};
        all.insert(all.end(), common.begin(), common.end());
        all.insert(all.end(), arguments.begin(), arguments.end());
        return startBare(all);
    }

    Process& startBare(const Arguments& arguments) {
        setup.arguments = arguments;
        cat = std::make_unique<Process>(setup);
        return *cat;
    }

    [[nodiscard]] bool waitForSubscription() const { return hub.waitForSubscriptions(1, PATIENCE); }

    /// Starts it and waits for its end.
    int run(const Arguments& arguments) { return start(arguments).waitForEnd(); }

    std::string writeFile(const std::string& name, const std::string& text) const {
        const std::string path = directory + "/" + name;
        std::ofstream(path) << text;
        std::filesystem::permissions(path, std::filesystem::perms::owner_read);
        return path;
    }

    static std::vector<nlohmann::json> jsonLines(const std::string& text) {
        std::vector<nlohmann::json> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(nlohmann::json::parse(line));
        return lines;
    }

    static std::function<bool(const std::string&)> contains(const std::string& word) {
        return [word](const std::string& text) { return text.find(word) != std::string::npos; };
    }

    static tivra_sim::Record quote(const char* symbol, const char* bid, int size) {
        return tivra_sim::Record(100, symbol)
            .add(tivra_sim::token::QUOTE_DATETIME, "1381152600.5")
            .add(tivra_sim::token::BID, bid)
            .add(tivra_sim::token::BID_SIZE, size);
    }

    tivra_sim::Hub hub;
    std::string directory;
    /// A hub that a busy machine holds up for seconds must not count as lost.
    Arguments common{"--no-compression", "--read-timeout", "60"};
    Process::Setup setup;
    std::unique_ptr<Process> cat; ///< goes before the folder does
};

#endif
