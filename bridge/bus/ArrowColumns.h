#pragma once

#include "bus/ArrowColumn.h"

#include <feed/Value.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace tivra_bus {

/// The columns that a writer's batches have had: those of all records first, in the order of RecordColumn,
/// and then those of fields. One stays once it is there, and a feed bounds how many there are. @thread one at
/// a time
class ArrowColumns {
public:
    ArrowColumns();

    [[nodiscard]] ArrowColumn& operator[](std::size_t index) { return *m_columns[index]; }
    [[nodiscard]] const ArrowColumn& operator[](std::size_t index) const { return *m_columns[index]; }
    [[nodiscard]] std::size_t size() const { return m_columns.size(); }

    /// The column of a field with values of this type.
    /// @param name  which a feed never moves: a field is known by its place
    [[nodiscard]] std::size_t of(const std::string& name, tivra::Value::Type type);
    /// The column for several values of a record, where that one has room for one; kNone while there is none.
    [[nodiscard]] std::size_t findList(std::size_t column) const { return m_lists[column]; }
    [[nodiscard]] std::size_t listOf(std::size_t column);

    static constexpr std::size_t kNone = ~std::size_t{0};

private:
    struct Field {
        const std::string* place;
        tivra::Value::Type type;
        std::size_t column;
        std::size_t next; ///< that came after it the last time
    };
    struct PlaceHash {
        std::size_t operator()(const std::pair<const std::string*, tivra::Value::Type>& key) const {
            return std::hash<const void*>()(key.first) * 4 + static_cast<std::size_t>(key.second);
        }
    };

    [[nodiscard]] std::size_t find(const std::string& name, tivra::Value::Type type);
    [[nodiscard]] std::size_t columnOf(const std::string& name, tivra::Value::Type type);
    std::size_t addColumn(const std::string& field, const std::string& wanted, ArrowKind kind, bool isList);

    std::vector<std::unique_ptr<ArrowColumn>> m_columns;
    std::vector<std::size_t> m_lists; ///< by column
    std::vector<Field> m_fields;
    std::size_t m_last = kNone; ///< the field that was asked for last
    std::unordered_map<std::pair<const std::string*, tivra::Value::Type>, std::size_t, PlaceHash> m_byPlace;
    /// Fields of several hubs may have one name.
    std::map<std::pair<std::string, tivra::Value::Type>, std::size_t> m_byName;
    std::set<std::string> m_names; ///< of all columns
};

} // namespace tivra_bus
