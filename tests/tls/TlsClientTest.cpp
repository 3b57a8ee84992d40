// The client's end of TLS against a peer in memory: whom it trusts, and what it makes of damage.
#include <sys/ioctl.h>

#include <cerrno>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tp/Clock.h>

#include "tls/CertificateFaults.h"
#include "tls/TlsClient.h"
#include "tls/TlsPeer.h"

namespace {

using namespace tivra_internal;
using Step = TlsStream::Step;
using testing::HasSubstr;

/// What a hub shows and what a client demands; as it stands, all is well.
struct Scene : CertificateScene {
    /// The fault of a connection to such a hub, empty when it comes about.
    std::string fault() {
        issue();
        TlsPeer peer(*hub, chain);
        peer.connect();
        const auto client = TlsClient::make(settings);
        std::string text;
        const auto stream = client->open(peer.fd(), "127.0.0.1", text);
        if (stream == nullptr)
            return text;
        const Step step = greet(*stream, peer);
        EXPECT_EQ(step == Step::Done, stream->fault().empty());
        return step == Step::AwaitsBytes ? "it hangs" : stream->fault();
    }
};

class TlsTrust : public testing::TestWithParam<CertificateFault> {};

TEST_P(TlsTrust, EachFaultHasItsText) {
    Scene scene;
    GetParam().prepare(scene);
    const std::string fault = scene.fault();
    if (*GetParam().text == '\0')
        EXPECT_EQ(fault, "");
    else
        EXPECT_THAT(fault, HasSubstr(GetParam().text));
}

INSTANTIATE_TEST_SUITE_P(All, TlsTrust, testing::ValuesIn(certificateFaults()),
                         [](const auto& fault) { return fault.param.name; });

/// A connection to a good hub, which may misbehave from then on.
struct Connection {
    Scene scene;
    std::unique_ptr<TlsPeer> peer;
    std::unique_ptr<TlsClient> client;
    std::unique_ptr<TlsStream> stream;

    Connection() {
        scene.issue();
        peer = std::make_unique<TlsPeer>(*scene.hub, scene.chain);
    }
    Step open() {
        if (client == nullptr)
            client = TlsClient::make(scene.settings);
        stream.reset();
        peer->connect();
        std::string fault;
        stream = client->open(peer->fd(), "127.0.0.1", fault);
        EXPECT_NE(stream, nullptr) << fault;
        return greet(*stream, *peer);
    }
};

/// Every byte from the first of the hub's greeting to the last of its data is another once, and the
/// connection ends before it once: there is an error, and whatever is handed out is what the hub has sent.
TEST(TlsDamage, IsFoundAtEveryByte) {
    const std::string text = "what the hub has to say";
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        Connection connection;
        SSL_CTX_set_max_proto_version(connection.peer->context(), version);
        ASSERT_EQ(connection.open(), Step::Done);
        connection.peer->send(text);
        // Signatures differ in their lengths by a few bytes.
        const std::size_t length = connection.peer->sent() - 16;
        ASSERT_GT(length, 800U);
        for (std::size_t at = 0; at < length; ++at) {
            for (std::size_t TlsPeer::*kind : {&TlsPeer::spoilAt, &TlsPeer::cutAt}) {
                TlsPeer& peer = *connection.peer;
                connection.client.reset(); // no session to resume
                peer.*kind = at;
                const Step step = connection.open();
                int error = EAGAIN;
                std::string heard;
                if (step == Step::Done) {
                    if (SSL_is_init_finished(peer.ssl()) != 0)
                        peer.send(text);
                    heard = readAll(*connection.stream, *connection.peer, error);
                }
                peer.*kind = TlsPeer::kNever;
                // A length that is another may ask for more than comes: that is for the time-out.
                const bool waits = step == Step::AwaitsBytes || (step == Step::Done && error == EAGAIN);
                EXPECT_TRUE(waits || !connection.stream->fault().empty()) << at;
                EXPECT_TRUE(heard.empty() || heard == text) << at;
                EXPECT_FALSE(kind == &TlsPeer::cutAt && waits) << at;
            }
        }
    }
}

TEST(TlsRead, HandsOutWhatComesInPiecesOfAnySizeAndTellsOfWhatIsLeft) {
    Connection connection;
    ASSERT_EQ(connection.open(), Step::Done);
    std::string text(60'000, '\0');
    for (std::size_t i = 0; i < text.size(); ++i)
        text[i] = static_cast<char>(i * 7 + i / 251);
    connection.peer->send(text);
    std::string heard;
    std::vector<char> room(1000);
    ssize_t got = connection.stream->read(room.data(), room.size());
    for (; got > 0; got = connection.stream->read(room.data(), room.size())) {
        heard.append(room.data(), static_cast<std::size_t>(got));
        EXPECT_EQ(connection.stream->hasUnread(), heard.size() < text.size());
    }
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(heard, text);
}

TEST(TlsEnd, InOrderIsAnEndAndWithoutNoticeAFault) {
    Connection connection;
    for (const bool withNotice : {true, false}) {
        ASSERT_EQ(connection.open(), Step::Done);
        connection.peer->send("last words");
        connection.peer->close(withNotice);
        int error = EAGAIN;
        EXPECT_EQ(readAll(*connection.stream, *connection.peer, error), "last words");
        EXPECT_EQ(error == 0, withNotice);
        EXPECT_TRUE(connection.stream->hasEnded());
        EXPECT_FALSE(connection.stream->hasUnread());
        if (withNotice)
            EXPECT_EQ(connection.stream->fault(), "");
        else
            EXPECT_THAT(connection.stream->fault(), HasSubstr("without the end that TLS demands"));
    }
}

/// Keys that change again and again: no read goes on for long, and the stream ends.
TEST(TlsRead, EndsAStreamOfMessagesWithoutData) {
    Connection connection;
    ASSERT_EQ(connection.open(), Step::Done);
    const auto changeKeys = [&](int times) {
        for (int i = 0; i < times; ++i) {
            ASSERT_EQ(SSL_key_update(connection.peer->ssl(), SSL_KEY_UPDATE_NOT_REQUESTED), 1);
            ASSERT_EQ(SSL_do_handshake(connection.peer->ssl()), 1);
        }
        connection.peer->move();
    };
    int error = 0;
    for (int i = 0; i < 3; ++i) {
        changeKeys(20);
        connection.peer->send("data");
        EXPECT_EQ(readAll(*connection.stream, *connection.peer, error), "data");
        EXPECT_EQ(error, EAGAIN) << connection.stream->fault();
    }
    changeKeys(40);
    EXPECT_EQ(readAll(*connection.stream, *connection.peer, error), "");
    EXPECT_EQ(error, EPROTO);
    EXPECT_THAT(connection.stream->fault(), HasSubstr("and no data"));
}

/// More than four looks at the socket bring waits there, where a poll finds it.
TEST(TlsRead, LooksAtTheSocketFourTimes) {
    Connection connection;
    ASSERT_EQ(connection.open(), Step::Done);
    connection.peer->send(std::string(300'000, 'x'));
    std::vector<char> room(400'000);
    const ssize_t got = connection.stream->read(room.data(), room.size());
    EXPECT_GE(got, 3 * 65'536);
    EXPECT_LE(got, 4 * 65'536);
    EXPECT_FALSE(connection.stream->hasUnread());
    int left = 0;
    EXPECT_EQ(::ioctl(connection.peer->fd(), FIONREAD, &left), 0);
    EXPECT_GT(left, 30'000);
}

TEST(TlsWrite, GoesOnWithTheSameBytesOnceThereIsRoom) {
    Connection connection;
    ASSERT_EQ(connection.open(), Step::Done);
    const std::string piece(16'000, 'x');
    std::size_t written = 0;
    while (!connection.stream->isWriting()) {
        const ssize_t sent = connection.stream->write(piece.data(), piece.size());
        ASSERT_TRUE(sent > 0 || errno == EAGAIN);
        written += sent > 0 ? static_cast<std::size_t>(sent) : 0;
        ASSERT_LT(written, 100'000'000U);
    }
    connection.peer->move();
    const std::string copy(piece.data(), piece.size()); // it may have moved
    EXPECT_EQ(connection.stream->write(copy.data(), copy.size()), static_cast<ssize_t>(copy.size()));
    connection.peer->move();
    EXPECT_EQ(connection.peer->received(), std::string(written + copy.size(), 'x'));
}

TEST(TlsSession, IsResumedUntilTheFilesChangeOrAnHourHasPassed) {
    Connection connection;
    const auto isResumed = [&] {
        EXPECT_EQ(connection.open(), Step::Done);
        connection.peer->send("a ticket goes with it");
        int error = 0;
        static_cast<void>(readAll(*connection.stream, *connection.peer, error));
        const bool resumed = connection.stream->description().find("resumed") != std::string::npos;
        connection.stream->end();
        return resumed;
    };
    for (const int version : {TLS1_3_VERSION, TLS1_2_VERSION}) {
        SSL_CTX_set_max_proto_version(connection.peer->context(), version);
        connection.client.reset();
        EXPECT_FALSE(isResumed());
        EXPECT_TRUE(isResumed());
        EXPECT_TRUE(isResumed());
        connection.scene.files.write("ca.pem", connection.scene.root.pem() + '\n');
        EXPECT_FALSE(isResumed());
        EXPECT_TRUE(isResumed());
        tp::Clock::advance(3700.0);
        EXPECT_FALSE(isResumed()) << "an hour after the chain was verified";
        EXPECT_TRUE(isResumed());
    }
}

TEST(TlsSession, IsNotResumedPastARevocationList) {
    Connection connection;
    Scene& scene = connection.scene;
    scene.settings.crlFile =
        scene.files.write("crl.pem", scene.root.revocations(nullptr) + scene.between.revocations(nullptr));
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(connection.open(), Step::Done);
        connection.peer->send("a ticket goes with it");
        int error = 0;
        static_cast<void>(readAll(*connection.stream, *connection.peer, error));
        EXPECT_EQ(connection.stream->description().find("resumed"), std::string::npos);
        connection.stream->end();
    }
}

TEST(TlsRenegotiation, IsRefusedAndCostsNothing) {
    Connection connection;
    SSL_CTX_set_max_proto_version(connection.peer->context(), TLS1_2_VERSION);
    ASSERT_EQ(connection.open(), Step::Done);
    connection.peer->send("before");
    ASSERT_EQ(SSL_renegotiate(connection.peer->ssl()), 1);
    SSL_do_handshake(connection.peer->ssl());
    connection.peer->move();
    int error = 0;
    EXPECT_EQ(readAll(*connection.stream, *connection.peer, error), "before");
    EXPECT_FALSE(connection.stream->hasEnded());
    EXPECT_EQ(connection.stream->write("after", 5), 5);
}

TEST(TlsVersion, OfThePeerMayBeTooOld) {
    Connection connection;
    SSL_CTX_set_max_proto_version(connection.peer->context(), TLS1_2_VERSION);
    connection.scene.settings.minVersion = "1.3";
    EXPECT_EQ(connection.open(), Step::Failed);
    EXPECT_THAT(connection.stream->fault(), HasSubstr("no version of TLS that is allowed"));
}

/// What isn't TLS is named as such.
TEST(TlsGreeting, OfAPlainPeerIsNoTls) {
    for (const char* words :
         {"HTTP/1.1 400 Bad Request\r\n\r\n", "\x02\x01\x02\x03status=0\x03 more of it"}) {
        Connection connection;
        connection.client = TlsClient::make(connection.scene.settings);
        connection.peer->connect();
        std::string fault;
        connection.stream = connection.client->open(connection.peer->fd(), "127.0.0.1", fault);
        ASSERT_EQ(connection.stream->handshake(), Step::AwaitsBytes);
        connection.peer->sayPlainly(words);
        EXPECT_EQ(connection.stream->handshake(), Step::Failed);
        EXPECT_THAT(connection.stream->fault(), HasSubstr("doesn't speak TLS"));
    }
}

} // namespace
