#pragma once

#include <cstdint>
#include <string_view>

#include <data/DateTime.h>
#include <data/ValueTypes.h>

#include "kvnparse/Message.h"
#include "receive/PairValue.h"

namespace tivra_internal {

class MetaTokenMap;

/// The walk over the pairs of the message that is being delivered. It does no work until asked and owns
/// nothing; off a pair, and without a message, its answers are the ones told at tivra::MessageReader.
/// @thread user
class MessageReaderImpl {
public:
    static constexpr int END_OF_MESSAGE = -1;

    void setDicMap(const MetaTokenMap* dictionary) noexcept { m_dicMap = dictionary; }

    /// Starts anew, before the first pair of `message`; null when the message is gone.
    void setMessage(const KVNAPI::Message* message) noexcept {
        msg = message;
        pos = -1;
    }

    int next() noexcept {
        if (pos < pairCount())
            ++pos;
        return tokenAt(pos);
    }
    [[nodiscard]] int peek() const noexcept { return pos < pairCount() ? tokenAt(pos + 1) : END_OF_MESSAGE; }
    [[nodiscard]] bool find(int token) noexcept;

    [[nodiscard]] int getTokenNumber() const noexcept { return tokenAt(pos); }
    /// Lives as long as the dictionary.
    [[nodiscard]] std::string_view getTokenName() const noexcept;
    [[nodiscard]] tivra::ValueTypes getValueType() const noexcept;

    [[nodiscard]] int64_t getValueAsInteger() const noexcept;
    [[nodiscard]] double getValueAsDouble() const noexcept;
    /// Lives as long as the message, that of a number as long as `room`.
    [[nodiscard]] std::string_view getValueAsString(NumberText& room) const noexcept;
    /// Lives as long as the message, or until the next text of a number.
    [[nodiscard]] std::string_view getValueAsStringView() const noexcept {
        return getValueAsString(m_number);
    }
    [[nodiscard]] tivra::DateTime getValueAsDateTime() const noexcept;

private:
    [[nodiscard]] int pairCount() const noexcept { return msg != nullptr ? msg->pairCount() : 0; }
    [[nodiscard]] int tokenAt(int index) const noexcept {
        return index >= 0 && index < pairCount() ? msg->tokenOf(index)->kvnid : END_OF_MESSAGE;
    }
    /// The token that the reader stands on, null off a pair.
    [[nodiscard]] const KVNAPI::Token* currentToken() const noexcept {
        return pos >= 0 && pos < pairCount() ? msg->tokenOf(pos) : nullptr;
    }
    /// False off a pair or when its type is unknown.
    [[nodiscard]] bool isReadable() const noexcept { return getValueType() != tivra::UNKNOWN; }
    /// A copy, so that getters leave the message as it is.
    [[nodiscard]] KVNAPI::TVPair currentPair() const noexcept { return msg->readPair(pos); }

    int32_t pos = -1; ///< -1 before the first pair, the count of pairs behind the last
    const KVNAPI::Message* msg = nullptr;
    const MetaTokenMap* m_dicMap = nullptr;
    mutable NumberText m_number; ///< the text of a number
};

} // namespace tivra_internal
