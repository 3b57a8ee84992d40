#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "TivraApi.h"
#include "data/DateTime.h"
#include "data/ValueTypes.h"

namespace tivra_internal {
class HandleAccess;
class MessageReaderImpl;
} // namespace tivra_internal

namespace tivra {

/// Walks the fields of one message, obtained with MessageEvent::getReader and valid during the callback only.
///
/// A field is a token (its number and name come from the hub's dictionary) and a value. The reader starts
/// before the first field; next() moves on. A value can be asked for in any type and is converted on demand.
/// Nothing here fails visibly: off a field the results are -1, -1.0, the empty text, "UNKNOWN" or
/// END_OF_MESSAGE.
///
/// @thread user
class TIVRA_API MessageReader {
public:
    /// What next() and peek() return behind the last field.
    static constexpr int END_OF_MESSAGE = -1;

    MessageReader(const MessageReader&) = delete;
    MessageReader& operator=(const MessageReader&) = delete;

    /// Moves to the next field.
    /// @return its token number, or END_OF_MESSAGE.
    int next();
    /// The next field's token number without moving, or END_OF_MESSAGE.
    int peek() const;
    /// Moves to the first field with that token number, wherever it stands.
    /// @return false when the message has none (or the dictionary doesn't know the number); the reader then
    ///         stays where it is.
    bool find(int token);

    /// The current field's token number; -1 off a field.
    int getTokenNumber() const;
    /// The current field's token name; "UNKNOWN" off a field.
    std::string getTokenName() const;
    /// The same without a copy: valid during the callback.
    std::string_view getTokenNameView() const;
    /// The current field's type; UNKNOWN off a field.
    ValueTypes getValueType() const;

    /// The value as an integer: numbers are cut toward zero and limited to the 64-bit range, a text gives the
    /// digits that it starts with, else 0. -1 off a field.
    int64_t getValueAsInteger() const;
    /// The value as a number: a text gives the decimal number that it starts with, else 0.0. -1.0 off a
    /// field.
    double getValueAsDouble() const;
    /// The value as a text. Empty off a field.
    std::string getValueAsString() const;
    /// The same without a copy: valid during the callback where the field is a text in the message, otherwise
    /// until a value of this reader is asked for as a text again.
    std::string_view getValueAsStringView() const;
    /// The value as a date and time in UTC; numbers are taken as seconds since 1970-01-01 00:00 UTC. The
    /// start of 1970 off a field. DateTime::hasDate and DateTime::hasTime tell nothing about the result.
    DateTime getValueAsDateTime() const;

private:
    friend class tivra_internal::HandleAccess;

    explicit MessageReader(tivra_internal::MessageReaderImpl* impl) noexcept;
    ~MessageReader();

    tivra_internal::MessageReaderImpl* messageReaderImpl;
};

} // namespace tivra
