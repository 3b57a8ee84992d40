#include "Bindings.h"
#include "HandOver.h"

#include "captures/BodyWriter.h"
#include "captures/FieldRows.h"
#include "captures/FileFault.h"
#include "captures/JsonLines.h"
#include "captures/ReplayHub.h"
#include "captures/TimeText.h"

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/unique_ptr.h>
#include <nanobind/stl/vector.h>

#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace nb = nanobind;

namespace tivra_python {

namespace {

/// What a capsule of that name holds, which stays its own.
template<class Structure>
const Structure& contentOf(const nb::capsule& capsule, const char* name) {
    const auto* const structure = static_cast<const Structure*>(PyCapsule_GetPointer(capsule.ptr(), name));
    if (structure == nullptr)
        throw nb::python_error();
    if (structure->release == nullptr)
        throw FileFault("the rows have been taken already");
    return *structure;
}

void add(BodyWriter& writer, const nb::capsule& schema, const nb::capsule& array) {
    writer.add(contentOf<ArrowSchema>(schema, "arrow_schema"), contentOf<ArrowArray>(array, "arrow_array"));
}

nb::bytes linesOf(JsonLines& lines, const nb::capsule& schema, const nb::capsule& array) {
    const std::string& text = lines.write(contentOf<ArrowSchema>(schema, "arrow_schema"),
                                          contentOf<ArrowArray>(array, "arrow_array"));
    return nb::bytes(text.data(), text.size());
}

/// The bytes of the texts, all of TimeText::kLength; those of NULLs as they come.
nb::bytes timeTexts(const nb::capsule& schema, const nb::capsule& array, char separator) {
    const ArrowArray& times = contentOf<ArrowArray>(array, "arrow_array");
    const ArrowCells cells(contentOf<ArrowSchema>(schema, "arrow_schema"), times);
    if (cells.kind() != ArrowCells::Kind::Time)
        throw FileFault("the column has no times");
    TimeText time(separator);
    std::string text;
    text.reserve(static_cast<std::size_t>(times.length) * TimeText::kLength);
    for (std::int64_t row = 0; row < times.length; ++row)
        text.append(time.of(cells.integer(row)), TimeText::kLength);
    return nb::bytes(text.data(), text.size());
}

std::unique_ptr<ReplayHub> startHub(const std::string& path, std::uint16_t port, double factor,
                                    std::size_t startWhen) {
    const Unlock released;
    try {
        return std::make_unique<ReplayHub>(ReplayHub::Options{path, port, factor, startWhen});
    } catch (const std::system_error& error) {
        throw FileFault("cannot listen on port " + std::to_string(port) + ": " + error.what());
    }
}

} // namespace

void bindWriting(nb::module_& module) {
    nb::class_<BodyWriter>(module, "BodyWriter", "Writes rows as messages into a capture.")
        .def(
            "__init__",
            [](BodyWriter* self, const std::string& path, const FieldRows& dictionary) {
                new (self) BodyWriter(path, fieldsOfRows(dictionary));
            },
            nb::arg("path"), nb::arg("dictionary"))
        .def("add", add, nb::arg("schema"), nb::arg("array"))
        .def("finish", &BodyWriter::finish)
        .def_prop_ro("messages", &BodyWriter::messages);
    nb::class_<JsonLines>(module, "JsonLines", "Writes rows as JSON, an object per line.")
        .def(nb::init<>())
        .def("write", linesOf, nb::arg("schema"), nb::arg("array"));
    module.def("time_texts", timeTexts, nb::arg("schema"), nb::arg("array"), nb::arg("separator"));
    nb::class_<ReplayHub>(module, "ReplayHub", "A hub that plays a capture.")
        .def("stop", &ReplayHub::stop, nb::call_guard<Unlock>())
        .def_prop_ro("port", &ReplayHub::port)
        .def_prop_ro("is_played_out", &ReplayHub::isPlayedOut)
        .def_prop_ro("played", &ReplayHub::played)
        .def_prop_ro("left_out", &ReplayHub::leftOut)
        .def_prop_ro("connections", &ReplayHub::connections);
    module.def("replay_capture", startHub, nb::arg("path"), nb::arg("port"), nb::arg("factor"),
               nb::arg("start_when"));
}

} // namespace tivra_python
