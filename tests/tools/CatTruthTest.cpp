#include "ToolFixture.h"

#include <capture/CaptureNote.h>
#include <capture/CaptureReader.h>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

using namespace tivra_sim;
using testing::_;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;

namespace {

/// What went wrong is in the summary, in the capture and in the exit code.
class CatTruth : public ToolFixture {
protected:
    /// A stream of IBM's updates, recorded and printed, once its first update has come.
    void startStream(const std::string& options) {
        start("tivra-cat $AT -o raw --sequence-field 30 --record cap " + options + " subscribe 100:IBM");
        ASSERT_TRUE(waitForSubscription()) << tool->error();
        push(1);
        ASSERT_TRUE(tool->waitForOutput(contains("30=1"))) << tool->error();
    }

    void push(int sequence) { hub.pushRecord(Record(100, "IBM").add(token::SEQUENCE, sequence)); }

    /// The hub loses everybody, and the stream goes on after it.
    void interrupt() {
        hub.dropConnections();
        ASSERT_TRUE(tool->waitForError(contains("session: all hubs are ready again"))) << tool->error();
        ASSERT_TRUE(waitForSubscription()) << "what stood did not come back";
        push(2);
        ASSERT_TRUE(tool->waitForOutput(contains("30=2"))) << tool->error();
    }

    [[nodiscard]] std::vector<std::string> notes() const {
        tivra_capture::CaptureReader reader(directory + "/cap");
        std::vector<std::string> kinds;
        tivra_capture::Message message;
        while (reader.next(message))
            if (tivra_capture::isNote(message.body))
                kinds.push_back(tivra_capture::noteOf(message.body).kind);
        return kinds;
    }
};

/// Numbers of a source, one after the other.
struct Sequence {
    const char* name;
    std::vector<int> numbers;
    int code;
    const char* summary;
    std::vector<std::string> notes;
};

class CatSequence : public CatTruth, public testing::WithParamInterface<Sequence> {};

TEST_P(CatSequence, IsJudgedByItsNumbers) {
    start("tivra-cat $AT -q --sequence-field 30 --record cap -n " +
          std::to_string(GetParam().numbers.size()) + " subscribe 100:IBM");
    ASSERT_TRUE(waitForSubscription());
    for (const int number : GetParam().numbers)
        push(number);
    EXPECT_EQ(tool->waitForEnd(), GetParam().code);
    EXPECT_THAT(tool->error(), HasSubstr(GetParam().summary));
    EXPECT_EQ(tool->output(), "");
    EXPECT_EQ(notes(), GetParam().notes);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CatSequence,
    testing::Values(Sequence{"Whole", {7, 8, 9}, 0, "lost 0 (output 0, sequence 0", {}},
                    Sequence{"Hole", {7, 8, 12}, 7, "lost 3 (output 0, sequence 3", {"hole"}},
                    Sequence{"Restart", {98, 99, 1, 2}, 0, "0 holes in sequences, 1 restarts", {"restart"}},
                    Sequence{"Both", {9, 1, 3}, 7, "1 holes in sequences, 1 restarts", {"restart", "hole"}}),
    [](const auto& test) { return test.param.name; });

TEST_F(CatTruth, InterruptionIsCountedAndWhatStandsComesBackUnasked) {
    startStream("");
    interrupt();
    tool->signal(SIGINT);
    EXPECT_EQ(tool->waitForEnd(), 7) << tool->error();
    EXPECT_THAT(tool->error(), AllOf(HasSubstr("lost 0 and what came while a hub was away"),
                                     HasSubstr("1 interruptions (0 by a full receive queue, ")));
    EXPECT_THAT(notes(), AllOf(Contains("interrupted"), Contains("restored")));
}

TEST_F(CatTruth, StrictEndsAtTheFirstInterruption) {
    startStream("--strict");
    hub.dropConnections();
    EXPECT_EQ(tool->waitForEnd(), 7) << tool->error();
    EXPECT_THAT(tool->error(), HasSubstr("ended by --strict: "));
}

TEST_F(CatTruth, StrictEndsAtTheFirstHole) {
    startStream("--strict");
    push(4);
    EXPECT_EQ(tool->waitForEnd(), 7) << tool->error();
    EXPECT_THAT(tool->error(),
                HasSubstr("ended by --strict: source 100: 2 messages are missing between 1 and 4"));
}

TEST_F(CatTruth, RequestThatIsRefusedAfterAnInterruptionIsReported) {
    startStream("");
    hub.script([](const Request& request) -> std::optional<Hub::Frames> {
        if (request.value(token::SYMBOL) != "IBM")
            return std::nullopt;
        return Hub::Frames{encodeFrame("5026=" + request.value(token::TAG) + "|5001=-12")};
    });
    hub.dropConnections();
    EXPECT_EQ(tool->waitForEnd(), 5) << tool->error();
    EXPECT_THAT(tool->error(),
                HasSubstr("subscribe 100:IBM: was granted before the interruption, and is now refused: -12"));
}

TEST_F(CatTruth, DroppedBytesOfAHubCount) {
    startStream("--strict");
    hub.pushHubStatus(4711, 0);
    EXPECT_EQ(tool->waitForEnd(), 7) << tool->error();
    EXPECT_THAT(tool->error(), HasSubstr("hubs 4711 bytes"));
}

TEST_F(CatTruth, SecondSignalAtOnceIsTheFirstAgain) {
    startStream("");
    for (const int number : {SIGTERM, SIGINT, SIGTERM})
        tool->signal(number);
    EXPECT_EQ(tool->waitForEnd(), 0);
    EXPECT_THAT(tool->error(), HasSubstr("received 1 messages"));
}

TEST_F(CatTruth, StatusSaysWhatItIsAbout) {
    start("tivra-cat $AT -o json subscribe 100:NOPE");
    EXPECT_EQ(tool->waitForEnd(), 5);
    const nlohmann::json status = jsonLines(tool->output()).at(0);
    EXPECT_EQ(status["symbol"], "NOPE");
    EXPECT_EQ(status["source"], 100);
    EXPECT_EQ(status["command"], "subscribe");
    EXPECT_EQ(status["status"], -12);
    EXPECT_EQ(status["name"], "ERR.EXIST.SYMBOL");
    EXPECT_EQ(run("tivra-cat $AT -o json snapshot -s 100 --cusip 000000000"), 5);
    EXPECT_EQ(jsonLines(tool->output()).at(0)["identifier"], "CUSIP 000000000");
    expect({{"tivra-cat $AT -o raw snapshot 100:NOPE", 5, HasSubstr("5=NOPE|5026=18|5022=snapshot|5001=-12"),
             _}});
}

/// A port whose machine swallows what is sent to it: its queue of connections is full.
class BlackHole {
public:
    BlackHole() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof m_address;
        if (bind(m_listener, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0 ||
            listen(m_listener, 0) != 0 ||
            getsockname(m_listener, reinterpret_cast<sockaddr*>(&m_address), &length) != 0)
            throw std::runtime_error("cannot listen");
        // One more than fits never gets an answer.
        for (int& fd : m_callers) {
            fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
            static_cast<void>(connect(fd, reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address));
        }
    }
    ~BlackHole() {
        for (const int fd : m_callers)
            close(fd);
        close(m_listener);
    }
    BlackHole(const BlackHole&) = delete;
    BlackHole& operator=(const BlackHole&) = delete;

    [[nodiscard]] std::string address() const {
        return "127.0.0.1:" + std::to_string(ntohs(m_address.sin_port));
    }

private:
    int m_listener;
    sockaddr_in m_address{};
    int m_callers[4] = {};
};

TEST_F(CatTruth, HubsThatRefuseSwallowOrHaveNoNameAreToldApartAndTheLogIsOneThatExists) {
    const BlackHole hole;
    const std::string options = " -u demo --retries 0 --connect-timeout 1 snapshot 100:IBM";
    const Text log = HasSubstr(directory + "/.local/state/tivra/tivra-cat.log.");
    expect({{"tivra-cat -H $CLOSED" + options, 3, "",
             AllOf(HasSubstr(closedHost + " refuses the connection"), HasSubstr("(ECONNREFUSED, errno 111)"),
                   log)},
            {"tivra-cat -H " + hole.address() + options, 3, "",
             AllOf(HasSubstr(hole.address() + " doesn't answer at all"), HasSubstr("(ETIMEDOUT, errno 110)"),
                   log)},
            {"tivra-cat -H no.such.invalid:9" + options, 2, "",
             HasSubstr("cannot find an IPv4 address for \"no.such.invalid\"")}});
    ASSERT_EQ(run("tivra-cat -H $CLOSED" + options), 3);
    const std::string said = tool->error();
    const std::size_t at = said.find("Log: ");
    ASSERT_NE(at, std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(said.substr(at + 5, said.find('\n') - at - 5))) << said;
}

} // namespace
