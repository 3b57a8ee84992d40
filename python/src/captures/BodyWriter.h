#pragma once

#include "captures/ArrowCells.h"
#include "captures/FieldDictionary.h"
#include "columns/ArrowAbi.h"

#include <capture/CaptureWriter.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tivra_python {

/// Writes rows as the messages that they came from, into a capture. One thread at a time.
class BodyWriter {
public:
    /// Replaces a file that is there. Throws FileFault.
    BodyWriter(const std::string& path, const std::vector<DictionaryField>& fields);

    /// Adds the rows of a struct array with the columns `received` (times), `source` (32-bit integers),
    /// `symbol` and `kind` (texts), `tag` (64-bit integers), `status` (32-bit integers), and one for each
    /// field, by its name. NULL leaves a field out. Throws FileFault with the row for what no message can
    /// hold.
    void add(const ArrowSchema& schema, const ArrowArray& array);
    /// Ends the file; the last call.
    void finish();

    [[nodiscard]] std::uint64_t messages() const noexcept { return m_writer.messages(); }

private:
    /// A column and the number of its field.
    struct Field {
        ArrowCells cells;
        int number;
    };
    struct Head;

    [[nodiscard]] int numberOf(std::string_view name);
    [[nodiscard]] std::vector<Field> fieldsOf(const ArrowSchema& schema, const ArrowArray& array);
    void addRow(const Head& head, const std::vector<Field>& fields, std::int64_t row);
    void put(int number, std::string_view value);
    void put(int number, std::int64_t value);
    void putDeleted(std::string_view names);
    void put(const Field& field, std::int64_t row);

    FieldDictionary m_dictionary;
    const int m_source;
    const int m_symbol;
    const int m_refresh; ///< 0 in a dictionary without
    const int m_tag;
    const int m_status;
    tivra_capture::CaptureWriter m_writer;
    std::string m_body;
};

} // namespace tivra_python
