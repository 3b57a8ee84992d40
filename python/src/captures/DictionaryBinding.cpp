#include "Bindings.h"
#include "HandOver.h"

#include "captures/BodyDecoder.h"
#include "captures/CaptureSource.h"
#include "captures/FieldDictionary.h"
#include "captures/FieldRows.h"
#include "captures/FileFault.h"
#include "captures/Signals.h"

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <algorithm>
#include <string>
#include <string_view>

namespace nb = nanobind;

namespace tivra_python {

namespace {

FieldRows mapFields(const nb::bytes& text, const std::string& name) {
    return rowsOfFields(fieldsOfMap(std::string_view(text.c_str(), text.size()), name));
}

/// Names of all fields that messages of the capture have, but for those that every row has.
std::vector<std::string> captureFields(const std::string& path, const FieldRows& rows) {
    FieldDictionary dictionary(fieldsOfRows(rows));
    const FieldScan scan = scanCapture(path, checkSignals);
    if (scan.isOverflown())
        throw FileFault(path + ": messages have more than " + std::to_string(FieldScan::kMaxFields) +
                        " different fields; name those that you want");
    std::vector<std::string> names;
    for (const int number : scan.numbers()) {
        const tivra_internal::MetaToken* const field = dictionary.findOrAdd(number);
        if (field != nullptr && !BodyDecoder::isOfHead(*field))
            names.emplace_back(field->name);
    }
    const auto isNumber = [&dictionary](int number) {
        const tivra_internal::MetaToken* const field = dictionary.findOrAdd(number);
        return field != nullptr && field->storage != KVNAPI::Token::TY_STRING;
    };
    const bool isDeleted = std::any_of(scan.emptied().begin(), scan.emptied().end(), isNumber);
    if (isDeleted && std::find(names.begin(), names.end(), kDeletedFields) == names.end())
        names.emplace_back(kDeletedFields);
    return names;
}

} // namespace

void bindDictionary(nb::module_& module) {
    nb::exception<FileFault>(module, "FileFault", PyExc_ValueError);
    module.def("builtin_fields", [] { return rowsOfFields(builtinFields()); });
    module.def("map_fields", mapFields, nb::arg("text"), nb::arg("name"));
    module.def("capture_fields", captureFields, nb::arg("path"), nb::arg("dictionary"),
               nb::call_guard<Unlock>());
}

} // namespace tivra_python
