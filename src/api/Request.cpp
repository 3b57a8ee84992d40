#include <request/Request.h>

#include "request/RequestImpl.h"

namespace tivra {

Request::Request(tivra_internal::RequestImpl* impl) noexcept : requestImpl(impl) {}

Request::~Request() {
    if (!requestImpl->process().isForeign())
        delete requestImpl;
}

void Request::setCommand(Commands command) {
    if (!requestImpl->process().refuses("Request::setCommand"))
        requestImpl->setCommand(command);
}

Request& Request::add(RequestParameters parameter, int value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(RequestParameters parameter, int64_t value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(RequestParameters parameter, const std::string& value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(static_cast<int>(parameter), value);
    return *this;
}

Request& Request::add(int token, int value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(token, value);
    return *this;
}

Request& Request::add(int token, int64_t value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(token, value);
    return *this;
}

Request& Request::add(int token, const std::string& value) {
    if (!requestImpl->process().refuses("Request::add"))
        requestImpl->add(token, value);
    return *this;
}

int64_t Request::generateTag() {
    return requestImpl->process().refuses("Request::generateTag") ? 0 : requestImpl->generateTag();
}

void Request::clearRequest() {
    if (!requestImpl->process().refuses("Request::clearRequest"))
        requestImpl->clearRequest();
}

} // namespace tivra
