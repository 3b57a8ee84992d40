#include "request/RequestImpl.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include <request/RequestParameters.h>
#include <tp/eprintf.h>

#include "config/ValueFault.h"
#include "request/CommandClasses.h"
#include "request/TagSource.h"

namespace tivra_internal {

namespace {

constexpr int kCommandToken = 5022;
constexpr int kTagToken = 5026;

int32_t toNumber(const std::string& text) {
    return static_cast<int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

bool isSpace(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

std::string trimmed(const std::string& value) {
    const auto begin = std::find_if_not(value.begin(), value.end(), isSpace);
    const auto end = std::find_if_not(value.rbegin(), std::make_reverse_iterator(begin), isSpace).base();
    return {begin, end};
}

} // namespace

const char* RequestImpl::getCommandString(tivra::Commands command) noexcept {
    const CommandRow* row = findCommand(command);
    return row != nullptr ? row->word : nullptr;
}

void RequestImpl::setCommand(tivra::Commands newCommand) {
    command = newCommand;
    const char* word = getCommandString(newCommand);
    if (word == nullptr) {
        eprintf(EPF_WARN, "Invalid command (%d) passed to Request::setCommand", static_cast<int>(newCommand));
        return;
    }
    request.append("5022=").append(word).append("|");
    isCmdSet = true;
}

bool RequestImpl::isReserved(int token) {
    if (token != kCommandToken && token != kTagToken)
        return false;
    eprintf(EPF_WARN, "Invalid parameter (%d) passed to Request::add", token);
    return true;
}

void RequestImpl::appendPair(int token, std::string value) {
    // Once the text ends in the tag pair, which has no separator behind it, separators come first.
    if (isTagSetInString)
        request += '|';
    request.append(std::to_string(token)).append("=").append(value);
    if (!isTagSetInString)
        request += '|';
    TokenValue pair(token, std::move(value));
    tokValSet.insert(std::upper_bound(tokValSet.begin(), tokValSet.end(), pair), std::move(pair));
}

void RequestImpl::add(int token, int value) {
    if (isReserved(token))
        return;
    appendPair(token, std::to_string(value));
    switch (token) {
    case tivra::ENUM_SRC_ID:
        srcid = value;
        break;
    case tivra::KVN_TOKEN_NUM:
        kvnTokenNums.push_back(value);
        break;
    case tivra::QUERY_REF_TAG:
        eprintf(EPF_WARN,
                "added 5052/QUERY_REF_TAG as an int; however, tag from API is int64_t; value may not be "
                "interpreted correctly");
        origTag = value;
        break;
    default:
        break;
    }
}

void RequestImpl::add(int token, int64_t value) {
    if (isReserved(token))
        return;
    appendPair(token, std::to_string(value));
    switch (token) {
    case tivra::ENUM_SRC_ID:
        srcid = static_cast<int32_t>(value);
        break;
    case tivra::KVN_TOKEN_NUM:
        kvnTokenNums.push_back(static_cast<int32_t>(value));
        break;
    case tivra::QUERY_REF_TAG:
        origTag = value;
        break;
    default:
        break;
    }
}

void RequestImpl::add(int token, const std::string& value) {
    if (isReserved(token))
        return;
    const std::string text = trimmed(value);
    if (const char* const fault = valueFault(text)) {
        // What the application gives isn't repeated here: it may be what should stay secret.
        eprintf(EPF_WARN, "Invalid value for parameter (%d) passed to Request::add: %s", token, fault);
        m_hasRefusedValue = true;
        return;
    }
    eprintf(EPF_DBUG, "add: %d=%s", token, text.c_str());
    appendPair(token, text);
    switch (token) {
    case tivra::ENUM_SRC_ID:
        srcid = toNumber(text);
        break;
    case tivra::SYMBOL_TICKER: {
        const std::size_t length = std::min(text.size(), sizeof symbol - 1);
        std::memcpy(symbol, text.data(), length);
        symbol[length] = '\0';
        break;
    }
    case tivra::KVN_TOKEN_NUM:
        kvnTokenNums.push_back(toNumber(text));
        break;
    case tivra::QUERY_REF_TAG:
        origTag = std::strtol(text.c_str(), nullptr, 10);
        eprintf(EPF_DBUG, "origTag=%ld", static_cast<long>(origTag));
        break;
    default:
        break;
    }
}

int64_t RequestImpl::generateTag() {
    TagSource* session = m_session.load(std::memory_order_acquire);
    if (session == nullptr)
        return 0;
    tag = session->getNextTag();
    isTagSet = true;
    return tag;
}

void RequestImpl::clearRequest() {
    request.clear();
    tokValSet.clear();
    kvnTokenNums.clear();
    srcid = -1;
    origTag = -1;
    isCmdSet = false;
    symbol[0] = '\0';
    m_hasRefusedValue = false;
}

std::string RequestImpl::getCompareString() const {
    std::string result = std::to_string(static_cast<int>(command));
    for (const auto& [token, value] : tokValSet)
        result.append("|").append(std::to_string(token)).append("=").append(value);
    eprintf(EPF_DBUG, "getCompareString: %s", result.c_str());
    return result;
}

} // namespace tivra_internal
