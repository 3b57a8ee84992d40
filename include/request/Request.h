#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "TivraApi.h"
#include "request/Commands.h"
#include "request/RequestParameters.h"

namespace tivra_internal {
class HandleAccess;
class RequestImpl;
} // namespace tivra_internal

namespace tivra {

/// A request while it is built: a command and the fields that go with it.
///
/// Made by Session::createRequest, given back with Session::freeRequest. It can be sent any number of times,
/// and built anew after clearRequest(). Fields stand in the request in the order of the calls.
///
/// @thread application; one thread at a time may use a request.
class TIVRA_API Request {
public:
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    /// Sets what is asked for. Call it once per request: a second call adds a second command to the first. A
    /// value outside the enumeration is logged at the warning level and leaves the request without a command.
    void setCommand(Commands command);

    /// Adds a field with a 32-bit value. A symbol must be added as a text, otherwise routing doesn't see it.
    /// The tokens 5022 and 5026 are the library's own: they are logged at the warning level and not added.
    Request& add(RequestParameters parameter, int value);
    /// Adds a field with a 64-bit value; use it for tags (QUERY_REF_TAG).
    Request& add(RequestParameters parameter, int64_t value);
    /// Adds a field with a text, without white space at its ends. One with a "|" or a control character, or
    /// of over 4095 characters, is refused with a warning: Session::send returns 0 until clearRequest().
    Request& add(RequestParameters parameter, const std::string& value);
    /// Adds a field by its token number.
    Request& add(int token, int value);
    /// Adds a field by its token number.
    Request& add(int token, int64_t value);
    /// Adds a field by its token number.
    Request& add(int token, const std::string& value);
    /// Keeps a null pointer from passing as a text.
    Request& add(int token, std::nullptr_t value) = delete;

    /// Takes the tag that the next Session::send of this request will return, so that it is known before the
    /// first answer can come. It survives clearRequest() and is used up by a successful send.
    /// @return 18 or above; 0 when the session that made the request is gone.
    int64_t generateTag();

    /// Empties the request for reuse.
    void clearRequest();

private:
    friend class tivra_internal::HandleAccess;

    explicit Request(tivra_internal::RequestImpl* impl) noexcept;
    ~Request();

    tivra_internal::RequestImpl* requestImpl;
};

} // namespace tivra
