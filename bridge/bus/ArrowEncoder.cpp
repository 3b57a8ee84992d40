#include "bus/ArrowEncoder.h"

#include "bus/BusError.h"
#include "bus/RecordColumns.h"

#include <nanoarrow/nanoarrow.h>
#include <nanoarrow/nanoarrow_ipc.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace tivra_bus {

namespace {

/// A header is filled up to a multiple of that, so that the next one fits into its place.
constexpr std::size_t kHeaderStep = 64;
constexpr std::string_view kStreamEnd("\xff\xff\xff\xff\0\0\0\0", 8);

void check(ArrowErrorCode code, const ArrowError& error) {
    if (code != NANOARROW_OK)
        throw BatchError(std::string("a batch: it can't be written as an Arrow stream: ") + error.message);
}
void check(ArrowErrorCode code) {
    check(code, {"no memory"});
}

ArrowBufferView viewOf(std::string_view bytes) {
    ArrowBufferView view;
    view.data.data = bytes.data();
    view.size_bytes = static_cast<std::int64_t>(bytes.size());
    return view;
}
ArrowBufferView viewOf(const std::vector<std::int32_t>& offsets) {
    ArrowBufferView view;
    view.data.as_int32 = offsets.data();
    view.size_bytes = static_cast<std::int64_t>(offsets.size() * sizeof(std::int32_t));
    return view;
}

/// How many buffers an array has.
const ArrowArray* shapeOf(int buffers) {
    static const std::array<ArrowArray, 4> shapes = [] {
        std::array<ArrowArray, 4> made{};
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i].n_buffers = static_cast<std::int64_t>(i);
        return made;
    }();
    return &shapes[static_cast<std::size_t>(buffers)];
}

void setType(ArrowSchema& schema, const ArrowColumn& column) {
    switch (column.type().kind) {
    case ArrowKind::Int32:
        return check(ArrowSchemaSetType(&schema, NANOARROW_TYPE_INT32));
    case ArrowKind::UInt64:
        return check(ArrowSchemaSetType(&schema, NANOARROW_TYPE_UINT64));
    case ArrowKind::Int64:
        return check(ArrowSchemaSetType(&schema, NANOARROW_TYPE_INT64));
    case ArrowKind::Double:
        return check(ArrowSchemaSetType(&schema, NANOARROW_TYPE_DOUBLE));
    case ArrowKind::Time:
        return check(
            ArrowSchemaSetTypeDateTime(&schema, NANOARROW_TYPE_TIMESTAMP, NANOARROW_TIME_UNIT_MICRO, "UTC"));
    case ArrowKind::Text:
        break;
    }
    check(ArrowSchemaSetType(&schema, column.isBinary() ? NANOARROW_TYPE_BINARY : NANOARROW_TYPE_STRING));
}

void setMetadata(ArrowSchema& schema, const char* key, std::string_view value) {
    ArrowBuffer metadata;
    check(ArrowMetadataBuilderInit(&metadata, nullptr));
    const ArrowStringView view{value.data(), static_cast<std::int64_t>(value.size())};
    ArrowErrorCode code = ArrowMetadataBuilderAppend(&metadata, ArrowCharView(key), view);
    if (code == NANOARROW_OK)
        code = ArrowSchemaSetMetadata(&schema, reinterpret_cast<const char*>(metadata.data));
    ArrowBufferReset(&metadata);
    check(code);
}

void describe(ArrowSchema& schema, const ArrowColumn& column) {
    const ArrowColumnType& type = column.type();
    if (type.isList) {
        check(ArrowSchemaSetType(&schema, NANOARROW_TYPE_LIST));
        setType(*schema.children[0], column);
    } else {
        setType(schema, column);
    }
    check(ArrowSchemaSetName(&schema, type.name.c_str()));
    if (!type.field.empty())
        setMetadata(schema, kFieldKey, type.field);
}

/// Shows the encoder where the values are.
void show(ArrowArrayView& view, const ArrowColumn& column, std::size_t rows) {
    const bool isText = column.type().kind == ArrowKind::Text;
    const auto showValues = [&column, isText](ArrowArrayView& to) {
        to.array = shapeOf(isText ? 3 : 2);
        to.buffer_views[1] = isText ? viewOf(column.textOffsets()) : viewOf(column.data());
        if (isText)
            to.buffer_views[2] = viewOf(column.data());
    };
    view.length = static_cast<std::int64_t>(rows);
    view.null_count = static_cast<std::int64_t>(rows - column.count());
    view.buffer_views[0] = viewOf(view.null_count > 0 ? column.validity() : std::string_view());
    if (!column.type().isList) {
        showValues(view);
        return;
    }
    view.array = shapeOf(2);
    view.buffer_views[1] = viewOf(column.listOffsets());
    ArrowArrayView& values = *view.children[0];
    values.length = static_cast<std::int64_t>(column.values());
    values.null_count = 0;
    values.buffer_views[0] = viewOf(std::string_view());
    showValues(values);
}

std::string_view bytesOf(const ArrowBuffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.data), static_cast<std::size_t>(buffer.size_bytes)};
}

} // namespace

/// What the encoder works with, kept from batch to batch.
struct ArrowEncoder::Buffers {
    Buffers() {
        ArrowBufferInit(&message);
        ArrowBufferInit(&body);
        ArrowArrayViewInitFromType(&view, NANOARROW_TYPE_UNINITIALIZED);
        check(ArrowIpcEncoderInit(&encoder));
    }
    ~Buffers() {
        ArrowIpcEncoderReset(&encoder);
        ArrowArrayViewReset(&view);
        ArrowBufferReset(&body);
        ArrowBufferReset(&message);
    }
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    void clear() {
        check(ArrowBufferResize(&message, 0, 0));
        check(ArrowBufferResize(&body, 0, 0));
    }

    ArrowIpcEncoder encoder{};
    ArrowArrayView view{};
    ArrowBuffer message{}, body{};
    ArrowError error{};
};

ArrowEncoder::ArrowEncoder() = default;
ArrowEncoder::~ArrowEncoder() = default;

bool ArrowEncoder::isAsBefore(const std::vector<const ArrowColumn*>& columns) const {
    return std::equal(columns.begin(), columns.end(), m_entries.begin(), m_entries.end(),
                      [](const ArrowColumn* column, const Entry& entry) {
                          return entry == Entry{column, column->isBinary()};
                      });
}

void ArrowEncoder::writeSchema(const std::vector<const ArrowColumn*>& columns, std::string_view header) {
    struct Schema {
        Schema() { ArrowSchemaInit(&schema); }
        ~Schema() { ArrowSchemaRelease(&schema); }
        ArrowSchema schema{};
    } made;
    Buffers& buffers = *m_buffers;
    check(ArrowSchemaSetTypeStruct(&made.schema, static_cast<std::int64_t>(columns.size())));
    for (std::size_t i = 0; i < columns.size(); ++i)
        describe(*made.schema.children[i], *columns[i]);
    setMetadata(made.schema, kHeaderKey, header);
    ArrowArrayViewReset(&buffers.view);
    check(ArrowArrayViewInitFromSchema(&buffers.view, &made.schema, &buffers.error), buffers.error);
    check(ArrowIpcEncoderEncodeSchema(&buffers.encoder, &made.schema, &buffers.error), buffers.error);
    buffers.clear();
    check(ArrowIpcEncoderFinalizeBuffer(&buffers.encoder, 1, &buffers.message));
    m_schema = bytesOf(buffers.message);
}

void ArrowEncoder::appendSchema(std::string& out, const std::vector<const ArrowColumn*>& columns,
                                std::string_view header) {
    std::string text(header);
    text.resize((header.size() + kHeaderStep - 1) / kHeaderStep * kHeaderStep, ' ');
    if (text.size() != m_headerRoom || !isAsBefore(columns)) {
        m_entries.clear();
        writeSchema(columns, text);
        m_headerRoom = text.size();
        m_headerAt = m_schema.find(text);
        for (const ArrowColumn* column : columns)
            m_entries.push_back({column, column->isBinary()});
    }
    out += m_schema;
    out.replace(out.size() - m_schema.size() + m_headerAt, m_headerRoom, text);
}

void ArrowEncoder::append(std::string& out, const std::vector<const ArrowColumn*>& columns, std::size_t rows,
                          std::string_view header) {
    if (m_buffers == nullptr)
        m_buffers = std::make_unique<Buffers>();
    try {
        Buffers& buffers = *m_buffers;
        appendSchema(out, columns, header);
        buffers.view.length = static_cast<std::int64_t>(rows);
        buffers.view.null_count = 0;
        for (std::size_t i = 0; i < columns.size(); ++i)
            show(*buffers.view.children[i], *columns[i], rows);
        buffers.clear();
        check(ArrowIpcEncoderEncodeSimpleRecordBatch(&buffers.encoder, &buffers.view, &buffers.body,
                                                     &buffers.error),
              buffers.error);
        check(ArrowIpcEncoderFinalizeBuffer(&buffers.encoder, 1, &buffers.message));
        out += bytesOf(buffers.message);
        out += bytesOf(buffers.body);
        out += kStreamEnd;
    } catch (...) {
        // It may have begun something.
        m_buffers.reset();
        m_entries.clear();
        throw;
    }
}

} // namespace tivra_bus
