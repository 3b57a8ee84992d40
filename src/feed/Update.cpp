#include <feed/Update.h>

#include <feed/Error.h>
#include <feed/Record.h>
#include <feed/Subscription.h>

#include "feed/ClockTime.h"
#include "feed/HubFields.h"
#include "feed/MessageTimes.h"
#include "feed/RecordData.h"
#include "feed/SubscriptionState.h"
#include "feed/UpdateData.h"
#include "kvnparse/Exchange.h"
#include "kvnparse/Message.h"

namespace tivra {

using tivra_internal::FieldEntry;
using tivra_internal::FieldTable;
using tivra_internal::HubFields;

Update::Kind Update::kind() const noexcept {
    return m_data.kind;
}

std::string_view Update::symbol() const noexcept {
    return {m_data.message.symbol.buf, m_data.message.symbol.len};
}

int Update::source() const noexcept {
    return m_data.message.exchange != nullptr ? m_data.message.exchange->id : 0;
}

int Update::permission() const noexcept {
    return m_data.message.permission != nullptr ? m_data.message.permission->id : 0;
}

SubscriptionView Update::subscription() const noexcept {
    return m_data.subscription->view();
}

std::chrono::system_clock::time_point Update::receivedAt() const {
    return m_data.times != nullptr ? m_data.times->receivedAt() : tivra_internal::wallTime();
}

std::chrono::system_clock::time_point Update::decodedAt() const {
    return m_data.times != nullptr ? m_data.times->decodedAt() : tivra_internal::wallTime();
}

std::size_t Update::size() const noexcept {
    return static_cast<std::size_t>(m_data.message.pairCount());
}

bool Update::find(const Field& field, Value& value) const {
    const FieldEntry* const entry = FieldTable::entryOf(field);
    if (entry == nullptr)
        return false;
    if (entry->table != m_data.fields.table().get())
        throw Error({Error::Code::InvalidArgument, Error::Phase::Subscription,
                     "the field " + entry->name + " was made by another feed",
                     "take it from this feed's field()", "", 0, "", 0});
    const KVNAPI::Token* const token = m_data.fields.tokenOf(*entry);
    if (token == nullptr)
        return false;
    const int position = m_data.message.findPosition(token);
    if (position < 0)
        return false;
    value = HubFields::valueOf(m_data.message, position);
    return true;
}

Update::Entry Update::entryAt(std::size_t index) const {
    const int position = static_cast<int>(index);
    return {FieldTable::fieldOf(m_data.fields.fieldOf(*m_data.message.tokenOf(position))),
            HubFields::valueOf(m_data.message, position)};
}

std::string_view Update::body() const noexcept {
    return m_data.body;
}

FieldNumbers Update::numbers() const noexcept {
    return FieldNumbers(m_data.fields);
}

Record Update::copy() const {
    return tivra_internal::RecordData::copyOf(m_data.message, m_data.fields);
}

} // namespace tivra
