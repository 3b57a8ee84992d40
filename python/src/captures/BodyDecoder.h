#pragma once

#include "captures/FieldDictionary.h"
#include "captures/MessageSource.h"
#include "captures/RowFilter.h"
#include "columns/RowBuilder.h"

#include <kvnparse/Message.h>
#include <kvnparse/Parser.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivra_python {

/// Turns messages into rows, with the decoder of the library. One thread at a time.
class BodyDecoder {
public:
    enum class Outcome { Row, Unwanted, Unreadable };

    /// The dictionary must outlive it. Column i of the builder is that of field i.
    BodyDecoder(FieldDictionary& dictionary, const std::vector<const tivra_internal::MetaToken*>& fields);

    /// Adds a row to the builder if the filter takes the message, with the mark of a gap or without.
    Outcome decode(const SourceMessage& message, const RowFilter& filter, bool isAfterGap, RowBuilder& rows);

    /// Why the last message was unreadable.
    [[nodiscard]] static std::string reason();

    /// Whether a field is one of the columns that every row has.
    [[nodiscard]] static bool isOfHead(const tivra_internal::MetaToken& field);

private:
    static constexpr int kNone = -1;
    static constexpr std::size_t kSmall = 65536;

    [[nodiscard]] int columnOf(const KVNAPI::Token& token) const;
    [[nodiscard]] const KVNAPI::Message* parse(std::string_view body);
    void addHead(const SourceMessage& message, bool isAfterGap, RowBuilder& rows) const;
    void addFields(RowBuilder& rows);
    void addDeleted(std::int64_t number);
    void addLifted(RowBuilder& rows) const;

    FieldDictionary& m_dictionary;
    const tivra_internal::MetaToken* m_tag;
    const tivra_internal::MetaToken* m_status;
    std::vector<int> m_columns; ///< by the number of the field, for the small ones
    std::unordered_map<int, int> m_otherColumns;
    /// Columns of what the parser takes out of the fields.
    int m_deleted = kNone;
    int m_source = kNone;
    int m_symbol = kNone;
    int m_permission = kNone;
    int m_refresh = kNone;
    int m_partCode = kNone;
    int m_precision = kNone;
    std::unique_ptr<KVNAPI::Parser> m_parser;
    KVNAPI::Message m_message;
    std::string m_frame;
    std::string m_deletedNames; ///< of the present message
};

} // namespace tivra_python
