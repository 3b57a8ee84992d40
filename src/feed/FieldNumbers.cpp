#include <feed/FieldNumbers.h>

#include "feed/HubFields.h"

namespace tivra {

std::uint64_t FieldNumbers::id() const noexcept {
    return m_fields->numbering();
}

std::optional<FieldNumbers::Meaning> FieldNumbers::find(int number) const noexcept {
    return m_fields->meaningOf(number);
}

} // namespace tivra
