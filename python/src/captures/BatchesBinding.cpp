#include "Bindings.h"
#include "HandOver.h"

#include "captures/CaptureSource.h"
#include "captures/DaySource.h"
#include "captures/FieldRows.h"
#include "captures/FileBatches.h"
#include "captures/MessageBatches.h"
#include "captures/Signals.h"

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/unique_ptr.h>
#include <nanobind/stl/vector.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace nb = nanobind;

namespace tivra_python {

namespace {

/// What both kinds of files are asked for.
struct Wanted {
    std::vector<std::string> fields;
    RowFilter filter;
    std::size_t maxRows;
};

using Symbols = std::vector<std::string>;
using Time = std::optional<std::int64_t>;

Wanted wanted(std::vector<std::string> fields, const Symbols& symbols, Time start, Time end,
              std::size_t maxRows) {
    return {std::move(fields), {{symbols.begin(), symbols.end()}, start, end}, maxRows};
}

std::unique_ptr<FileBatches> batchesOf(std::unique_ptr<MessageSource> source, const FieldRows& dictionary,
                                       const Wanted& wanted, bool isComplete) {
    auto batches = std::make_unique<MessageBatches>(
        std::move(source), std::make_unique<FieldDictionary>(fieldsOfRows(dictionary)), wanted.fields,
        wanted.filter, wanted.maxRows);
    return std::make_unique<FileBatches>(std::move(batches), isComplete);
}

std::unique_ptr<FileBatches> openCapture(const std::string& path, const FieldRows& dictionary,
                                         const std::vector<std::string>& fields, const Symbols& symbols,
                                         Time start, Time end, std::size_t maxRows) {
    auto source = std::make_unique<CaptureSource>(path, start);
    const bool isComplete = source->isComplete();
    return batchesOf(std::move(source), dictionary, wanted(fields, symbols, start, end, maxRows), isComplete);
}

std::unique_ptr<FileBatches> openDay(const std::string& path, int source, std::int64_t midnight,
                                     const std::vector<std::string>& fields, const Symbols& symbols,
                                     Time start, Time end, std::size_t maxRows) {
    return batchesOf(std::make_unique<DaySource>(path, source, midnight), rowsOfFields(builtinFields()),
                     wanted(fields, symbols, start, end, maxRows), true);
}

/// (time, row, kind, values) of each note. What a note says is bytes.
nb::list listOf(const std::vector<RecordedNote>& notes) {
    nb::list list;
    for (const RecordedNote& note : notes) {
        nb::dict values;
        for (const auto& [name, value] : note.note.values)
            values[nb::bytes(name.data(), name.size())] = nb::bytes(value.data(), value.size());
        list.append(nb::make_tuple(note.received, note.row,
                                   nb::bytes(note.note.kind.data(), note.note.kind.size()), values));
    }
    return list;
}

/// The columns, or None at the end, and the notes.
nb::tuple nextOf(FileBatches& batches) {
    const auto [batch, notes] = [&batches] {
        const Unlock released;
        return batches.next(checkSignals);
    }();
    return nb::make_tuple(nb::cast(batch), listOf(notes));
}

nb::list takeNotes(FileBatches& batches) {
    return listOf([&batches] {
        const Unlock released;
        return batches.takeNotes();
    }());
}

/// One of the figures.
template<auto figure>
auto figureOf(FileBatches& batches) {
    return batches.figures().*figure;
}

} // namespace

void bindBatches(nb::module_& module) {
    nb::class_<FileBatches>(module, "FileBatches", "The messages of a file, batch by batch.")
        .def("next", nextOf,
             nb::sig(
                 "def next(self) -> tuple[Columns | None, list[tuple[int, int, bytes, dict[bytes, bytes]]]]"))
        .def("take_notes", takeNotes,
             nb::sig("def take_notes(self) -> list[tuple[int, int, bytes, dict[bytes, bytes]]]"))
        .def_prop_ro("is_complete", &FileBatches::isComplete)
        .def_prop_ro("messages", figureOf<&FileFigures::messages>)
        .def_prop_ro("damages", figureOf<&FileFigures::damages>)
        .def_prop_ro("first_damage", figureOf<&FileFigures::firstDamage>)
        .def_prop_ro("unreadable", figureOf<&FileFigures::unreadable>)
        .def_prop_ro("first_unreadable", figureOf<&FileFigures::firstUnreadable>);
    module.def("open_capture", openCapture, nb::arg("path"), nb::arg("dictionary"), nb::arg("fields"),
               nb::arg("symbols"), nb::arg("start").none(), nb::arg("end").none(), nb::arg("max_rows"));
    module.def("open_day", openDay, nb::arg("path"), nb::arg("source"), nb::arg("midnight"),
               nb::arg("fields"), nb::arg("symbols"), nb::arg("start").none(), nb::arg("end").none(),
               nb::arg("max_rows"));
}

} // namespace tivra_python
