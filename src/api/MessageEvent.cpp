#include <event/MessageEvent.h>

#include "receive/MessageEventImpl.h"

namespace tivra {

MessageEvent::MessageEvent(tivra_internal::MessageEventImpl* impl) noexcept : messsgeEventImpl(impl) {}

MessageEvent::~MessageEvent() {
    delete messsgeEventImpl;
}

MessageEvent::Types MessageEvent::getType() const {
    return messsgeEventImpl->getType();
}

MessageReader& MessageEvent::getReader() const {
    return messsgeEventImpl->getReader();
}

Session& MessageEvent::getSession() const {
    return messsgeEventImpl->getSession();
}

int MessageEvent::isConflatable() const {
    return messsgeEventImpl->isConflatable();
}

std::string MessageEvent::getSymbol() const {
    return std::string(messsgeEventImpl->getSymbol());
}

std::string_view MessageEvent::getSymbolView() const {
    return messsgeEventImpl->getSymbol();
}

int MessageEvent::getPermission() const {
    return messsgeEventImpl->getPermission();
}

int MessageEvent::getSource() const {
    return messsgeEventImpl->getSource();
}

char MessageEvent::getPartCode() const {
    return messsgeEventImpl->getPartCode();
}

int MessageEvent::getDisplayPrecision() const {
    return messsgeEventImpl->getDisplayPrecision();
}

int MessageEvent::getStatusCode() const {
    return messsgeEventImpl->getStatusCode();
}

std::string MessageEvent::getStatusString() const {
    return std::string(messsgeEventImpl->getStatusString());
}

std::string_view MessageEvent::getStatusStringView() const {
    return messsgeEventImpl->getStatusString();
}

int64_t MessageEvent::getTag() const {
    return messsgeEventImpl->getTag();
}

std::string_view MessageEvent::getBody() const {
    return messsgeEventImpl->getBody();
}

std::size_t MessageEvent::getNumberofAlternateIndexes() const {
    return messsgeEventImpl->getNumberofAlternateIndexes();
}

int MessageEvent::getAlternateIndexTokenNumber(std::size_t i) const {
    return messsgeEventImpl->getAlternateIndexTokenNumber(i);
}

std::string MessageEvent::getAlternateIndexTokenName(std::size_t i) const {
    return std::string(messsgeEventImpl->getAlternateIndexTokenName(i));
}

std::string_view MessageEvent::getAlternateIndexTokenNameView(std::size_t i) const {
    return messsgeEventImpl->getAlternateIndexTokenName(i);
}

std::string MessageEvent::getAlternateIndexValue(std::size_t i) const {
    return std::string(messsgeEventImpl->getAlternateIndexValue(i));
}

std::string_view MessageEvent::getAlternateIndexValueView(std::size_t i) const {
    return messsgeEventImpl->getAlternateIndexValue(i);
}

} // namespace tivra
