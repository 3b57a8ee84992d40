#include "Bindings.h"

#include "columns/RowBatch.h"

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace nb = nanobind;

namespace tivra_python {

namespace {

constexpr const char* kSchemaCapsule = "arrow_schema";
constexpr const char* kArrayCapsule = "arrow_array";

/// Releases what nobody has taken out of the capsule.
template<class Structure>
void release(void* pointer) noexcept {
    auto* const structure = static_cast<Structure*>(pointer);
    if (structure->release != nullptr)
        structure->release(structure);
    delete structure;
}

nb::capsule schemaOf(const RowBatch& batch) {
    auto schema = std::make_unique<ArrowSchema>();
    batch.exportSchema(schema.get());
    return {schema.release(), kSchemaCapsule, release<ArrowSchema>};
}

nb::capsule arrayOf(const RowBatch& batch) {
    auto array = std::make_unique<ArrowArray>();
    batch.exportArray(array.get());
    return {array.release(), kArrayCapsule, release<ArrowArray>};
}

const char* typeName(ColumnType type) noexcept {
    switch (type) {
    case ColumnType::Int64:
        return "int64";
    case ColumnType::Double:
        return "double";
    case ColumnType::Time:
        return "time";
    case ColumnType::Found:
    case ColumnType::Text:
        break;
    }
    return "text";
}

nb::list columnsOf(const RowBatch& batch) {
    nb::list list;
    for (const Column& column : batch.columns())
        list.append(nb::make_tuple(column.spec().name, typeName(column.spec().type)));
    return list;
}

/// A read-only array over memory that the batch keeps.
template<class T>
nb::object viewOf(const T* values, std::size_t count, const nb::handle& owner) {
    // Arrays without elements must point somewhere all the same.
    static const T none{};
    return nb::cast(
        nb::ndarray<nb::numpy, const T, nb::ndim<1>>(count == 0 ? &none : values, {count}, owner));
}

/// A new array of booleans; the bits themselves are nothing that numpy knows.
nb::object flagsOf(const Bitmap& bits, std::size_t count, bool isInverted) {
    auto flags = std::make_unique<bool[]>(count);
    for (std::size_t i = 0; i < count; ++i)
        flags[i] = bits[i] != isInverted;
    bool* const data = flags.release();
    const nb::capsule owner(data, [](void* memory) noexcept { delete[] static_cast<bool*>(memory); });
    return nb::cast(nb::ndarray<nb::numpy, bool, nb::ndim<1>>(data, {count}, owner));
}

const Column& columnAt(const RowBatch& batch, std::size_t index) {
    if (index >= batch.columns().size())
        throw nb::index_error("there is no such column");
    return batch.columns()[index];
}

/// The numbers of a column and where it is NULL, if anywhere.
nb::object numbersOf(nb::handle self, std::size_t index) {
    const auto& batch = nb::cast<const RowBatch&>(self);
    const Column& column = columnAt(batch, index);
    const std::int64_t* const bits = column.numbers().data();
    nb::object values = column.spec().type == ColumnType::Double
                            ? viewOf(reinterpret_cast<const double*>(bits), batch.rows(), self)
                            : viewOf(bits, batch.rows(), self);
    nb::object mask = column.nulls() == 0 ? nb::none() : flagsOf(column.validity(), batch.rows(), true);
    return nb::make_tuple(values, mask);
}

nb::object textAt(const std::vector<std::int32_t>& offsets, const std::string& text, std::size_t i) {
    const auto from = static_cast<std::size_t>(offsets[i]);
    return nb::str(text.data() + from, static_cast<std::size_t>(offsets[i + 1]) - from);
}

nb::object valueAt(const Column& column, std::size_t row) {
    if (!column.validity()[row])
        return nb::none();
    switch (column.spec().type) {
    case ColumnType::Double:
        return nb::float_(std::bit_cast<double>(column.numbers()[row]));
    case ColumnType::Int64:
    case ColumnType::Time:
        return nb::int_(column.numbers()[row]);
    case ColumnType::Found:
    case ColumnType::Text:
        break;
    }
    return textAt(column.offsets(), column.text(), row);
}

/// The values of a column as Python has them, from the one row to the other.
nb::list valuesOf(const RowBatch& batch, std::size_t index, std::size_t from, std::size_t to) {
    const Column& column = columnAt(batch, index);
    nb::list list;
    for (std::size_t row = from; row < to && row < batch.rows(); ++row)
        list.append(valueAt(column, row));
    return list;
}

nb::list symbolsOf(const RowBatch& batch) {
    const TextDictionary& symbols = batch.head().symbols;
    nb::list list;
    for (std::size_t i = 0; i < symbols.size(); ++i)
        list.append(textAt(symbols.offsets(), symbols.text(), i));
    return list;
}

nb::list kindNames() {
    nb::list list;
    for (const std::string_view kind : kRowKinds)
        list.append(nb::str(kind.data(), kind.size()));
    return list;
}

/// The arrays of the columns that every row has: received, source, numbers of symbols and of kinds, tag and
/// where it is NULL, status and where it is NULL, gap.
nb::tuple headOf(nb::handle self) {
    const auto& batch = nb::cast<const RowBatch&>(self);
    const HeadColumns& head = batch.head();
    const std::size_t rows = batch.rows();
    return nb::make_tuple(viewOf(head.received.data(), rows, self), viewOf(head.source.data(), rows, self),
                          viewOf(head.symbol.data(), rows, self), viewOf(head.kind.data(), rows, self),
                          viewOf(head.tag.data(), rows, self), flagsOf(head.hasTag, rows, true),
                          viewOf(head.status.data(), rows, self), flagsOf(head.hasStatus, rows, true),
                          flagsOf(head.gap, rows, false));
}

/// One row's part of that, without NumPy.
nb::tuple headAt(const RowBatch& batch, std::size_t row) {
    const HeadColumns& head = batch.head();
    if (row >= batch.rows())
        throw nb::index_error("there is no such row");
    const auto optional = [](bool isThere, std::int64_t value) {
        return isThere ? nb::object(nb::int_(value)) : nb::none();
    };
    const std::string_view kind = kRowKinds[static_cast<std::size_t>(head.kind[row])];
    return nb::make_tuple(
        head.received[row], head.source[row],
        textAt(head.symbols.offsets(), head.symbols.text(), static_cast<std::size_t>(head.symbol[row])),
        nb::str(kind.data(), kind.size()), optional(head.hasTag[row], head.tag[row]),
        optional(head.hasStatus[row], head.status[row]), bool(head.gap[row]));
}

} // namespace

void bindColumns(nb::module_& module) {
    module.def("kind_names", kindNames, nb::sig("def kind_names() -> list[str]"));
    nb::class_<RowBatch>(module, "Columns", "Rows in Arrow columns, which never change.")
        .def("__arrow_c_schema__", schemaOf)
        .def(
            "__arrow_c_array__",
            [](const RowBatch& batch, nb::object) { return nb::make_tuple(schemaOf(batch), arrayOf(batch)); },
            nb::arg("requested_schema") = nb::none(),
            nb::sig("def __arrow_c_array__(self, requested_schema: object | None = None) -> "
                    "tuple[object, object]"))
        .def("__len__", &RowBatch::rows)
        .def("columns", columnsOf, nb::sig("def columns(self) -> list[tuple[str, str]]"),
             "Name and type of each field's column.")
        .def("symbols", symbolsOf, nb::sig("def symbols(self) -> list[str]"))
        .def("numbers", numbersOf, nb::arg("column"),
             nb::sig("def numbers(self, column: int) -> tuple[typing.Any, typing.Any]"))
        .def("values", valuesOf, nb::arg("column"), nb::arg("start"), nb::arg("stop"),
             nb::sig("def values(self, column: int, start: int, stop: int) -> list[typing.Any]"))
        .def("head", headOf, nb::sig("def head(self) -> tuple[typing.Any, ...]"))
        .def("head_at", headAt, nb::arg("row"),
             nb::sig("def head_at(self, row: int) -> tuple[typing.Any, ...]"))
        .def_prop_ro("nbytes", &RowBatch::bytes, "Memory of the values, in bytes.")
        .def_prop_ro("repeated", &RowBatch::repeated,
                     "Values that were left out because their row had one of the same field already.")
        .def_prop_ro("mismatched", &RowBatch::mismatched,
                     "Values that are NULL because they weren't of their column's type.");
}

} // namespace tivra_python
