#include "Responder.h"

#include <algorithm>

namespace tivra_sim {

Responder::Bodies Responder::listAvailableTokens(Connection& connection, const Request& request) {
    std::vector<const DictionaryRow*> rows;
    if (!namedTokens(request, rows))
        return answeredWith(request, status::UNKNOWN_TOKEN);
    std::set<int> present;
    const bool narrowed = request.has(token::SOURCE) || request.has(token::SYMBOL);
    if (narrowed) {
        Request named = request;
        named.text = "4=" + request.value(token::SOURCE) + "|5=" + request.value(token::SYMBOL);
        if (!request.has(token::SOURCE))
            named.text = "5=" + request.value(token::SYMBOL);
        const Target target = resolve(connection, named, false);
        if (target.status != status::SUCCESS)
            return answeredWith(request, target.status);
        for (SymbolEntry* entry : target.entries) {
            HubModel::settle(*entry);
            for (const auto& field : entry->fields)
                present.insert(field.first);
        }
    }
    Bodies bodies;
    for (const DictionaryRow& row : m_state.model.config().dictionary) {
        const bool named =
            rows.empty() || std::any_of(rows.begin(), rows.end(), [&](const DictionaryRow* wanted) {
                return wanted->number == row.number;
            });
        if (!named || (narrowed && present.count(row.number) == 0))
            continue;
        bodies.push_back(rowBody(request, row));
    }
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::listExtendedExchangeInfo(Connection& connection, const Request& request) {
    const Enumeration* names = findEnumeration(token::SOURCE);
    Record record = answerTo(request);
    for (const int source : m_state.model.boxPermissions()) {
        if (m_state.sourceStatus(connection, source) != status::SUCCESS)
            continue;
        record.add(token::SOURCE, source);
        if (names != nullptr && names->values.count(source) > 0)
            record.add(3001, names->values.at(source));
    }
    return succeededWith(std::move(record));
}

Responder::Bodies Responder::listSubscribedSymbols(Connection& connection, const Request& request) {
    Bodies bodies;
    for (const SymbolEntry* entry : connection.subscribedSymbols())
        bodies.push_back(
            answerTo(request).add(token::SOURCE, entry->source).add(token::SYMBOL, entry->symbol).body());
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::getActiveClientsInfo(Connection&, const Request& request) {
    Record record = answerTo(request);
    for (const auto& other : m_state.connections) {
        if (other->client().isLoggedIn)
            record.add(token::USER_NAME, other->client().user)
                .add(token::HOST, other->peerAddress())
                .add(token::PORT, other->peerPort())
                .add(token::CLIENT_VERSION, other->client().version)
                .add(5054, static_cast<long long>(other->subscriptionCount()));
    }
    return succeededWith(std::move(record));
}

Responder::Bodies Responder::getAllUsers(Connection&, const Request& request) {
    Record record = answerTo(request);
    for (const User& user : m_state.model.users())
        record.add(token::USER_NAME, user.name);
    return succeededWith(std::move(record));
}

Responder::Bodies Responder::getSourcePortDetails(Connection& connection, const Request& request) {
    Bodies bodies;
    for (const int source : m_state.model.boxPermissions()) {
        if (m_state.sourceStatus(connection, source) == status::SUCCESS)
            bodies.push_back(answerTo(request)
                                 .add(token::SOURCE, source)
                                 .add(token::HOST, hostOf(connection))
                                 .add(token::PORT, m_state.port)
                                 .body());
    }
    bodies.push_back(statusBody(request.tag, status::SUCCESS));
    return bodies;
}

Responder::Bodies Responder::selectUserFilterTokens(Connection& connection, const Request& request) {
    std::vector<const DictionaryRow*> rows;
    if (!namedTokens(request, rows))
        return answeredWith(request, status::UNKNOWN_TOKEN);
    std::set<int>& filter = connection.client().filter;
    filter.clear();
    for (const DictionaryRow* row : rows)
        filter.insert(row->number);
    return succeed(connection, request);
}

Responder::Bodies Responder::addAlternateIndex(Connection& connection, const Request& request) {
    const auto source = static_cast<int>(request.number(token::SOURCE));
    if (source < 1)
        return answeredWith(request, status::BAD_PARAMETER);
    const int permitted = m_state.sourceStatus(connection, source);
    if (permitted != status::SUCCESS)
        return answeredWith(request, permitted);
    std::vector<const DictionaryRow*> rows;
    if (!namedTokens(request, rows))
        return answeredWith(request, status::UNKNOWN_TOKEN);
    auto& indexes = connection.client().alternateIndexes;
    if (rows.empty())
        indexes.erase(source);
    for (const DictionaryRow* row : rows)
        indexes[source].insert(row->number);
    return succeed(connection, request);
}

} // namespace tivra_sim
