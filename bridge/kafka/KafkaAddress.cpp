#include "kafka/KafkaAddress.h"

#include "bus/BusError.h"

#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string_view>

#include <sys/stat.h>

namespace tivra_bus {

namespace {

constexpr std::string_view kScheme = "kafka://";
constexpr std::string_view kDefaultPort = "9092";

/// What guarantees rest on, and what options of the bridge set.
constexpr std::string_view kOwnProperties[]{"acks",
                                            "auto.offset.reset",
                                            "bootstrap.servers",
                                            "client.id",
                                            "enable.auto.commit",
                                            "enable.auto.offset.store",
                                            "enable.idempotence",
                                            "enable.partition.eof",
                                            "group.id",
                                            "group.instance.id",
                                            "max.in.flight",
                                            "max.in.flight.requests.per.connection",
                                            "message.max.bytes",
                                            "message.timeout.ms",
                                            "metadata.broker.list",
                                            "partition.assignment.strategy",
                                            "partitioner",
                                            "request.required.acks",
                                            "transactional.id"};

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(" \t\r") + 1 - begin);
}

/// With the port that is meant when none is named: "[::1]" and "::1:9092" keep apart by their brackets.
std::string withPort(const std::string& server) {
    const std::size_t colon = server.rfind(':');
    const bool hasPort = colon != std::string::npos && server.find(']', colon) == std::string::npos;
    return hasPort ? server : fmt::format("{}:{}", server, kDefaultPort);
}

} // namespace

std::vector<std::string> kafkaServersOf(const std::string& url) {
    if (!url.starts_with(kScheme))
        throw BusError(fmt::format("\"{}\": {}HOST[:PORT],... was wanted", url, kScheme));
    if (url.find('@') != std::string::npos)
        throw BusError(
            "the address of the engine holds a user or a password: put them into a credentials file");
    std::vector<std::string> servers;
    std::istringstream list(url.substr(kScheme.size()));
    for (std::string server; std::getline(list, server, ',');)
        if (!server.empty())
            servers.push_back(withPort(server));
    if (servers.empty())
        throw BusError(fmt::format("\"{}\" names no server", url));
    return servers;
}

std::map<std::string, std::string> readKafkaProperties(const std::string& path) {
    std::ifstream file(path);
    struct stat status {};
    if (!file || stat(path.c_str(), &status) != 0)
        throw BusError(fmt::format("the credentials file {} can't be read", path));
    if (S_ISREG(status.st_mode) && (status.st_mode & 0077) != 0)
        throw BusError(fmt::format("others can read the credentials file {}; chmod 600 ends that", path));
    std::map<std::string, std::string> properties;
    std::string line;
    for (std::size_t number = 1; std::getline(file, line); ++number) {
        line = trimmed(line);
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t equal = line.find('=');
        // The line may hold a password, so that it isn't shown.
        if (equal == std::string::npos || equal == 0)
            throw BusError(fmt::format("the credentials file {}, line {}: PROPERTY=VALUE was wanted, such as "
                                       "sasl.username=feed",
                                       path, number));
        const std::string name = trimmed(line.substr(0, equal));
        if (std::find(std::begin(kOwnProperties), std::end(kOwnProperties), name) != std::end(kOwnProperties))
            throw BusError(
                fmt::format("the credentials file {}, line {}: {} is set by the bridge itself: take it out",
                            path, number, name));
        properties[name] = trimmed(line.substr(equal + 1));
    }
    return properties;
}

std::map<std::string, std::string> securityOf(const KafkaAddress& address) {
    std::map<std::string, std::string> security = address.properties;
    if (!address.caFile.empty())
        security["ssl.ca.location"] = address.caFile;
    if (!address.certificateFile.empty()) {
        security["ssl.certificate.location"] = address.certificateFile;
        security["ssl.key.location"] = address.keyFile;
    }
    // Of old the client library checked no names.
    security.emplace("ssl.endpoint.identification.algorithm", "https");
    if (security.count("security.protocol") != 0)
        return security;
    const bool hasTls = security.count("ssl.ca.location") + security.count("ssl.certificate.location") != 0;
    const bool hasSasl = security.count("sasl.mechanism") + security.count("sasl.mechanisms") != 0;
    const auto is = [&security](const char* name, const char* value) {
        const auto found = security.find(name);
        return found != security.end() && found->second == value;
    };
    if (!hasTls && (is("sasl.mechanism", "PLAIN") || is("sasl.mechanisms", "PLAIN")))
        throw BusError("sasl.mechanism=PLAIN would send the password in plain text: name the certificates "
                       "with --tls-ca, "
                       "or write security.protocol=SASL_PLAINTEXT into the credentials file");
    security["security.protocol"] =
        hasSasl ? (hasTls ? "sasl_ssl" : "sasl_plaintext") : (hasTls ? "ssl" : "plaintext");
    return security;
}

KafkaAddress kafkaAddressOf(const EngineOptions& options) {
    KafkaAddress address;
    address.servers = kafkaServersOf(options.url);
    address.name = options.name;
    if (!options.credentialsFile.empty())
        address.properties = readKafkaProperties(options.credentialsFile);
    address.caFile = options.caFile;
    address.certificateFile = options.certificateFile;
    address.keyFile = options.keyFile;
    (void)securityOf(address);
    return address;
}

} // namespace tivra_bus
