#ifndef TIVRA_TESTS_TOOLS_CATFIXTURE_H
#define TIVRA_TESTS_TOOLS_CATFIXTURE_H

#include "Process.h"

#include <tivra_sim/Hub.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdlib.h>
#include <string>
#include <vector>

/// A hub in this process, a folder for files, and tivra-cat as a process against them.
class CatFixture : public testing::Test {
protected:
    using Arguments = std::vector<std::string>;

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

    /// Starts tivra-cat with the arguments behind those that every run against the hub needs.
    Process& start(const Arguments& arguments) {
        Arguments all{"--host", hub.hostString(), "--user", "demo", "--no-compression"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return startBare(all);
    }

    Process& startBare(const Arguments& arguments) {
        setup.arguments = arguments;
        cat = std::make_unique<Process>(setup);
        return *cat;
    }

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
    Process::Setup setup;
    std::unique_ptr<Process> cat; ///< goes before the folder does
};

#endif
