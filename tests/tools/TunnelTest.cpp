// Programs that reach their hub through somebody else's tunnel, by the recipe of docs/security.md.
#include "ToolFixture.h"

using testing::HasSubstr;

namespace {

/// Of the commands that the recipe begins with. The hub names itself by the address that it is dialled at.
constexpr const char* kMakeKeys =
    "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=issuer "
    "-addext keyUsage=critical,keyCertSign,cRLSign -keyout issuer.key -out issuer.pem && "
    "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 30 -subj /CN=hub "
    "-addext subjectAltName=IP:127.0.0.1 -addext basicConstraints=critical,CA:FALSE "
    "-CA issuer.pem -CAkey issuer.key -keyout hub.key -out hub.pem";

class Tunnel : public ToolFixture {
protected:
    std::unique_ptr<Process> startTunnel(const std::string& configuration) {
        auto tunnel = std::make_unique<Process>(
            directory, "cd " + directory + " && exec stunnel4 " + configuration, Process::Place::Files);
        EXPECT_TRUE(tunnel->waitForError(contains("Configuration successful"))) << tunnel->error();
        return tunnel;
    }
};

TEST_F(Tunnel, IsReachedAtAnotherAddressAndTheHubThatItLeadsToByAPair) {
    if (!std::filesystem::exists("/usr/bin/stunnel4") || !std::filesystem::exists("/usr/bin/openssl"))
        GTEST_SKIP() << "needs stunnel4 and openssl, which Debian's packages of these names have";
    ASSERT_EQ(Process(directory, "cd " + directory + " && " + kMakeKeys, Process::Place::Files).waitForEnd(),
              0);
    const std::string port = hub.hostString().substr(hub.hostString().find(':') + 1);
    writeFile("server.conf", "foreground = yes\n[hub]\naccept = 127.0.0.3:" + port +
                                 "\nconnect = 127.0.0.1:" + port + "\ncert = hub.pem\nkey = hub.key\n");
    writeFile("client.conf", "foreground = yes\n[hub]\nclient = yes\naccept = 127.0.0.2:" + port +
                                 "\nconnect = 127.0.0.3:" + port +
                                 "\nCAfile = issuer.pem\nverifyChain = yes\ncheckIP = 127.0.0.1\n");
    const auto server = startTunnel("server.conf");
    const auto client = startTunnel("client.conf");
    dial("127.0.0.2:" + port);
    // Without the pair the hub's own address is none that was dialled.
    expect({{"tivra-cat $AT --nat 127.0.0.1=127.0.0.2 snapshot 100:IBM", 0, HasSubstr("IBM"), testing::_},
            {"tivra-cat $AT snapshot 100:IBM", 3, "", HasSubstr("NAT")}});
}

} // namespace
