#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <feed/Enumerations.h>
#include <feed/Snapshot.h>

#include "Bindings.h"
#include "FeedHolder.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {

void bindEnumerations(nb::module_& module) {
    using tivra::Enumerations;
    using Records = std::vector<tivra::Record>;

    nb::class_<Enumerations>(module, "Enumerations", "What the numbers of enumerated fields stand for.")
        .def("__init__",
             [](Enumerations* self, const Records& fields, const Records& values) {
                 new (self) Enumerations(tivra::Snapshot(fields), tivra::Snapshot(values));
             })
        .def("__len__", &Enumerations::size)
        .def("has", [](const Enumerations& self, const FeedHolder& feed,
                       const std::string& name) { return self.has(feed->field(name)); })
        .def("text", [](const Enumerations& self, const FeedHolder& feed, const std::string& name,
                        std::int64_t value) { return toStr(self.textOf(feed->field(name), value)); })
        .def("value", [](const Enumerations& self, const FeedHolder& feed, const std::string& name,
                         const std::string& text) { return self.valueOf(feed->field(name), text); });
}

} // namespace tivra_python
