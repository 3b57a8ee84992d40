#include "captures/BodyWriter.h"

#include "captures/FileFault.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace tivra_python {

namespace {

constexpr std::string_view kHeadNames[] = {"received", "source", "symbol", "kind", "tag", "status", "gap"};

bool isHead(std::string_view name) {
    for (const std::string_view head : kHeadNames)
        if (name == head)
            return true;
    return false;
}

/// Seconds with nine decimals, as a hub gives times.
std::string secondsText(std::int64_t nanoseconds) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    const bool isBefore = nanoseconds < 0;
    const std::uint64_t magnitude =
        isBefore ? 0 - static_cast<std::uint64_t>(nanoseconds) : static_cast<std::uint64_t>(nanoseconds);
    const std::string fraction = std::to_string(kSecond + magnitude % kSecond);
    std::string text = isBefore ? "-" : "";
    text.append(std::to_string(magnitude / kSecond)).append(1, '.').append(fraction, 1, std::string::npos);
    return text;
}

ArrowCells columnNamed(const ArrowSchema& schema, const ArrowArray& array, std::string_view name,
                       ArrowCells::Kind kind) {
    for (std::int64_t i = 0; i < schema.n_children; ++i) {
        const ArrowCells cells(*schema.children[i], *array.children[i]);
        if (cells.name() == name && cells.kind() == kind)
            return cells;
    }
    throw FileFault("the rows have no column \"" + std::string(name) + "\" of the type that it needs");
}

tivra_capture::CaptureWriter openWriter(const std::string& path) {
    try {
        return tivra_capture::CaptureWriter(path);
    } catch (const tivra_capture::CaptureError& error) {
        throw FileFault(error.what());
    }
}

} // namespace

/// The columns that every table of messages has.
struct BodyWriter::Head {
    ArrowCells received;
    ArrowCells source;
    ArrowCells symbol;
    ArrowCells kind;
    ArrowCells tag;
    ArrowCells status;
};

BodyWriter::BodyWriter(const std::string& path, const std::vector<DictionaryField>& fields)
    : m_dictionary(fields)
    , m_source(numberOf("ENUM.SRC.ID"))
    , m_symbol(numberOf("SYMBOL.TICKER"))
    , m_refresh(m_dictionary.find("REFRESH") != nullptr ? numberOf("REFRESH") : 0)
    , m_tag(numberOf("QUERY.TAG"))
    , m_status(numberOf("ENUM.QUERY.STATUS"))
    , m_writer(openWriter(path)) {}

void BodyWriter::add(const ArrowSchema& schema, const ArrowArray& array) {
    if (schema.n_children != array.n_children)
        throw FileFault("the rows and their schema don't belong together");
    const auto column = [&](std::string_view name, ArrowCells::Kind kind) {
        return columnNamed(schema, array, name, kind);
    };
    const Head head{column("received", ArrowCells::Kind::Time), column("source", ArrowCells::Kind::Int32),
                    column("symbol", ArrowCells::Kind::Text),   column("kind", ArrowCells::Kind::Text),
                    column("tag", ArrowCells::Kind::Int64),     column("status", ArrowCells::Kind::Int32)};
    const std::vector<Field> fields = fieldsOf(schema, array);
    for (std::int64_t row = 0; row < array.length; ++row) {
        try {
            addRow(head, fields, row);
        } catch (const std::runtime_error& error) {
            throw FileFault("row " + std::to_string(m_writer.messages() + 1) + ": " + error.what());
        }
    }
}

void BodyWriter::finish() {
    try {
        m_writer.finish();
    } catch (const tivra_capture::CaptureError& error) {
        throw FileFault(error.what());
    }
}

int BodyWriter::numberOf(std::string_view name) {
    const tivra_internal::MetaToken* const field = m_dictionary.find(std::string(name));
    if (field == nullptr)
        throw FileFault("the dictionary has no field \"" + std::string(name) + "\", which is a column");
    return field->kvnid;
}

std::vector<BodyWriter::Field> BodyWriter::fieldsOf(const ArrowSchema& schema, const ArrowArray& array) {
    std::vector<Field> fields;
    for (std::int64_t i = 0; i < schema.n_children; ++i) {
        const ArrowCells cells(*schema.children[i], *array.children[i]);
        if (isHead(cells.name()))
            continue;
        if (cells.kind() == ArrowCells::Kind::Other)
            throw FileFault("the column \"" + std::string(cells.name()) +
                            "\" is of a type that no field has");
        // The row says what kind of message it was.
        if (cells.name() != "REFRESH")
            fields.push_back({cells, numberOf(cells.name())});
    }
    return fields;
}

void BodyWriter::addRow(const Head& head, const std::vector<Field>& fields, std::int64_t row) {
    m_body.clear();
    if (!head.source.isNull(row) && head.source.integer(row) != 0)
        put(m_source, head.source.integer(row));
    if (!head.symbol.isNull(row) && !head.symbol.text(row).empty())
        put(m_symbol, head.symbol.text(row));
    if (m_refresh != 0 && !head.kind.isNull(row) && head.kind.text(row) == "refresh")
        put(m_refresh, 1);
    if (!head.tag.isNull(row))
        put(m_tag, head.tag.integer(row));
    if (!head.status.isNull(row))
        put(m_status, head.status.integer(row));
    for (const Field& field : fields)
        if (!field.cells.isNull(row))
            put(field, row);
    if (m_body.size() > tivra_capture::kMaxBody)
        throw FileFault("it is longer than any message can be");
    if (head.received.isNull(row))
        throw FileFault("it has no time of receipt");
    m_writer.add({head.received.integer(row), m_body});
}

void BodyWriter::put(int number, std::string_view value) {
    if (value.find_first_of("|\x03") != std::string_view::npos)
        throw FileFault("field " + std::to_string(number) +
                        " holds a byte that separates fields or messages");
    if (!m_body.empty())
        m_body += '|';
    m_body.append(std::to_string(number)).append(1, '=').append(value);
}

void BodyWriter::put(int number, std::int64_t value) {
    put(number, std::string_view(std::to_string(value)));
}

/// A number without a value takes the last one away.
void BodyWriter::putDeleted(std::string_view names) {
    while (!names.empty()) {
        const std::string_view name = names.substr(0, names.find(','));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        put(numberOf(name), std::string_view());
    }
}

void BodyWriter::put(const Field& field, std::int64_t row) {
    switch (field.cells.kind()) {
    case ArrowCells::Kind::Double: {
        char room[512]; // the longest double without an exponent
        const auto end =
            std::to_chars(room, room + sizeof room, field.cells.number(row), std::chars_format::fixed);
        put(field.number, std::string_view(room, static_cast<std::size_t>(end.ptr - room)));
        break;
    }
    case ArrowCells::Kind::Text:
        if (field.cells.name() == kDeletedFields)
            putDeleted(field.cells.text(row));
        else
            put(field.number, field.cells.text(row));
        break;
    case ArrowCells::Kind::Time:
        put(field.number, std::string_view(secondsText(field.cells.integer(row))));
        break;
    default:
        put(field.number, field.cells.integer(row));
    }
}

} // namespace tivra_python
