#include "receive/MessageEventImpl.h"

#include <memory>

#include <tp/eprintf.h>

#include "config/HostConfigImpl.h"
#include "dictionary/MetaTokenMap.h"
#include "receive/MessageReaderImpl.h"
#include "receive/ReadHandlerSession.h"
#include "receive/SystemSource.h"
#include "request/CommandClasses.h"

namespace tivra_internal {

MessageEventImpl::MessageEventImpl(ReadHandlerSession& session, const HostConfigImpl* hostConfig)
    : sessionImpl(session)
    , isSendingConflationIndicator(
          hostConfig != nullptr &&
          hostConfig->getBoolean(tivra::HostConfig::CONFLATION_INDICATOR_BOOL, false)) {
    auto reader = std::make_unique<MessageReaderImpl>();
    m_reader = reader.get();
    msgReader = HandleAccess::make<tivra::MessageReader>(std::move(reader));
}

void MessageEventImpl::setDicMap(MetaTokenMap* dictionary) {
    m_dicMap = dictionary;
    m_reader->setDicMap(dictionary);
    conflationIndicTok = dictionary->lookupTokenViaName("CONFLATE.INDICATOR");
    if (conflationIndicTok == nullptr)
        eprintf(EPF_WARN, "MessageEventImpl::setDicMap: CONFLATE.INDICATOR not defined!");
}

void MessageEventImpl::setMessage(KVNAPI::Message& message) noexcept {
    m_msg = &message;
    m_statusCode = 0;
    m_tag = 0;
    m_isCommandSet = false;
    m_alternateIndex = nullptr;
    m_reader->setMessage(&message);
}

void MessageEventImpl::releaseMessage() noexcept {
    m_msg = nullptr;
    m_statusCode = 0;
    m_tag = 0;
    m_isCommandSet = false;
    m_alternateIndex = nullptr;
    m_reader->setMessage(nullptr);
}

tivra::MessageEvent::Types MessageEventImpl::getType() const noexcept {
    if (m_msg == nullptr)
        return tivra::MessageEvent::UPDATE;
    if (m_msg->isRetCodePresent)
        return m_isCommandSet && isQueryCommand(m_command) ? tivra::MessageEvent::IMAGE_COMPLETE
                                                           : tivra::MessageEvent::STATUS;
    if (m_msg->isTagPresent && getSource() != 0)
        return tivra::MessageEvent::IMAGE_PART;
    return m_msg->isRefresh ? tivra::MessageEvent::REFRESH : tivra::MessageEvent::UPDATE;
}

tivra::Session& MessageEventImpl::getSession() const {
    return sessionImpl.getSession();
}

int MessageEventImpl::isConflatable() const noexcept {
    if (!isSendingConflationIndicator || conflationIndicTok == nullptr || m_msg == nullptr)
        return -1;
    if (m_msg->isRetCodePresent || m_msg->isTagPresent || m_msg->findPosition(conflationIndicTok) >= 0)
        return 0;
    return getSource() == kSystemSource ? 0 : 1;
}

std::string_view MessageEventImpl::getSymbol() const noexcept {
    return m_msg != nullptr ? m_msg->symbol.view() : std::string_view();
}

int MessageEventImpl::getPermission() const noexcept {
    return m_msg != nullptr && m_msg->permission != nullptr ? m_msg->permission->id : 0;
}

int MessageEventImpl::getSource() const noexcept {
    return m_msg != nullptr && m_msg->exchange != nullptr ? m_msg->exchange->id : 0;
}

char MessageEventImpl::getPartCode() const noexcept {
    return m_msg != nullptr ? m_msg->market : '\0';
}

int MessageEventImpl::getDisplayPrecision() const noexcept {
    return (m_msg != nullptr ? m_msg->denomcode : KVNAPI::Denom::getUnknown())->kvncode;
}

std::string_view MessageEventImpl::getStatusString() const {
    return m_msg != nullptr ? sessionImpl.getRetCodeDesc(m_statusCode) : std::string_view();
}

std::size_t MessageEventImpl::getNumberofAlternateIndexes() const noexcept {
    return m_alternateIndex != nullptr ? m_alternateIndex->size() : 0;
}

const AltIndexInfo* MessageEventImpl::alternateIndex(std::size_t i) const noexcept {
    return i < getNumberofAlternateIndexes() ? &(*m_alternateIndex)[i] : nullptr;
}

int MessageEventImpl::getAlternateIndexTokenNumber(std::size_t i) const noexcept {
    const AltIndexInfo* const index = alternateIndex(i);
    return index != nullptr ? index->kvnid : -1;
}

std::string_view MessageEventImpl::getAlternateIndexTokenName(std::size_t i) const noexcept {
    const AltIndexInfo* const index = alternateIndex(i);
    return index != nullptr && m_dicMap != nullptr ? m_dicMap->tokenName(index->kvnid) : "";
}

std::string_view MessageEventImpl::getAlternateIndexValue(std::size_t i) const noexcept {
    const AltIndexInfo* const index = alternateIndex(i);
    return index != nullptr ? std::string_view(index->value) : std::string_view();
}

} // namespace tivra_internal
