#include "Responder.h"

#include <algorithm>
#include <charconv>

namespace tivra_sim {

namespace {

struct Version {
    int major = -1;
    int minor = -1;
};

/// "V8.2.1" or "8.2.1" to 8 and 2; what cannot be read stays -1.
Version parseVersion(std::string_view text) {
    Version version;
    if (!text.empty() && text.front() == 'V')
        text.remove_prefix(1);
    const char* end = text.data() + text.size();
    const auto major = std::from_chars(text.data(), end, version.major);
    if (major.ec == std::errc{} && major.ptr != end && *major.ptr == '.')
        std::from_chars(major.ptr + 1, end, version.minor);
    return version;
}

bool isAtLeast(const Version& version, int major, int minor) {
    return version.major > major || (version.major == major && version.minor >= minor);
}

Record withPermissions(Record record, const std::set<int>& sources) {
    for (const int source : sources)
        record.add(token::PERMISSION, source);
    return record;
}

/// How a pattern travels: between delimiters, and with "~" for the "|" that parts the pairs of a body.
std::string patternOnTheWire(const std::string& pattern) {
    std::string text = "{";
    for (const char letter : pattern)
        text += letter == '|' ? '~' : letter;
    return text + "}";
}

} // namespace

Responder::Bodies Responder::loginUser(Connection& connection, const Request& request) {
    const User* user = m_state.model.findUser(request.value(token::USER_NAME));
    if (user == nullptr || user->password != request.value(token::PASSWORD))
        return answeredWith(request, status::BAD_LOGIN);
    if (wantsCompression(request) && !connection.output().isCompressed())
        return answeredWith(request, status::BAD_PARAMETER);
    const auto logins =
        std::count_if(m_state.connections.begin(), m_state.connections.end(), [&](const auto& other) {
            return other.get() != &connection && other->client().isLoggedIn &&
                   other->client().user == user->name;
        });
    if (user->maxLogins > 0 && logins >= static_cast<std::ptrdiff_t>(user->maxLogins))
        return answeredWith(request, status::TOO_MANY_LOGINS);
    ClientState& client = connection.client();
    client.isLoggedIn = true;
    client.user = user->name;
    client.version = request.value(token::CLIENT_VERSION);
    client.platform = request.value(token::PLATFORM);
    client.language = request.value(token::LANGUAGE);
    return succeed(connection, request);
}

Responder::Bodies Responder::succeed(Connection&, const Request& request) {
    return answeredWith(request, status::SUCCESS);
}

Responder::Bodies Responder::listEnumeration(Connection&, const Request& request) {
    std::vector<const DictionaryRow*> rows;
    if (!namedTokens(request, rows))
        return answeredWith(request, status::UNKNOWN_TOKEN);
    Bodies bodies;
    for (const Enumeration& enumeration : m_state.model.config().enumerations) {
        const bool wanted =
            rows.empty() || std::any_of(rows.begin(), rows.end(), [&](const DictionaryRow* row) {
                return row->number == enumeration.token;
            });
        if (!wanted)
            continue;
        for (const auto& [value, text] : enumeration.values)
            bodies.push_back(answerTo(request)
                                 .add(token::TOKEN_NUM, enumeration.token)
                                 .add(token::ENUM_VALUE, value)
                                 .add(token::ENUM_DESC, text)
                                 .body());
    }
    const bool nothing = !rows.empty() && bodies.empty();
    bodies.push_back(statusBody(request.tag, nothing ? status::UNKNOWN_TOKEN : status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::setConflationInterval(Connection& connection, const Request& request) {
    const std::int64_t interval = request.number(token::CONFLATION_INTERVAL);
    if (interval < 0)
        return answeredWith(request, status::BAD_PARAMETER);
    if (connection.conflator())
        connection.conflator()->setInterval(
            std::chrono::milliseconds(std::min<std::int64_t>(interval, 86400000)));
    return succeed(connection, request);
}

Responder::Bodies Responder::setConflationType(Connection& connection, const Request& request) {
    const Version version = parseVersion(m_state.model.config().hubVersion);
    if (!isAtLeast(version, 7, 4))
        return answeredWith(request, status::UNKNOWN_COMMAND);
    const std::int64_t type = request.number(token::CONFLATION);
    const std::int64_t threshold = request.number(token::JIT_THRESHOLD, 25);
    const bool known = type >= 0 && (type <= 2 || (type == 3 && isAtLeast(version, 7, 5)) ||
                                     (type == 4 && isAtLeast(version, 7, 8)));
    if (!known || threshold < 1 || threshold > 75)
        return answeredWith(request, status::BAD_PARAMETER);
    if (connection.conflator())
        connection.conflator()->setType(type, threshold);
    return succeed(connection, request);
}

Responder::Bodies Responder::listAdministrationInfo(Connection&, const Request& request) {
    const HubConfig& config = m_state.model.config();
    return {answerTo(request)
                .add(token::DICTIONARY_VERSION, config.dictionaryVersion)
                .add(token::HUB_VERSION, config.hubVersion)
                .add(token::STATUS, status::SUCCESS)
                .body()};
}

Responder::Bodies Responder::listInternalTokens(Connection&, const Request& request) {
    Bodies bodies;
    for (const DictionaryRow& row : m_state.model.config().dictionary)
        bodies.push_back(rowBody(request, row));
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::getPort(Connection& connection, const Request& request) {
    const auto source = static_cast<int>(request.number(token::SOURCE));
    if (source < 1)
        return answeredWith(request, status::BAD_PARAMETER);
    std::vector<GroupDirectory::Place> places = placesOf(source);
    if (places.empty())
        return answeredWith(request, status::NO_PORT);
    if (source == SYSTEM_SOURCE && m_state.model.config().topology == Topology::Aggregating)
        places.clear(); // what an aggregating hub is known by
    else if (source == SYSTEM_SOURCE && m_state.group != nullptr && places.size() == 1)
        places.push_back(places.front()); // named once, it would be a hub without a group
    Record record = answerTo(request);
    record.add(token::SOURCE, source);
    for (const GroupDirectory::Place& place : places)
        record.add(token::HOST, place.host.empty() ? connection.localAddress() : place.host)
            .add(token::PORT, place.port);
    return succeededWith(std::move(record));
}

Responder::Bodies Responder::listSplitExchanges(Connection&, const Request& request) {
    Bodies bodies;
    if (m_state.group != nullptr) {
        for (const auto& [source, patterns] : m_state.group->splitsOf(m_state.member)) {
            Record record = answerTo(request);
            record.add(token::SOURCE, source);
            for (const std::string& pattern : patterns)
                record.add(token::SYMBOL, patternOnTheWire(pattern));
            bodies.push_back(record.body());
        }
    }
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::getAllPorts(Connection&, const Request& request) {
    Record record = answerTo(request);
    if (m_state.group == nullptr)
        record.add(token::PORT, m_state.port);
    else
        for (const GroupDirectory::Place& place : m_state.group->dataPlaces())
            record.add(token::PORT, place.port);
    return succeededWith(std::move(record));
}

Responder::Bodies Responder::getXrefPort(Connection&, const Request& request) {
    return answeredWith(request, status::NO_PORT);
}

Responder::Bodies Responder::listSystemPermission(Connection&, const Request& request) {
    return succeededWith(withPermissions(answerTo(request), m_state.model.boxPermissions()));
}

Responder::Bodies Responder::listUserPermission(Connection& connection, const Request& request) {
    const User* user = m_state.model.findUser(connection.client().user);
    return succeededWith(
        withPermissions(answerTo(request), user == nullptr ? std::set<int>{} : user->permissions));
}

Responder::Bodies Responder::reportApiStats(Connection& connection, const Request& request) {
    Bodies bodies = succeed(connection, request);
    std::optional<Conflator>& conflator = connection.conflator();
    if (conflator && conflator->report(request.number(token::QUEUE_PERCENT, 0)))
        bodies.push_back(Record(SYSTEM_SOURCE, JIT_SYMBOL)
                             .add(token::CONFLATION, conflator->isJustInTime() ? conflator->type() : 0)
                             .body());
    return bodies;
}

} // namespace tivra_sim
