#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra_internal {
class FieldTable;
struct FieldEntry;
} // namespace tivra_internal

namespace tivra {

/// A field by its name, made by Feed::field. It goes on meaning the same when hubs number their fields
/// differently, and when a hub comes back with another dictionary. A copy costs nothing; it lives as long as
/// anything of its feed.
/// @thread any
class TIVRA_API Field {
public:
    /// A field that nothing has.
    Field() = default;

    /// Empty for a field that nothing has.
    const std::string& name() const noexcept;

    /// Whether both are the same field of the same feed; those of two feeds differ, whatever their names.
    friend bool operator==(const Field& a, const Field& b) noexcept { return a.m_entry == b.m_entry; }
    /// The opposite.
    friend bool operator!=(const Field& a, const Field& b) noexcept { return a.m_entry != b.m_entry; }

private:
    friend class tivra_internal::FieldTable;

    explicit Field(const tivra_internal::FieldEntry* entry) noexcept : m_entry(entry) {}

    const tivra_internal::FieldEntry* m_entry = nullptr;
};

} // namespace tivra
