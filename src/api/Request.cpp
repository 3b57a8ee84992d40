#include <request/Request.h>

#include "request/RequestImpl.h"

namespace tivra {

Request::Request(tivra_internal::RequestImpl* impl) noexcept : requestImpl(impl) {}

Request::~Request() {
    delete requestImpl;
}

void Request::setCommand(Commands command) {
    requestImpl->setCommand(command);
}

Request& Request::add(RequestParameters parameter, int value) {
    requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(RequestParameters parameter, int64_t value) {
    requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(RequestParameters parameter, const std::string& value) {
    requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(int token, int value) {
    requestImpl->add(token, value);
    return *this;
}

Request& Request::add(int token, int64_t value) {
    requestImpl->add(token, value);
    return *this;
}

Request& Request::add(int token, const std::string& value) {
    requestImpl->add(token, value);
    return *this;
}

int64_t Request::generateTag() {
    return requestImpl->generateTag();
}

void Request::clearRequest() {
    requestImpl->clearRequest();
}

} // namespace tivra
