#pragma once

#include <cstdint>
#include <string>

#include "LogLimits.h"
#include "kvnparse/Message.h"
#include "receive/PairValue.h"

namespace KVNAPI {
class DataMap;
}

namespace tivra_internal {

// How the conversation reads what a hub has sent. The storage of the pair's token decides which member of the
// value is read, so that no message can make a text out of a number.

[[nodiscard]] std::string pairText(const KVNAPI::TVPair& pair);
/// At most kMaxLoggedText bytes of it, each of them printable.
[[nodiscard]] std::string loggable(std::string text);
/// The message for a log line.
[[nodiscard]] std::string describe(const KVNAPI::Message& msg);

/// A field of a message: whether the dictionary knows it, and whether the message has it.
struct MessageField {
    const KVNAPI::Token* token = nullptr;
    const KVNAPI::TVPair* pair = nullptr;

    MessageField(const KVNAPI::DataMap& dictionary, const KVNAPI::Message& msg, const char* name);

    [[nodiscard]] bool isDefined() const { return token != nullptr; }
    [[nodiscard]] bool isPresent() const { return pair != nullptr; }
    [[nodiscard]] int64_t integer() const { return integerOf(*pair); }
    [[nodiscard]] std::string text() const { return pairText(*pair); }
    [[nodiscard]] bool isIn(const KVNAPI::TVPair& candidate) const { return candidate.token == token; }
};

} // namespace tivra_internal
