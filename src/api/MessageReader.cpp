#include <data/MessageReader.h>

#include "receive/MessageReaderImpl.h"

namespace tivra {

MessageReader::MessageReader(tivra_internal::MessageReaderImpl* impl) noexcept : messageReaderImpl(impl) {}

MessageReader::~MessageReader() {
    delete messageReaderImpl;
}

int MessageReader::next() {
    return messageReaderImpl->next();
}

int MessageReader::peek() const {
    return messageReaderImpl->peek();
}

bool MessageReader::find(int token) {
    return messageReaderImpl->find(token);
}

int MessageReader::getTokenNumber() const {
    return messageReaderImpl->getTokenNumber();
}

std::string MessageReader::getTokenName() const {
    return std::string(messageReaderImpl->getTokenName());
}

std::string_view MessageReader::getTokenNameView() const {
    return messageReaderImpl->getTokenName();
}

ValueTypes MessageReader::getValueType() const {
    return messageReaderImpl->getValueType();
}

int64_t MessageReader::getValueAsInteger() const {
    return messageReaderImpl->getValueAsInteger();
}

double MessageReader::getValueAsDouble() const {
    return messageReaderImpl->getValueAsDouble();
}

std::string MessageReader::getValueAsString() const {
    tivra_internal::NumberText room;
    return std::string(messageReaderImpl->getValueAsString(room));
}

std::string_view MessageReader::getValueAsStringView() const {
    return messageReaderImpl->getValueAsStringView();
}

DateTime MessageReader::getValueAsDateTime() const {
    return messageReaderImpl->getValueAsDateTime();
}

} // namespace tivra
