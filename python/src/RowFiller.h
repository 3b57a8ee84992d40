#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <feed/Field.h>
#include <feed/Value.h>

#include "columns/RowBuilder.h"

namespace tivra_python {

/// A field that becomes a column.
struct FieldColumn {
    tivra::Field field;
    ColumnSpec spec;
};

/// Turns updates into rows of the chosen fields. One thread at a time, without the interpreter's lock.
class RowFiller {
public:
    explicit RowFiller(const std::vector<FieldColumn>& columns);

    /// @param values  an Update or a Record
    template<class Values>
    void add(const RowHead& head, const Values& values) {
        m_builder.begin(head);
        for (std::size_t i = 0; i < m_fields.size(); ++i)
            if (const auto value = values.get(m_fields[i]))
                set(i, *value);
        m_builder.end();
    }

    [[nodiscard]] std::size_t rows() const noexcept { return m_builder.rows(); }
    [[nodiscard]] std::size_t bytes() const noexcept { return m_builder.bytes(); }
    [[nodiscard]] bool isFull() const noexcept { return m_builder.isFull(); }
    [[nodiscard]] std::shared_ptr<RowBatch> finish() { return m_builder.finish(); }

private:
    void set(std::size_t column, const tivra::Value& value);

    std::vector<tivra::Field> m_fields;
    RowBuilder m_builder;
};

} // namespace tivra_python
