#pragma once

#include "Process.h"
#include "support/Ports.h"

#include <tivra_sim/Hub.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

/// A hub in this process, a folder of its own, and the programs as somebody at a shell runs them there. In a
/// line $AT stands for the hub and its user, $HUB for its address, and $CLOSED for an address where nobody
/// listens.
class ToolFixture : public testing::Test {
protected:
    using Text = testing::Matcher<const std::string&>;
    /// For what must come, however busy the machine is.
    static constexpr std::chrono::milliseconds kPatience{60000};

    /// A line and what comes of it.
    struct Row {
        std::string line;
        int code;
        Text output;
        Text error;
    };

    ToolFixture() : hub(tivra_sim::HubConfig::realistic()) {
        char name[] = "/tmp/tivra-tool-test.XXXXXX";
        directory = mkdtemp(name);
        for (const char* disturbing : {"NO_COLOR", "TIVRA_USER", "XDG_STATE_HOME"})
            unsetenv(disturbing);
        for (const auto& [variable, value] : {std::pair("PATH", TIVRA_PROGRAMS ":/usr/bin:/bin"),
                                              {"HOME", directory.c_str()},
                                              {"TERM", "xterm"},
                                              {"TIVRA_PASSWORD", "demo"},
                                              {"CLOSED", closedHost.c_str()}})
            setenv(variable, value, 1);
        hub.start();
        dial(hub.hostString());
    }

    ~ToolFixture() override { std::filesystem::remove_all(directory); }

    /// What $HUB and $AT stand for in lines from now on.
    void dial(const std::string& address) {
        // A hub that a busy machine holds up for seconds must not count as lost.
        m_variables =
            "HUB=" + address + "; AT='-H " + address + " -u demo --no-compression --read-timeout 60'; ";
    }

    /// Starts what a line says, after assignments to the environment if it begins with any.
    Process& start(const std::string& line, Process::Place place = Process::Place::Files) {
        tool = std::make_unique<Process>(directory, m_variables + "cd && exec env " + line, place);
        return *tool;
    }

    /// Starts it and waits for its end.
    int run(const std::string& line, Process::Place place = Process::Place::Files) {
        return start(line, place).waitForEnd();
    }

    void expect(const std::vector<Row>& rows, Process::Place place = Process::Place::Files) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.line);
            EXPECT_EQ(run(row.line, place), row.code);
            EXPECT_THAT(tool->output(), row.output);
            EXPECT_THAT(tool->error(), row.error);
        }
    }

    [[nodiscard]] bool waitForSubscription() const { return hub.waitForSubscriptions(1, kPatience); }

    void writeFile(const std::string& name, const std::string& text) const {
        const std::string path = directory + "/" + name;
        std::filesystem::remove(path);
        std::ofstream(path, std::ios::binary) << text;
        std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    }

    /// Makes a pipe of that name, which takes what is written while nobody reads; the end to read at.
    [[nodiscard]] int makePipe(const std::string& name) const {
        const std::string path = directory + "/" + name;
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }

    /// All up to the end of a pipe, which is closed then.
    static std::string readPipe(int end) {
        EXPECT_EQ(fcntl(end, F_SETFL, 0), 0);
        std::string text;
        char piece[65536];
        for (ssize_t got = 0; (got = read(end, piece, sizeof piece)) > 0;)
            text.append(piece, static_cast<std::size_t>(got));
        close(end);
        return text;
    }

    static std::vector<nlohmann::json> jsonLines(const std::string& text) {
        std::vector<nlohmann::json> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);)
            lines.push_back(nlohmann::json::parse(line));
        return lines;
    }

    static Process::Predicate contains(const std::string& word) {
        return [word](const std::string& text) { return text.find(word) != std::string::npos; };
    }

    /// Where tivra-hub says that it listens; of a group, the hub at `place`.
    static std::string listeningAt(Process& program, std::size_t place = 0) {
        std::string address;
        program.waitForOutput([&](const std::string& text) {
            std::istringstream stream(text);
            std::string listening;
            std::string on;
            for (std::size_t i = 0; i <= place; ++i)
                stream >> listening >> on >> address;
            return !stream.eof() && on == "on";
        });
        return address;
    }

    static tivra_sim::Record quote(const char* symbol, const char* bid, int size) {
        return tivra_sim::Record(100, symbol)
            .add(tivra_sim::token::QUOTE_DATETIME, "1381152600.5")
            .add(tivra_sim::token::BID, bid)
            .add(tivra_sim::token::BID_SIZE, size);
    }

    tivra_sim::Hub hub;
    const ClosedPort closed;
    const std::string closedHost = "127.0.0.1:" + std::to_string(closed.port());
    std::string directory;
    std::unique_ptr<Process> tool; ///< goes before the folder does

private:
    std::string m_variables; ///< of the shell: the environment is read by the hub's thread
};
