#pragma once

#include <feed/Update.h>

#include <string_view>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class HubFields;
class MessageTimes;
class SubscriptionState;

/// What an Update shows, while it is being delivered.
struct UpdateData {
    const KVNAPI::Message& message;
    HubFields& fields;
    tivra::Update::Kind kind;
    SubscriptionState* subscription; ///< the one that is called
    MessageTimes* times = nullptr;   ///< of the message; null where nobody knows them
    std::string_view body{};         ///< see tivra::Update::body()

    [[nodiscard]] tivra::Update update() const noexcept { return tivra::Update(*this); }
    [[nodiscard]] static const UpdateData& of(const tivra::Update& update) noexcept { return update.m_data; }
};

} // namespace tivra_internal
