#include "Responder.h"

#include <algorithm>

namespace tivra_sim {

const Responder::Command Responder::kCommands[] = {
    {"LoginUser", &Responder::loginUser},
    {"ListEnumeration", &Responder::listEnumeration},
    {"SetConflationInterval", &Responder::setConflationInterval},
    {"SetConflationType", &Responder::setConflationType},
    {"SetL2ConflationInterval", &Responder::setConflationInterval},
    {"ListAdministrationInfo", &Responder::listAdministrationInfo},
    {"ListInternalTokens", &Responder::listInternalTokens},
    {"GetPort", &Responder::getPort},
    {"GetAllPorts", &Responder::getAllPorts},
    {"GetXrefPort", &Responder::getXrefPort},
    {"ListSplitExchanges", &Responder::listSplitExchanges},
    {"ListSystemPermission", &Responder::listSystemPermission},
    {"ListUserPermission", &Responder::listUserPermission},
    {"Echo", &Responder::succeed},
    {"ReportApiStats", &Responder::reportApiStats},
    {"Subscribe", &Responder::subscribe},
    {"Unsubscribe", &Responder::unsubscribe},
    {"QuerySnap", &Responder::querySnap},
    {"QuerySnapAndSubscribe", &Responder::querySnapAndSubscribe},
    {"QueryDepth", &Responder::queryDepth},
    {"QueryDepthAndSubscribe", &Responder::queryDepthAndSubscribe},
    {"QueryWildCard", &Responder::queryWildCard},
    {"SubscribeWildCard", &Responder::subscribeWildCard},
    {"QuerySnapAndSubscribeWildCard", &Responder::querySnapAndSubscribeWildCard},
    {"UnsubscribeWildCard", &Responder::unsubscribe},
    {"QueryXRef", &Responder::queryXRef},
    {"ListAvailableTokens", &Responder::listAvailableTokens},
    {"ListExtendedExchangeInfo", &Responder::listExtendedExchangeInfo},
    {"ListSubscribedSymbols", &Responder::listSubscribedSymbols},
    {"GetActiveClientsInfo", &Responder::getActiveClientsInfo},
    {"GetAllUsers", &Responder::getAllUsers},
    {"GetSourcePortDetails", &Responder::getSourcePortDetails},
    {"SelectUserFilterTokens", &Responder::selectUserFilterTokens},
    {"AddAlternateIndex", &Responder::addAlternateIndex},
};

int HubState::sourceStatus(Connection& connection, int source) const {
    if (model.boxPermissions().count(source) == 0)
        return status::NOT_CARRIED;
    const User* user = model.findUser(connection.client().user);
    return user != nullptr && user->permissions.count(source) > 0 ? status::SUCCESS : status::NO_PERMISSION;
}

Responder::Bodies Responder::answer(Connection& connection, const Request& request) {
    const auto command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [&](const Command& candidate) { return request.command == candidate.word; });
    if (command == std::end(kCommands))
        return {statusBody(request.tag, status::UNKNOWN_COMMAND)};
    if (!connection.client().isLoggedIn && request.command != "LoginUser")
        return {statusBody(request.tag, status::NOT_LOGGED_IN)};
    return (this->*command->handler)(connection, request);
}

std::string Responder::statusBody(std::int64_t tag, int status) {
    Record record;
    if (tag >= 0)
        record.add(token::TAG, static_cast<long long>(tag));
    return record.add(token::STATUS, status).body();
}

std::string Responder::hostOf(const Connection& connection) const {
    const std::string& advertised = m_state.model.config().advertisedHost;
    return advertised.empty() ? connection.localAddress() : advertised;
}

std::vector<GroupDirectory::Place> Responder::placesOf(int source) const {
    if (m_state.group != nullptr)
        return source == SYSTEM_SOURCE ? m_state.group->places() : m_state.group->carriers(source);
    if (m_state.model.boxPermissions().count(source) == 0)
        return {};
    return {{m_state.model.config().advertisedHost, m_state.port}};
}

std::string Responder::rowBody(const Request& request, const DictionaryRow& row) {
    return answerTo(request)
        .add(token::TOKEN_NUM, row.number)
        .add(token::TOKEN_NAME, row.name)
        .add(token::TOKEN_TYPE, row.type)
        .add(token::TOKEN_SIZE, row.length)
        .body();
}

const DictionaryRow* Responder::findRow(int number) const {
    for (const DictionaryRow& row : m_state.model.config().dictionary) {
        if (row.number == number)
            return &row;
    }
    return nullptr;
}

const DictionaryRow* Responder::findRow(std::string_view name) const {
    for (const DictionaryRow& row : m_state.model.config().dictionary) {
        if (row.name == name)
            return &row;
    }
    return nullptr;
}

bool Responder::namedTokens(const Request& request, std::vector<const DictionaryRow*>& rows) const {
    for (const Pair& pair : splitPairs(request.text)) {
        if (pair.token != token::TOKEN_NUM && pair.token != token::TOKEN_NAME)
            continue;
        Request number;
        number.text = "1=" + std::string(pair.value);
        const DictionaryRow* row = pair.token == token::TOKEN_NAME
                                       ? findRow(pair.value)
                                       : findRow(static_cast<int>(number.number(1)));
        if (row == nullptr)
            return false;
        rows.push_back(row);
    }
    return true;
}

const Enumeration* Responder::findEnumeration(int token) const {
    for (const Enumeration& enumeration : m_state.model.config().enumerations) {
        if (enumeration.token == token)
            return &enumeration;
    }
    return nullptr;
}

} // namespace tivra_sim
