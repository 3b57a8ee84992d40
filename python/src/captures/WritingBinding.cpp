#include "Bindings.h"
#include "HandOver.h"

#include "captures/BodyWriter.h"
#include "captures/FieldRows.h"
#include "captures/FileFault.h"
#include "captures/ReplayHub.h"

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
