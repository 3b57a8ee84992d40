#pragma once

#include "Dictionary.h"
#include "Frame.h"

#include <string>
#include <string_view>
#include <vector>

namespace tivra_wire {

/// A message of a frame or a line as other programs read it: one JSON object per line, or CSV.
class FieldText {
public:
    /// @param columns  fields that get a column of CSV, by name or number; none gives a row for each field
    FieldText(const Dictionary& dictionary, Form from, std::vector<std::string> columns);

    [[nodiscard]] std::string csvHeader() const;
    [[nodiscard]] std::string csv(const Frame& frame);
    [[nodiscard]] std::string json(const Frame& frame);
    /// A note of a capture as JSON.
    [[nodiscard]] static std::string noteJson(const Frame& frame);

private:
    struct Field {
        const KVNAPI::Token* token = nullptr; ///< null for one that the dictionary lacks
        std::string_view id;                  ///< as it stands in the message
        std::string_view value;

        [[nodiscard]] std::string name() const;
        [[nodiscard]] bool isDeleted() const;
    };

    /// Takes a message apart; what every message has goes into m_source and m_symbol.
    void read(const Frame& frame);
    [[nodiscard]] bool isColumn(const Field& field, const std::string& column) const;

    const Dictionary& m_dictionary;
    const bool m_isLine;
    const std::vector<std::string> m_columns;
    std::vector<Field> m_fields;
    std::string_view m_source;
    std::string_view m_symbol;
};

} // namespace tivra_wire
