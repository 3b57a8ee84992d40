#include <nanobind/nanobind.h>

#include <TivraVersion.h>

#include "Bindings.h"

namespace nb = nanobind;

using namespace tivra_python;

NB_MODULE(_core, module) {
    // Threads of the library hand over to the interpreter that they know: the first.
    if (PyInterpreterState_Get() != PyInterpreterState_Main())
        throw nb::import_error("tivra can't be used in a subinterpreter; import it in the main interpreter");
    // Feeds that still live when the interpreter ends are no leak.
    nb::set_leak_warnings(false);
    bindColumns(module);
    bindDictionary(module);
    bindBatches(module);
    bindWriting(module);
    module.def("version", [] { return tivra::version(); });
}
