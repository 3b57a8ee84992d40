#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <event/MessageEvent.h>

#include "config/HandleAccess.h"
#include "kvnparse/Message.h"
#include "request/AltIndexInfo.h"

namespace tivra_internal {

class HostConfigImpl;
class MetaTokenMap;
class MessageReaderImpl;
class ReadHandlerSession;

/// The one message event of a read handler, filled anew for each message. It borrows message and alternate
/// indexes for the time of one callback; without a message it answers with empty values.
/// @thread user
class MessageEventImpl {
public:
    /// @param hostConfig  settings of the hub; null for the dummy, whose messages are never conflated
    MessageEventImpl(ReadHandlerSession& session, const HostConfigImpl* hostConfig);

    // --- what the read handler fills in ---
    void setDicMap(MetaTokenMap* dictionary);
    /// The bytes that the next message is parsed from, which live until the event forgets it.
    void setBody(std::string_view body) noexcept { m_body = body; }
    /// Takes a message, without status, tag, command and alternate indexes, and rewinds the reader.
    void setMessage(KVNAPI::Message& message) noexcept;
    void setStatusCode(int64_t status) noexcept { m_statusCode = static_cast<int32_t>(status); }
    void setTag(int64_t tag) noexcept { m_tag = tag; }
    void setCommand(tivra::Commands command) noexcept {
        m_command = command;
        m_isCommandSet = true;
    }
    void setAlternateIndex(const std::vector<AltIndexInfo>* indexes) noexcept { m_alternateIndex = indexes; }
    /// The callback has returned: forgets the message.
    void releaseMessage() noexcept;

    // --- what the application asks; see tivra::MessageEvent ---
    [[nodiscard]] tivra::MessageEvent::Types getType() const noexcept;
    [[nodiscard]] tivra::MessageReader& getReader() const noexcept { return *msgReader; }
    [[nodiscard]] tivra::Session& getSession() const;
    [[nodiscard]] int isConflatable() const noexcept;
    [[nodiscard]] std::string_view getSymbol() const noexcept;
    [[nodiscard]] int getPermission() const noexcept;
    [[nodiscard]] int getSource() const noexcept;
    [[nodiscard]] char getPartCode() const noexcept;
    [[nodiscard]] int getDisplayPrecision() const noexcept;
    [[nodiscard]] int getStatusCode() const noexcept { return m_statusCode; }
    [[nodiscard]] std::string_view getStatusString() const;
    [[nodiscard]] int64_t getTag() const noexcept { return m_tag; }
    [[nodiscard]] std::string_view getBody() const noexcept {
        return m_msg != nullptr ? m_body : std::string_view();
    }
    [[nodiscard]] std::size_t getNumberofAlternateIndexes() const noexcept;
    [[nodiscard]] int getAlternateIndexTokenNumber(std::size_t i) const noexcept;
    [[nodiscard]] std::string_view getAlternateIndexTokenName(std::size_t i) const noexcept;
    [[nodiscard]] std::string_view getAlternateIndexValue(std::size_t i) const noexcept;

private:
    [[nodiscard]] const AltIndexInfo* alternateIndex(std::size_t i) const noexcept;

    ReadHandlerSession& sessionImpl;
    MessageReaderImpl* m_reader; ///< behind `msgReader`
    HandlePtr<tivra::MessageReader> msgReader;
    const KVNAPI::Token* conflationIndicTok = nullptr; ///< null when the dictionary lacks it
    const bool isSendingConflationIndicator;
    MetaTokenMap* m_dicMap = nullptr;

    // Of the message that is being delivered.
    const KVNAPI::Message* m_msg = nullptr;
    std::string_view m_body;
    int32_t m_statusCode = 0;
    int64_t m_tag = 0;
    tivra::Commands m_command = tivra::SUBSCRIBE;
    bool m_isCommandSet = false;
    const std::vector<AltIndexInfo>* m_alternateIndex = nullptr;
};

} // namespace tivra_internal
