#include <cstddef>
#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include <feed/Record.h>

#include "Bindings.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {

void bindRecords(nb::module_& module) {
    using tivra::Record;

    nb::class_<Record>(module, "Record",
                       "A symbol with some of its fields: a part of an answer.\n\n"
                       "It reads like a dict of names and values, is never changed, and needs nothing of its "
                       "feed.")
        .def_prop_ro(
            "symbol", [](const Record& self) { return toStr(self.symbol()); }, "The symbol.")
        .def_prop_ro("source", &Record::source, "The number of the source; 0 when it came without.")
        .def_prop_ro("fields", &toDict, "All fields as a dict, in the order of the message.")
        .def("__len__", &Record::size)
        .def("__contains__",
             [](const Record& self, const std::string& name) { return findIn(self, name).is_valid(); })
        .def("__getitem__",
             [](const Record& self, const std::string& name) {
                 nb::object value = findIn(self, name);
                 if (!value.is_valid())
                     throw nb::key_error(name.c_str());
                 return value;
             })
        .def(
            "get",
            [](const Record& self, const std::string& name, nb::object otherwise) {
                nb::object value = findIn(self, name);
                return value.is_valid() ? value : otherwise;
            },
            nb::arg("name"), nb::arg("default") = nb::none(),
            "The value of a field, or the default when the record doesn't have it.")
        .def("keys", [](const Record& self) { return toDict(self).keys(); })
        .def("items", [](const Record& self) { return toDict(self).items(); })
        .def("__iter__", [](const Record& self) { return nb::iter(toDict(self)); })
        .def("__repr__", [](const Record& self) {
            return nb::str("<tivra.Record {} {} {}>")
                .format(self.source(), toStr(self.symbol()), toDict(self));
        });
}

} // namespace tivra_python
