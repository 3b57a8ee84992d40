#include "hub/MessageReading.h"

#include <algorithm>

#include "kvnparse/DataMap.h"
#include "kvnparse/Exchange.h"

namespace tivra_internal {

std::string pairText(const KVNAPI::TVPair& pair) {
    NumberText room;
    return std::string(textOf(pair, room));
}

std::string loggable(std::string text) {
    text.resize(std::min(text.size(), kMaxLoggedText));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; },
        '?');
    return text;
}

std::string describe(const KVNAPI::Message& msg) {
    std::string text;
    if (msg.permission != nullptr)
        text += "3=" + std::to_string(msg.permission->id) + '|';
    if (msg.exchange != nullptr)
        text += "4=" + std::to_string(msg.exchange->id) + '|';
    if (msg.symbol.len > 0)
        text.append("5=").append(msg.symbol.view()).append("|");
    if (msg.isRefresh != 0)
        text += "24=1|";
    for (int i = 0; i < msg.pairCount() && text.size() < kMaxLoggedText; ++i)
        text += std::to_string(msg.pair(i)->token->kvnid) + '=' + pairText(*msg.pair(i)) + '|';
    if (!text.empty())
        text.pop_back();
    text.resize(std::min(text.size(), kMaxLoggedText));
    // The logger deals with every other byte.
    for (std::size_t at = 0; (at = text.find('\0', at)) != std::string::npos;)
        text.replace(at, 1, "\\x00");
    return text;
}

MessageField::MessageField(const KVNAPI::DataMap& dictionary, const KVNAPI::Message& msg, const char* name)
    : token(dictionary.lookupTokenViaName(name)), pair(token != nullptr ? msg.findPair(token) : nullptr) {}

} // namespace tivra_internal
