#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <feed/Field.h>
#include <feed/Value.h>

#include "columns/RowBuilder.h"

namespace tivra_python {

/// What a column of a field is filled with where the decoder takes the field out of a message.
enum class HeadField { None, Source, Symbol, Refresh };

/// A field that becomes a column.
struct FieldColumn {
    tivra::Field field;
    ColumnSpec spec;
    HeadField head = HeadField::None;
};

/// What rows are made of.
struct RowFields {
    std::vector<FieldColumn> columns;
    std::optional<tivra::Field> tag; ///< the field that says which request an image answers
};

/// Turns updates into rows of the chosen fields. One thread at a time, without the interpreter's lock.
class RowFiller {
public:
    explicit RowFiller(const RowFields& fields);

    /// @param values  an Update or a Record
    template<class Values>
    void add(RowHead head, const Values& values) {
        if (head.kind == RowKind::Image && m_tag)
            if (const auto tag = values.get(*m_tag))
                setTag(head, *tag);
        m_builder.begin(head);
        for (std::size_t i = 0; i < m_fields.size(); ++i)
            if (const auto value = values.get(m_fields[i]))
                set(i, *value);
        for (const HeadColumn& column : m_headColumns)
            set(column, head);
        m_builder.end();
    }

    [[nodiscard]] std::size_t rows() const noexcept { return m_builder.rows(); }
    [[nodiscard]] std::size_t bytes() const noexcept { return m_builder.bytes(); }
    [[nodiscard]] bool isFull() const noexcept { return m_builder.isFull(); }
    [[nodiscard]] std::shared_ptr<RowBatch> finish() { return m_builder.finish(); }

private:
    struct HeadColumn {
        std::size_t index;
        HeadField field;
    };

    static void setTag(RowHead& head, const tivra::Value& value);
    void set(std::size_t column, const tivra::Value& value);
    void set(const HeadColumn& column, const RowHead& head);

    std::vector<tivra::Field> m_fields;
    std::vector<HeadColumn> m_headColumns; ///< few, or none as a rule
    std::optional<tivra::Field> m_tag;
    RowBuilder m_builder;
};

} // namespace tivra_python
