#pragma once

#include "columns/ColumnSpec.h"

#include <dictionary/MetaTokenMap.h>

#include <string>
#include <string_view>
#include <vector>

namespace tivra_python {

/// A field as a hub lists it.
struct DictionaryField {
    int number = 0;
    std::string name;
    std::string type; ///< a type word, such as INTEGER; any other text stands for STRING
};

/// What the numbers of one file mean. One thread at a time.
class FieldDictionary {
public:
    /// Those of the fields that can be had, besides what every client knows: of two with one number or name
    /// the first stays.
    explicit FieldDictionary(const std::vector<DictionaryField>& fields);

    [[nodiscard]] tivra_internal::MetaTokenMap& map() noexcept { return m_map; }
    /// The field of that name, or findOrAdd() of that number for a text of digits; null when there is none.
    [[nodiscard]] const tivra_internal::MetaToken* find(const std::string& nameOrNumber);
    /// The field of that number; null when there is none.
    [[nodiscard]] const tivra_internal::MetaToken* known(int number) const;
    /// The field of that number. One that isn't known is taken for a text, which is called by its number;
    /// null when there is no room for it.
    const tivra_internal::MetaToken* findOrAdd(int number);

private:
    bool add(const DictionaryField& field);

    tivra_internal::MetaTokenMap m_map;
};

/// The column of the names of those fields that a message takes the value away from, with "," between them.
inline constexpr const char* kDeletedFields = "TOKEN.DEL";

/// What a column of that field holds.
[[nodiscard]] ColumnType columnTypeOf(const tivra_internal::MetaToken& field) noexcept;

/// The fields of the simulator, and so those of a trading-day file.
[[nodiscard]] std::vector<DictionaryField> builtinFields();

/// The fields of a map file, whose numbers are integers or floating-point numbers: it knows no times. Throws
/// FileFault with `name` and the line.
[[nodiscard]] std::vector<DictionaryField> fieldsOfMap(std::string_view text, const std::string& name);

} // namespace tivra_python
