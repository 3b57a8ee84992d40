#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "TivraApi.h"

namespace tivra_internal {
class HandleAccess;
class MessageEventImpl;
} // namespace tivra_internal

namespace tivra {

class MessageReader;
class Session;

/// A message of a hub, handed to MessageEventHandler::onMessageEvent and valid during that call only: the
/// object is used again for the next message. One that was kept answers with empty values.
///
/// Texts are built anew at each call. An application in a hurry takes the views instead, which cost nothing.
///
/// @thread user
class TIVRA_API MessageEvent {
public:
    /// The kinds of message.
    enum Types : int {
        IMAGE_PART = 0,     ///< data of a query's answer
        IMAGE_COMPLETE = 1, ///< the end of a query's answer; getStatusCode() tells how it went
        UPDATE = 2,         ///< a change of a subscribed symbol
        REFRESH = 3,        ///< the full state of a subscribed symbol, sent without being asked for
        STATUS = 4          ///< the answer to a request that isn't a query
    };

    MessageEvent(const MessageEvent&) = delete;
    MessageEvent& operator=(const MessageEvent&) = delete;

    /// The kind of this message.
    Types getType() const;
    /// The fields of the message, positioned before the first one. The same object as the event's, so a
    /// second call goes on where the first reader stands.
    MessageReader& getReader() const;
    /// The session that received the message.
    Session& getSession() const;
    /// Whether the hub may conflate this message: 1 yes, 0 no, -1 unknown because
    /// HostConfig::CONFLATION_INDICATOR_BOOL is off or the hub's dictionary can't tell.
    int isConflatable() const;
    /// The symbol; empty when the message has none.
    std::string getSymbol() const;
    /// The same without a copy: valid during the callback.
    std::string_view getSymbolView() const;
    /// The permission number; 0 when the message has none.
    int getPermission() const;
    /// The source number; 0 when the message has none.
    int getSource() const;
    /// The part of the market that the message is about, one byte as the hub sent it ('Q', say), which need
    /// not be printable; 0 when the message has none. The field, PART.CODE, doesn't appear in the reader.
    char getPartCode() const;
    /// How the hub wants the prices of the message to be shown, a code: 64 to 73 for 0 to 9 decimals; 32 to
    /// 40 for fractions of 1, 2, 4 and so on up to 256 parts; 129, 130 and 131 for 32nds in whole, half and
    /// quarter steps; 132 and 133 for 64ths in whole and half steps; 128 for none of these; 0 for prices as
    /// they are; 1 for unknown, which is also given when the message has no such field. A code that isn't in
    /// this list comes as one that is, as a rule 0 or 1. The field, ENUM.DISPLAY.PRECISION, doesn't appear in
    /// the reader, which gives the prices as the hub sent them whatever the code.
    int getDisplayPrecision() const;
    /// The hub's code; 0 means success or that the message carries none. -997, "Connection lost before the
    /// answer", is the library's own, see SessionConfig::END_LOST_REQUESTS_BOOL.
    int getStatusCode() const;
    /// The name of that code; "Unknown code" for one that nobody has named.
    std::string getStatusString() const;
    /// The same without a copy: valid as long as the session.
    std::string_view getStatusStringView() const;
    /// The tag that Session::send returned for the request that this answers; 0 for a message nobody asked
    /// for.
    int64_t getTag() const;

    /// The message as the hub sent it: the bytes between the header and the end of its frame, fields and all,
    /// before the library has taken anything out of it or changed it. For recorders and for whoever looks for
    /// a fault; nothing is copied, and nothing of it is checked beyond what the reader shows. Answers that
    /// the library makes by itself, for requests to several hubs, have the library's own bytes here.
    ///
    /// Valid during the callback only, as the event is: copy what is to be kept. Empty behind it.
    std::string_view getBody() const;

    /// How many alternate identifiers of the symbol the message carries.
    std::size_t getNumberofAlternateIndexes() const;
    /// The token number of the i-th, from 0; -1 beyond the last.
    int getAlternateIndexTokenNumber(std::size_t i) const;
    /// The token name of the i-th, from 0; empty beyond the last.
    std::string getAlternateIndexTokenName(std::size_t i) const;
    /// The same without a copy: valid during the callback.
    std::string_view getAlternateIndexTokenNameView(std::size_t i) const;
    /// The value of the i-th, from 0; empty beyond the last.
    std::string getAlternateIndexValue(std::size_t i) const;
    /// The same without a copy: valid during the callback.
    std::string_view getAlternateIndexValueView(std::size_t i) const;

private:
    friend class tivra_internal::HandleAccess;

    explicit MessageEvent(tivra_internal::MessageEventImpl* impl) noexcept;
    ~MessageEvent();

    tivra_internal::MessageEventImpl* messsgeEventImpl;
};

} // namespace tivra
