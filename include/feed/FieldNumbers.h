#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "TivraApi.h"
#include "feed/Value.h"

namespace tivra_internal {
class HubFields;
} // namespace tivra_internal

namespace tivra {

/// How the hub that has sent an update numbers its fields: what the numbers in Update::body() mean. Each hub
/// has a dictionary of its own. Valid as long as the update.
///
/// @thread user
class TIVRA_API FieldNumbers {
public:
    /// What a number stands for.
    struct Meaning {
        std::string_view name;                   ///< of the field; lives as long as the feed
        Value::Type type = Value::Type::Integer; ///< of its values
    };

    /// The same for all hubs of this process that number their fields alike, and another one once a hub has
    /// got further fields. Of no meaning in another process.
    std::uint64_t id() const noexcept;
    /// Nothing for a number that the hub's dictionary doesn't have.
    std::optional<Meaning> find(int number) const noexcept;

private:
    friend class Update;

    explicit FieldNumbers(const tivra_internal::HubFields& fields) noexcept : m_fields(&fields) {}

    const tivra_internal::HubFields* m_fields;
};

} // namespace tivra
