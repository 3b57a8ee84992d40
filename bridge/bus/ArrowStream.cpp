#include "bus/ArrowStream.h"

#include "bus/BusError.h"
#include "bus/RecordColumns.h"

#include <fmt/format.h>
#include <nanoarrow/ipc/flatcc_generated.h>
#include <nanoarrow/nanoarrow.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>

#define FLAT(name) FLATBUFFERS_WRAP_NAMESPACE(org_apache_arrow_flatbuf, name)

namespace tivra_bus {

namespace {

constexpr std::string_view kBegin("\xff\xff\xff\xff", 4);
constexpr std::size_t kPrefix = 8;
/// Of messages, of bodies and of buffers in them.
constexpr std::size_t kAlignment = 8;
constexpr std::int64_t kMostRows = std::int64_t{1} << 24;

[[noreturn]] void fail(const std::string& what) {
    throw BatchError("a batch: an Arrow stream: " + what);
}
[[noreturn]] void failColumn(const std::string& name, const std::string& what) {
    throw BatchError(fmt::format("a batch, column \"{}\": {}", name, what));
}

std::string textOf(flatbuffers_string_t text) {
    return text == nullptr ? std::string() : std::string(text, flatbuffers_string_len(text));
}

/// The value of that key; empty where there is none.
std::string metadataOf(FLAT(KeyValue_vec_t) pairs, std::string_view key) {
    const std::size_t count = FLAT(KeyValue_vec_len(pairs));
    for (std::size_t i = 0; i < count; ++i) {
        const auto pair = FLAT(KeyValue_vec_at(pairs, i));
        if (textOf(FLAT(KeyValue_key(pair))) == key)
            return textOf(FLAT(KeyValue_value(pair)));
    }
    return {};
}

std::optional<ArrowKind> integerKind(FLAT(Int_table_t) type) {
    const auto bits = FLAT(Int_bitWidth(type));
    const bool isSigned = FLAT(Int_is_signed(type)) != 0;
    if (bits == 64)
        return isSigned ? ArrowKind::Int64 : ArrowKind::UInt64;
    return bits == 32 && isSigned ? std::optional(ArrowKind::Int32) : std::nullopt;
}

bool isOurTime(FLAT(Timestamp_table_t) type) {
    return FLAT(Timestamp_unit(type)) == FLAT(TimeUnit_MICROSECOND) &&
           textOf(FLAT(Timestamp_timezone(type))) == "UTC";
}

/// What a column of one value for each row has; nothing for what no bridge writes.
std::optional<ArrowKind> kindOf(FLAT(Field_table_t) field) {
    const auto type = FLAT(Field_type(field));
    if (type == nullptr || FLAT(Field_dictionary_is_present(field)) != 0)
        return std::nullopt;
    switch (FLAT(Field_type_type(field))) {
    case FLAT(Type_Int):
        return integerKind(static_cast<FLAT(Int_table_t)>(type));
    case FLAT(Type_FloatingPoint):
        return FLAT(FloatingPoint_precision(static_cast<FLAT(FloatingPoint_table_t)>(type))) ==
                       FLAT(Precision_DOUBLE)
                   ? std::optional(ArrowKind::Double)
                   : std::nullopt;
    case FLAT(Type_Timestamp):
        return isOurTime(static_cast<FLAT(Timestamp_table_t)>(type)) ? std::optional(ArrowKind::Time)
                                                                     : std::nullopt;
    case FLAT(Type_Utf8):
    case FLAT(Type_Binary):
        return ArrowKind::Text;
    default:
        return std::nullopt;
    }
}

/// The field of the values, those of a list too.
FLAT(Field_table_t) innermost(FLAT(Field_table_t) field) {
    const auto children = FLAT(Field_children(field));
    return FLAT(Field_vec_len(children)) == 0 ? field : FLAT(Field_vec_at(children, 0));
}

ArrowColumnType columnOf(FLAT(Field_table_t) field) {
    ArrowColumnType column;
    column.name = textOf(FLAT(Field_name(field)));
    column.field = metadataOf(FLAT(Field_custom_metadata(field)), kFieldKey);
    const auto children = FLAT(Field_children(field));
    column.isList = FLAT(Field_type_type(field)) == FLAT(Type_List);
    if (FLAT(Field_vec_len(children)) != (column.isList ? 1U : 0U))
        failColumn(column.name, "another type than bridges write");
    const auto kind = kindOf(innermost(field));
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

/// One of the stream's messages, whose tables have been checked.
struct ArrowStream::Message {
    FLAT(Message_table_t) table = nullptr;
    std::string_view body;
};

/// Where the arrays of a batch are, in their order.
struct ArrowStream::Places {
    FLAT(RecordBatch_table_t) batch;
    std::string_view body;
    std::size_t node = 0, buffer = 0; ///< the next ones
    std::int64_t end = 0;             ///< of the buffers so far

    /// Sets length and number of nulls, and at `i` where the next buffers are.
    void takeNode(ArrowArrayView& view, const std::string& name) {
        const auto nodes = FLAT(RecordBatch_nodes(batch));
        if (node >= FLAT(FieldNode_vec_len(nodes)))
            failColumn(name, "it is missing in the batch");
        const auto found = FLAT(FieldNode_vec_at(nodes, node++));
        view.length = FLAT(FieldNode_length(found));
        view.null_count = FLAT(FieldNode_null_count(found));
        if (view.length < 0 || view.length > kMostRows || view.null_count < 0 ||
            view.null_count > view.length)
            failColumn(name, "a length in its range was wanted");
    }
    const char* takeBuffer(ArrowBufferView& view, const std::string& name) {
        const auto buffers = FLAT(RecordBatch_buffers(batch));
        if (buffer >= FLAT(Buffer_vec_len(buffers)))
            failColumn(name, "a buffer is missing in the batch");
        const auto found = FLAT(Buffer_vec_at(buffers, buffer++));
        const std::int64_t begin = FLAT(Buffer_offset(found)), length = FLAT(Buffer_length(found));
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
    Message message;
    if (!nextMessage(message))
        fail("it has no schema");
    readSchema(message);
}

bool ArrowStream::nextMessage(Message& message) {
    if (m_rest.size() < kPrefix || m_rest.substr(0, kBegin.size()) != kBegin)
        fail("a message was wanted");
    std::uint32_t length = 0;
    for (std::size_t i = kPrefix; i-- > kBegin.size();)
        length = length << 8 | static_cast<unsigned char>(m_rest[i]);
    m_rest.remove_prefix(kPrefix);
    if (length == 0)
        return false;
    if (length > m_rest.size() || length % kAlignment != 0)
        fail("a message has a length that isn't its own");
    if (FLAT(Message_verify_as_root(m_rest.data(), length)) != flatcc_verify_ok)
        fail("a message has tables that contradict themselves");
    message.table = FLAT(Message_as_root(m_rest.data()));
    m_rest.remove_prefix(length);
    const std::int64_t body = FLAT(Message_bodyLength(message.table));
    if (body < 0 || static_cast<std::uint64_t>(body) > m_rest.size() ||
        static_cast<std::uint64_t>(body) % kAlignment != 0)
        fail("a message ends before its body does");
    message.body = m_rest.substr(0, static_cast<std::size_t>(body));
    m_rest.remove_prefix(message.body.size());
    return true;
}

void ArrowStream::readSchema(const Message& message) {
    const auto header = FLAT(Message_header(message.table));
    if (FLAT(Message_header_type(message.table)) != FLAT(MessageHeader_Schema) || header == nullptr)
        fail("it has no schema");
    const auto schema = static_cast<FLAT(Schema_table_t)>(header);
    constexpr auto kOurs =
        std::endian::native == std::endian::little ? FLAT(Endianness_Little) : FLAT(Endianness_Big);
    if (FLAT(Schema_endianness(schema)) != kOurs)
        fail("its numbers have another order of bytes than those of this machine");
    m_header = metadataOf(FLAT(Schema_custom_metadata(schema)), kHeaderKey);
    if (m_header.empty())
        fail(fmt::format("its schema has no metadata \"{}\"", kHeaderKey));
    const auto fields = FLAT(Schema_fields(schema));
    const std::size_t count = FLAT(Field_vec_len(fields));
    if (count > kMostColumns)
        fail(fmt::format("at most {} columns were wanted", kMostColumns));
    m_columns.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto field = FLAT(Field_vec_at(fields, i));
        m_columns.push_back(columnOf(field));
        m_isBinary.push_back(FLAT(Field_type_type(innermost(field))) == FLAT(Type_Binary));
    }
}

bool ArrowStream::nextBatch() {
    Message message;
    if (!nextMessage(message)) {
        if (!m_rest.empty())
            fail(fmt::format("{} bytes are left after its end", m_rest.size()));
        return false;
    }
    const auto header = FLAT(Message_header(message.table));
    if (FLAT(Message_header_type(message.table)) != FLAT(MessageHeader_RecordBatch) || header == nullptr)
        fail("a batch was wanted after the schema");
    const auto batch = static_cast<FLAT(RecordBatch_table_t)>(header);
    const std::int64_t rows = FLAT(RecordBatch_length(batch));
    if (rows < 0 || rows > kMostRows)
        fail("a number of rows in its range was wanted");
    if (FLAT(RecordBatch_compression_is_present(batch)) != 0)
        fail("it is compressed, which no bridge does");
    m_rows = static_cast<std::size_t>(rows);
    m_values.clear();
    Places places{batch, message.body};
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
