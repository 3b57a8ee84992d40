#include "ToolFixture.h"

#include <tivra_testkit/RawClient.h>

#include <chrono>
#include <csignal>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using testing::_;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

class CatStatistics : public ToolFixture {
protected:
    void interrupt() {
        tool->signal(SIGINT);
        EXPECT_EQ(tool->waitForEnd(), 0);
        EXPECT_TRUE(hub.waitForConnections(0, kPatience));
    }

    /// 0 while there is no such file.
    static ino_t inodeOf(const std::string& path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }
};

TEST_F(CatStatistics, LinesStandOnStandardErrorBesideTheProgress) {
    start("tivra-cat $AT --progress always --stats 1 -q subscribe 100:IBM");
    ASSERT_TRUE(tool->waitForError(contains("statistics: in "))) << tool->error();
    ASSERT_TRUE(tool->waitForError(contains(" messages, 0/s, 0 dropped")));
    interrupt();
    EXPECT_EQ(tool->output(), "");
}

TEST_F(CatStatistics, FileIsReplacedAsAWholeInEveryForm) {
    const struct {
        std::string name;
        const char* begin;
        const char* end;
    } forms[] = {{"text", "statistics: in ", " bytes\n"},
                 {"json", "{\"time\":\"", "}\n"},
                 {"openmetrics", "# TYPE tivra_in_messages counter\n", "\n# EOF\n"}};
    for (const auto& form : forms) {
        const std::string path = directory + "/" + form.name;
        start("tivra-cat $AT --stats 1 --stats-format " + form.name + " --stats-file " + path +
              (form.name == "text" ? "" : " --stats-label a=b") + " -q subscribe 100:IBM");
        ASSERT_TRUE(comesTrue([&] { return inodeOf(path) != 0; })) << tool->error();
        // Held open, so that the next file can't get the inode of this one.
        std::ifstream first(path);
        const ino_t before = inodeOf(path);
        ASSERT_TRUE(comesTrue([&] { return inodeOf(path) != before; })) << tool->error();
        EXPECT_THAT(textOf(path), AllOf(StartsWith(form.begin), EndsWith(form.end)));
        EXPECT_EQ(textOf(path).find("b\"") == std::string::npos, form.name == "text") << "the label";
        const std::string old((std::istreambuf_iterator<char>(first)), {});
        EXPECT_THAT(old, AllOf(StartsWith(form.begin), EndsWith(form.end))) << "written over";
        interrupt();
        EXPECT_THAT(tool->error(), Not(HasSubstr("statistics: "))) << "in both places";
        EXPECT_EQ(inodeOf(path + ".tmp"), 0U);
    }
}

TEST_F(CatStatistics, FileThatCannotBeWrittenIsToldOnceAndEndsWithEight) {
    EXPECT_EQ(run("tivra-cat $AT --stats 1 --stats-file none/statistics -d 3.5 -q subscribe 100:IBM"), 8);
    const std::string told = "cannot write the statistics to none/statistics: No such file or directory\n";
    const std::string error = tool->error();
    EXPECT_THAT(error, HasSubstr(told));
    EXPECT_EQ(error.find(told), error.rfind(told)) << error;
}

class CatStatisticsServer : public CatStatistics {
protected:
    void SetUp() override {
        if (!TIVRA_CAT_HAS_SERVER)
            GTEST_SKIP() << "tivra-cat was built without libmicrohttpd";
    }

    /// Starts a subscription with a server.
    void startServing(const std::string& options = "") {
        start("tivra-cat $AT --stats-listen 0 --stats-label 'application=a \"b\"' -q " + options +
              " subscribe 100:IBM");
        const std::string head = "tivra-cat: statistics on http://127.0.0.1:";
        EXPECT_TRUE(tool->waitForError(contains("/metrics\n"))) << tool->error();
        EXPECT_THAT(tool->error(), StartsWith(head));
        EXPECT_TRUE(waitForSubscription());
        port = static_cast<std::uint16_t>(std::stoi(tool->error().substr(head.size())));
    }

    /// The answer to a request, head and body.
    [[nodiscard]] std::string ask(const std::string& request) const {
        tivra_testkit::RawClient client(port);
        client.sendBytes(request + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        return client.readToEnd();
    }

    std::uint16_t port = 0;
};

TEST_F(CatStatisticsServer, ServesTheLatestInTheFormThatCollectorsRead) {
    startServing();
    for (int i = 1; i <= 50; ++i)
        hub.pushRecord(quote("IBM", "184.25", i));
    // The updates and the answer to the request.
    ASSERT_TRUE(comesTrue([&] {
        return contains("\"delivered_messages_total\":51,")(ask("GET /stats.json"));
    })) << tool->error();
    EXPECT_THAT(ask("GET /stats.json?format=text"), HasSubstr("Content-Type: application/json\r\n"));
    const std::string metrics = ask("GET /metrics");
    const std::size_t end = metrics.find("\r\n\r\n") + 4;
    const std::string length = "\r\nContent-Length: " + std::to_string(metrics.size() - end) + "\r\n";
    EXPECT_THAT(
        metrics,
        AllOf(StartsWith("HTTP/1.1 200 OK\r\n"), HasSubstr(length),
              HasSubstr("\r\nContent-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"),
              HasSubstr("\ntivra_delivered_messages_total{application=\"a \\\"b\\\"\"} 51\n"),
              EndsWith("\n# EOF\n")));
    EXPECT_THAT(ask("HEAD /metrics"), AllOf(HasSubstr(length), EndsWith("\r\n\r\n")));
    for (const auto& [request, status] : {std::pair("GET /", " 404 "),
                                          {"GET /metrics/", " 404 "},
                                          {"GET /../../etc/passwd", " 404 "},
                                          {"POST /metrics", " 405 "},
                                          {"DELETE /stats.json", " 405 "}})
        EXPECT_THAT(ask(request), StartsWith(std::string("HTTP/1.1") + status)) << request;
    interrupt();
}

TEST_F(CatStatisticsServer, BadClientsHoldUpNeitherOthersNorTheEnd) {
    startServing();
    std::vector<std::unique_ptr<tivra_testkit::RawClient>> slow;
    for (int i = 0; i < 10; ++i) {
        slow.push_back(std::make_unique<tivra_testkit::RawClient>(port));
        slow.back()->sendBytes(i == 0 ? "GET /metrics HTTP/1.1\r\nX: " : "GET /metr");
    }
    tivra_testkit::RawClient garbage(port);
    garbage.sendBytes(std::string("\0\xff\r\n\r\n", 6));
    tivra_testkit::RawClient endless(port);
    try {
        endless.sendBytes("GET /" + std::string(100000, 'x')); // more than a request may have
    } catch (const std::runtime_error&) {                      // and than was read
    }
    EXPECT_THAT(endless.readToEnd().substr(0, 12), testing::AnyOf("HTTP/1.1 414", "HTTP/1.1 431", ""));
    ASSERT_TRUE(
        comesTrue([&] { return contains("\"delivered_messages_total\":1,")(ask("GET /stats.json")); }));
    // It never falls silent, so that only the server can end it.
    std::thread dripping([&] {
        try {
            for (;; std::this_thread::sleep_for(std::chrono::milliseconds(50))) // the pace of it
                slow[0]->sendBytes("x");
        } catch (const std::runtime_error&) { // the server has gone
        }
    });
    tool->signal(SIGTERM);
    EXPECT_EQ(tool->waitForEnd(), 0);
    dripping.join();
}

TEST_F(CatStatisticsServer, AThousandClientsThatSayNothingCostTheStreamNothing) {
    startServing("--count 1");
    std::vector<int> clients;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int i = 0; i < 1000; ++i) {
        clients.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        ASSERT_GE(clients.back(), 0) << "after " << i;
        // As far as there is room for it, the connection stands.
        connect(clients.back(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    const auto begin = std::chrono::steady_clock::now();
    hub.pushRecord(quote("IBM", "184.25", 1));
    EXPECT_EQ(tool->waitForEnd(), 0) << tool->error();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8)) << "it waits for a client";
    EXPECT_THAT(tool->error(), HasSubstr("received 1 messages"));
    for (const int client : clients)
        close(client);
}

TEST_F(CatStatisticsServer, PortThatCannotBeHadEndsTheRunWithEight) {
    expect({{"tivra-cat $AT --stats-listen $HUB subscribe 100:IBM", 8, "",
             EndsWith("cannot serve statistics at " + hub.hostString() + ": Address already in use\n")}});
}

} // namespace
