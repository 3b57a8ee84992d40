#include "kafka/KafkaAddress.h"

#include "bus/BusError.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <fstream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

using namespace tivra_bus;
using testing::HasSubstr;

namespace {

/// What it says of something that it refuses; empty where it doesn't.
template<class Attempt>
std::string refusal(const Attempt& attempt) {
    try {
        attempt();
    } catch (const BusError& error) {
        return error.what();
    }
    return {};
}

class CredentialsFile {
public:
    explicit CredentialsFile(const std::string& text, mode_t mode = 0600)
        : m_path(testing::TempDir() + "kafka-credentials-" + std::to_string(getpid())) {
        std::ofstream(m_path) << text;
        chmod(m_path.c_str(), mode);
    }
    ~CredentialsFile() { std::remove(m_path.c_str()); }
    CredentialsFile(const CredentialsFile&) = delete;
    CredentialsFile& operator=(const CredentialsFile&) = delete;
    [[nodiscard]] const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace

TEST(KafkaAddress, ServersGetTheirPortsAndOtherFormsAreRefused) {
    EXPECT_EQ(kafkaServersOf("kafka://a,b:9093,[::1]"),
              (std::vector<std::string>{"a:9092", "b:9093", "[::1]:9092"}));
    for (const char* url : {"a:9092", "nats://a", "kafka://", "kafka://,", "kafka://user:secret@a"})
        EXPECT_THROW((void)kafkaServersOf(url), BusError) << url;
    EXPECT_THAT(refusal([] { (void)kafkaServersOf("kafka://user:secret@a"); }),
                testing::Not(HasSubstr("secret")));
}

TEST(KafkaAddress, CredentialsArePropertiesAndNoneOfTheBridgesOwn) {
    const CredentialsFile good("# the feed's user\n sasl.username = feed\n\nsasl.password=a=b\r\n");
    EXPECT_EQ(readKafkaProperties(good.path()),
              (std::map<std::string, std::string>{{"sasl.username", "feed"}, {"sasl.password", "a=b"}}));
    struct Case {
        const char* text;
        mode_t mode;
        const char* said;
    };
    for (const Case& each :
         {Case{"sasl.username=feed\n", 0640, "chmod 600"}, Case{"secret\n", 0600, "line 1"},
          Case{"\nacks=0\n", 0600, "line 2: acks is set by the bridge"},
          Case{"enable.idempotence=false\n", 0600, "is set by the bridge"}}) {
        const CredentialsFile file(each.text, each.mode);
        const std::string said = refusal([&file] { (void)readKafkaProperties(file.path()); });
        EXPECT_THAT(said, HasSubstr(each.said)) << each.text;
        EXPECT_THAT(said, testing::Not(HasSubstr("secret")));
    }
    EXPECT_THROW((void)readKafkaProperties("/nowhere/at/all"), BusError);
}

TEST(KafkaAddress, APasswordIsEncryptedOrTheFileSaysOtherwise) {
    struct Case {
        const char* caFile;
        std::map<std::string, std::string> properties;
        const char* protocol; ///< null where it is refused
    };
    for (const Case& each :
         {Case{"", {}, "plaintext"}, Case{"ca.pem", {}, "ssl"},
          Case{"", {{"sasl.mechanism", "SCRAM-SHA-512"}}, "sasl_plaintext"},
          Case{"ca.pem", {{"sasl.mechanism", "PLAIN"}}, "sasl_ssl"},
          Case{"", {{"sasl.mechanism", "PLAIN"}}, nullptr}, Case{"", {{"sasl.mechanisms", "PLAIN"}}, nullptr},
          Case{"",
               {{"sasl.mechanism", "PLAIN"}, {"security.protocol", "SASL_PLAINTEXT"}},
               "SASL_PLAINTEXT"}}) {
        KafkaAddress address;
        address.caFile = each.caFile;
        address.properties = each.properties;
        if (each.protocol == nullptr)
            EXPECT_THROW((void)securityOf(address), BusError);
        else
            EXPECT_EQ(securityOf(address).at("security.protocol"), each.protocol);
    }
}
