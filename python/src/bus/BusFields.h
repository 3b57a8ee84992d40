#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include <feed/FieldTable.h>
#include <feed/Instrument.h>
#include <feed/Record.h>
#include <reader/BusUpdate.h>

namespace tivra_python {

/// The names of fields that the bus has brought or the application has asked for, by which updates become
/// records. Copies share them. @thread any
class BusFields {
public:
    [[nodiscard]] tivra::Field field(std::string_view name) const;
    [[nodiscard]] tivra::Record recordOf(const tivra::BusUpdate& update) const;
    /// Without any fields.
    [[nodiscard]] tivra::Record emptyRecord(const tivra::Instrument& instrument) const;
    /// The fields of both, with the values of the later one where both have them.
    [[nodiscard]] tivra::Record merged(const tivra::Record& earlier, const tivra::Record& later) const;

    /// Of the memory that a record takes, about.
    [[nodiscard]] static std::size_t bytesOf(const tivra::Record& record);

private:
    std::shared_ptr<tivra_internal::FieldTable> m_table = std::make_shared<tivra_internal::FieldTable>();
};

} // namespace tivra_python
