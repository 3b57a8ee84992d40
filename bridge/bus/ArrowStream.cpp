#include "bus/ArrowStream.h"

#include "bus/ArrowTables.h"
#include "bus/BusError.h"
#include "bus/BusRecord.h"
#include "bus/FlatTable.h"
#include "bus/RecordColumns.h"

#include <fmt/format.h>
#include <nanoarrow/nanoarrow.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>

namespace tivra_bus {

namespace {

constexpr std::string_view kBegin("\xff\xff\xff\xff", 4);
constexpr std::size_t kPrefix = 8;
/// Of messages, of bodies and of buffers in them.
constexpr std::size_t kAlignment = 8;
constexpr std::int64_t kMostRows = std::int64_t{1} << 24;
/// Of metadata, those that are looked at.
constexpr std::size_t kMostPairs = 16;

[[noreturn]] void fail(const std::string& what) {
    throw BatchError("a batch: an Arrow stream: " + what);
}
[[noreturn]] void failColumn(const std::string& name, const std::string& what) {
    throw BatchError(fmt::format("a batch, column \"{}\": {}", name, what));
}

/// The value of that key; empty where there is none.
std::string_view metadataOf(const FlatTable& table, unsigned metadata, std::string_view key) {
    const std::size_t count = std::min(table.count(metadata), kMostPairs);
    for (std::size_t i = 0; i < count; ++i) {
        const FlatTable found = table.tableAt(metadata, i);
        if (found.text(pair::Key) == key)
            return found.text(pair::Value);
    }
    return {};
}

/// Of a column or its field: it is copied for each value.
std::string nameIn(std::string_view name) {
    if (name.size() > kMostFieldName)
        fail(fmt::format("names of at most {} bytes were wanted", kMostFieldName));
    return std::string(name);
}

std::optional<ArrowKind> integerKind(const FlatTable& type) {
    const auto bits = type.number<std::int32_t>(integer::Bits);
    const bool isSigned = type.number<std::uint8_t>(integer::IsSigned) != 0;
    if (bits == 64)
        return isSigned ? ArrowKind::Int64 : ArrowKind::UInt64;
    return bits == 32 && isSigned ? std::optional(ArrowKind::Int32) : std::nullopt;
}

/// What a column of one value for each row has; nothing for what no bridge writes.
std::optional<ArrowKind> kindOf(const FlatTable& column) {
    const std::optional<FlatTable> type = column.table(field::Type);
    if (!type || column.has(field::Dictionary))
        return std::nullopt;
    std::optional<ArrowKind> kind;
    switch (column.number<std::uint8_t>(field::TypeType)) {
    case field::Int:
        return integerKind(*type);
    case field::FloatingPoint:
        if (type->number<std::int16_t>(floating::Precision) == floating::Double)
            kind = ArrowKind::Double;
        break;
    case field::Timestamp:
        if (type->number<std::int16_t>(timestamp::Unit) == timestamp::Microsecond &&
            type->text(timestamp::Zone) == "UTC")
            kind = ArrowKind::Time;
        break;
    case field::Utf8:
    case field::Binary:
        kind = ArrowKind::Text;
        break;
    default:
        break;
    }
    return kind;
}

bool isList(const FlatTable& column) {
    return column.number<std::uint8_t>(field::TypeType) == field::List;
}

/// That of the values, those of a list too.
FlatTable innermost(const FlatTable& column) {
    return isList(column) && column.count(field::Children) == 1 ? column.tableAt(field::Children, 0) : column;
}

ArrowColumnType columnOf(const FlatTable& table) {
    ArrowColumnType column;
    column.name = nameIn(table.text(field::Name));
    column.field = nameIn(metadataOf(table, field::Metadata, kFieldKey));
    column.isList = isList(table);
    const auto kind = kindOf(innermost(table));
    if (!kind)
        failColumn(column.name, "another type than bridges write");
    column.kind = *kind;
    return column;
}

ArrowType typeOf(ArrowKind kind) {
    switch (kind) {
    case ArrowKind::Int32:
        return NANOARROW_TYPE_INT32;
    case ArrowKind::UInt64:
        return NANOARROW_TYPE_UINT64;
    case ArrowKind::Int64:
    case ArrowKind::Time:
        return NANOARROW_TYPE_INT64;
    case ArrowKind::Double:
        return NANOARROW_TYPE_DOUBLE;
    case ArrowKind::Text:
        break;
    }
    return NANOARROW_TYPE_BINARY;
}

/// The arrays of a column, for the library to check.
struct CheckedView {
    CheckedView() { ArrowArrayViewInitFromType(&view, NANOARROW_TYPE_UNINITIALIZED); }
    ~CheckedView() { ArrowArrayViewReset(&view); }
    CheckedView(const CheckedView&) = delete;
    CheckedView& operator=(const CheckedView&) = delete;

    ArrowArrayView view{};
};

} // namespace

/// One of the stream's messages.
struct ArrowStream::Message {
    FlatTable table;
    std::string_view body;

    /// What it is about; nothing where that is something else than wanted.
    [[nodiscard]] std::optional<FlatTable> header(std::uint8_t wanted) const {
        const bool isWanted = table.number<std::uint8_t>(message::HeaderType) == wanted;
        return isWanted ? table.table(message::Header) : std::nullopt;
    }
};

/// Where the arrays of a batch are, in their order.
struct ArrowStream::Places {
    FlatTable batch;
    std::string_view body;
    std::size_t node = 0, buffer = 0; ///< the next ones
    std::int64_t end = 0;             ///< of the buffers so far

    void takeNode(ArrowArrayView& view, const std::string& name) {
        if (node >= batch.count(record_batch::Nodes))
            failColumn(name, "it is missing in the batch");
        const auto [length, nulls] = batch.pairAt(record_batch::Nodes, node++);
        view.length = length;
        view.null_count = nulls;
        if (view.length < 0 || view.length > kMostRows || view.null_count < 0 ||
            view.null_count > view.length)
            failColumn(name, "a length in its range was wanted");
    }
    const char* takeBuffer(ArrowBufferView& view, const std::string& name) {
        if (buffer >= batch.count(record_batch::Buffers))
            failColumn(name, "a buffer is missing in the batch");
        const auto [begin, length] = batch.pairAt(record_batch::Buffers, buffer++);
        const auto most = static_cast<std::int64_t>(body.size());
        if (begin < 0 || length < 0 || begin > most || length > most - begin ||
            begin % static_cast<std::int64_t>(kAlignment) != 0)
            failColumn(name, "a buffer isn't within the batch");
        // Columns that share their bytes would make far more values than a message has room for.
        if (length > 0 && begin < end)
            failColumn(name, "a buffer begins before the one before it ends");
        end = std::max(end, begin + length);
        view.data.data = body.data() + begin;
        view.size_bytes = length;
        return length == 0 ? nullptr : body.data() + begin;
    }
};

bool ArrowStream::isOne(std::string_view bytes) {
    return bytes.substr(0, kBegin.size()) == kBegin;
}

ArrowStream::ArrowStream(std::string_view bytes) : m_rest(bytes) {
    if (reinterpret_cast<std::uintptr_t>(bytes.data()) % kAlignment != 0) {
        m_copy.resize((bytes.size() + kAlignment - 1) / kAlignment);
        std::memcpy(m_copy.data(), bytes.data(), bytes.size());
        m_rest = {reinterpret_cast<const char*>(m_copy.data()), bytes.size()};
    }
    const std::optional<FlatTable> schema = [this] {
        const std::optional<Message> first = nextMessage();
        return first ? first->header(message::Schema) : std::nullopt;
    }();
    if (!schema)
        fail("it has no schema");
    readSchema(*schema);
}

std::optional<ArrowStream::Message> ArrowStream::nextMessage() {
    if (m_rest.size() < kPrefix || m_rest.substr(0, kBegin.size()) != kBegin)
        fail("a message was wanted");
    std::uint32_t length = 0;
    for (std::size_t i = kPrefix; i-- > kBegin.size();)
        length = length << 8 | static_cast<unsigned char>(m_rest[i]);
    m_rest.remove_prefix(kPrefix);
    if (length == 0)
        return std::nullopt;
    if (length > m_rest.size() || length % kAlignment != 0)
        fail("a message has a length that isn't its own");
    Message message{FlatTable(m_rest.substr(0, length)), {}};
    m_rest.remove_prefix(length);
    const auto body = message.table.number<std::int64_t>(message::BodyLength);
    if (body < 0 || static_cast<std::uint64_t>(body) > m_rest.size() ||
        static_cast<std::uint64_t>(body) % kAlignment != 0)
        fail("a message ends before its body does");
    message.body = m_rest.substr(0, static_cast<std::size_t>(body));
    m_rest.remove_prefix(message.body.size());
    return message;
}

void ArrowStream::readSchema(const FlatTable& table) {
    constexpr auto kOurs = std::endian::native == std::endian::little ? schema::Little : schema::Big;
    if (table.number<std::int16_t>(schema::Endianness) != kOurs)
        fail("its numbers have another order of bytes than those of this machine");
    m_header = metadataOf(table, schema::Metadata, kHeaderKey);
    if (m_header.empty())
        fail(fmt::format("its schema has no metadata \"{}\"", kHeaderKey));
    const std::size_t count = table.count(schema::Fields);
    if (count > kMostColumns)
        fail(fmt::format("at most {} columns were wanted", kMostColumns));
    m_columns.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const FlatTable column = table.tableAt(schema::Fields, i);
        m_columns.push_back(columnOf(column));
        m_isBinary.push_back(innermost(column).number<std::uint8_t>(field::TypeType) == field::Binary);
    }
}

bool ArrowStream::nextBatch() {
    const std::optional<Message> next = nextMessage();
    if (!next) {
        if (!m_rest.empty())
            fail(fmt::format("{} bytes are left after its end", m_rest.size()));
        return false;
    }
    const std::optional<FlatTable> batch = next->header(message::RecordBatch);
    if (!batch)
        fail("a batch was wanted after the schema");
    const auto rows = batch->number<std::int64_t>(record_batch::Length);
    if (rows < 0 || rows > kMostRows)
        fail("a number of rows in its range was wanted");
    if (batch->has(record_batch::Compression))
        fail("it is compressed, which no bridge does");
    m_rows = static_cast<std::size_t>(rows);
    m_values.clear();
    Places places{*batch, next->body};
    for (const ArrowColumnType& column : m_columns)
        m_values.push_back(valuesOf(column, places));
    return true;
}

ArrowValues ArrowStream::valuesOf(const ArrowColumnType& column, Places& places) const {
    CheckedView checked;
    ArrowArrayView& view = checked.view;
    ArrowArrayViewInitFromType(&view, column.isList ? NANOARROW_TYPE_LIST : typeOf(column.kind));
    places.takeNode(view, column.name);
    if (static_cast<std::size_t>(view.length) != m_rows)
        failColumn(column.name, "as many rows as in others were wanted");
    ArrowValues values;
    values.validity = places.takeBuffer(view.buffer_views[0], column.name);
    if (values.validity == nullptr && view.null_count > 0)
        failColumn(column.name, "it has nulls, and doesn't say which");
    if (values.validity != nullptr && static_cast<std::size_t>(view.buffer_views[0].size_bytes) * 8 < m_rows)
        failColumn(column.name, "it doesn't say for each row whether it is null");
    ArrowArrayView* inner = &view;
    if (column.isList) {
        values.lists = places.takeBuffer(view.buffer_views[1], column.name);
        if (ArrowArrayViewAllocateChildren(&view, 1) != NANOARROW_OK)
            throw std::bad_alloc();
        inner = view.children[0];
        ArrowArrayViewInitFromType(inner, typeOf(column.kind));
        places.takeNode(*inner, column.name);
        if (inner->null_count != 0)
            failColumn(column.name, "a list has nulls");
        (void)places.takeBuffer(inner->buffer_views[0], column.name);
    }
    if (column.kind == ArrowKind::Text)
        values.texts = places.takeBuffer(inner->buffer_views[1], column.name);
    values.data = places.takeBuffer(inner->buffer_views[column.kind == ArrowKind::Text ? 2 : 1], column.name);
    ArrowError error;
    if (ArrowArrayViewValidate(&view, NANOARROW_VALIDATION_LEVEL_FULL, &error) != NANOARROW_OK)
        failColumn(column.name, error.message);
    return values;
}

} // namespace tivra_bus
