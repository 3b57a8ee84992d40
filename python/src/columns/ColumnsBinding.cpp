#include "Bindings.h"

#include "columns/RowBatch.h"

#include <nanobind/nanobind.h>
#include <nanobind/stl/shared_ptr.h>

#include <memory>

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

} // namespace

void bindColumns(nb::module_& module) {
    nb::class_<RowBatch>(module, "Columns", "Rows in Arrow columns, which never change.")
        .def("__arrow_c_schema__", schemaOf)
        .def(
            "__arrow_c_array__",
            [](const RowBatch& batch, nb::object) { return nb::make_tuple(schemaOf(batch), arrayOf(batch)); },
            nb::arg("requested_schema") = nb::none())
        .def("__len__", &RowBatch::rows)
        .def_prop_ro("nbytes", &RowBatch::bytes, "Memory of the values, in bytes.")
        .def_prop_ro("repeated", &RowBatch::repeated,
                     "Values that were left out because their row had one of the same field already.")
        .def_prop_ro("mismatched", &RowBatch::mismatched,
                     "Values that are NULL because they weren't of their column's type.");
}

} // namespace tivra_python
