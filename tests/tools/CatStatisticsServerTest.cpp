#include "CatFixture.h"

#include "support/OpenMetricsCheck.h"

#include <csignal>

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

/// One connection to a server of this machine.
class HttpClient {
public:
    explicit HttpClient(int port) : m_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~HttpClient() { close(m_fd); }
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Whether the other side still takes bytes.
    bool write(const std::string& bytes) const {
        return send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }

    /// All until the other side closes.
    [[nodiscard]] std::string read() const {
        std::string text;
        char piece[4096];
        for (ssize_t got = 0; (got = recv(m_fd, piece, sizeof piece, 0)) > 0;)
            text.append(piece, static_cast<std::size_t>(got));
        return text;
    }

private:
    int m_fd;
};

class CatStatisticsServer : public CatFixture {
protected:
    void SetUp() override {
        if (!TIVRA_CAT_HAS_SERVER)
            GTEST_SKIP() << "tivra-cat was built without libmicrohttpd";
    }

    /// Starts a subscription with a server, whose port it returns.
    int startServing() {
        start({"--stats-listen", "0", "--stats-label", "application=a \"b\"", "-q", "subscribe", "100:IBM"});
        const std::string head = "tivra-cat: statistics on http://127.0.0.1:";
        EXPECT_TRUE(cat->waitForError(contains("/metrics\n"))) << cat->error();
        EXPECT_THAT(cat->error(), StartsWith(head));
        EXPECT_TRUE(waitForSubscription());
        return std::stoi(cat->error().substr(head.size()));
    }

    struct Answer {
        std::string head;
        std::string body;
    };

    static Answer ask(int port, const std::string& request) {
        const HttpClient client(port);
        EXPECT_TRUE(client.write(request + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"));
        const std::string text = client.read();
        const std::size_t end = text.find("\r\n\r\n");
        EXPECT_NE(end, std::string::npos) << request << ": " << text;
        return {text.substr(0, end + 2), end == std::string::npos ? "" : text.substr(end + 4)};
    }

    /// Asks until the JSON form counts that many messages.
    static bool waitForDelivered(int port, std::uint64_t count) {
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (std::chrono::steady_clock::now() < deadline) {
            const Answer answer = ask(port, "GET /stats.json");
            if (answer.head.find(" 200 ") != std::string::npos &&
                nlohmann::json::parse(answer.body)["delivered_messages_total"] == count)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20)); // between two looks
        }
        return false;
    }
};

} // namespace

TEST_F(CatStatisticsServer, ServesTheLatestInTheFormThatCollectorsRead) {
    const int port = startServing();
    for (int i = 1; i <= 50; ++i)
        hub.pushRecord(quote("IBM", "184.25", i));
    // The updates and the answer to the request.
    ASSERT_TRUE(waitForDelivered(port, 51)) << cat->error();
    const Answer metrics = ask(port, "GET /metrics");
    EXPECT_THAT(metrics.head, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(
        metrics.head,
        HasSubstr("\r\nContent-Type: application/openmetrics-text; version=1.0.0; charset=utf-8\r\n"));
    EXPECT_THAT(metrics.head,
                HasSubstr("\r\nContent-Length: " + std::to_string(metrics.body.size()) + "\r\n"));
    std::set<std::string> samples;
    ASSERT_NO_FATAL_FAILURE(checkOpenMetrics(metrics.body, samples));
    EXPECT_EQ(samples.size(), 19U);
    EXPECT_THAT(metrics.body,
                HasSubstr("\ntivra_delivered_messages_total{application=\"a \\\"b\\\"\"} 51\n"));
    EXPECT_THAT(ask(port, "GET /stats.json?format=text").head,
                HasSubstr("Content-Type: application/json\r\n"));
    const Answer head = ask(port, "HEAD /metrics");
    EXPECT_THAT(head.head, HasSubstr("Content-Length: " + std::to_string(metrics.body.size()) + "\r\n"));
    EXPECT_EQ(head.body, "");
    for (const auto& [request, status] :
         {std::pair("GET /", " 404 "), std::pair("GET /metrics/", " 404 "),
          std::pair("GET /../../etc/passwd", " 404 "), std::pair("POST /metrics", " 405 "),
          std::pair("DELETE /stats.json", " 405 ")})
        EXPECT_THAT(ask(port, request).head, HasSubstr(status)) << request;
    cat->signal(SIGINT);
    EXPECT_EQ(cat->waitForEnd(), 0);
}

TEST_F(CatStatisticsServer, BadClientsHoldUpNeitherOthersNorTheEnd) {
    const int port = startServing();
    std::vector<std::unique_ptr<HttpClient>> slow;
    for (int i = 0; i < 10; ++i) {
        slow.push_back(std::make_unique<HttpClient>(port));
        EXPECT_TRUE(slow.back()->write(i == 0 ? "GET /metrics HTTP/1.1\r\nX: " : "GET /metr"));
    }
    const HttpClient garbage(port);
    EXPECT_TRUE(garbage.write(std::string("\0\xff\r\n\r\n", 6)));
    // More than a request may have.
    const HttpClient endless(port);
    endless.write("GET /" + std::string(100000, 'x'));
    EXPECT_THAT(endless.read().substr(0, 12), testing::AnyOf("HTTP/1.1 414", "HTTP/1.1 431", ""));
    ASSERT_TRUE(waitForDelivered(port, 1));
    // It never falls silent, so that only the server can end it.
    std::thread dripping([&] {
        while (slow[0]->write("x"))
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the pace of it
    });
    cat->signal(SIGTERM);
    EXPECT_EQ(cat->waitForEnd(), 0);
    dripping.join();
}

TEST_F(CatStatisticsServer, PortThatCannotBeHadEndsTheRunWithEight) {
    EXPECT_EQ(run({"--stats-listen", hub.hostString(), "subscribe", "100:IBM"}), 8);
    EXPECT_THAT(cat->error(),
                EndsWith("cannot serve statistics at " + hub.hostString() + ": Address already in use\n"));
}
