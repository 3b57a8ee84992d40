#include <nanobind/nanobind.h>

#include <TivraVersion.h>

#include "Bindings.h"

namespace nb = nanobind;

using namespace tivra_python;

NB_MODULE(_core, module) {
    // Threads of the library call the interpreter that they know: the first.
    if (PyInterpreterState_Get() != PyInterpreterState_Main())
        throw nb::import_error("tivra can't be used in a subinterpreter; import it in the main interpreter");
    // Feeds that still live when the interpreter ends are no leak.
    nb::set_leak_warnings(false);
    module.def("version", [] { return tivra::version(); });
    bindColumns(module);
    bindDictionary(module);
    bindBatches(module);
    bindWriting(module);
    bindErrors(module);
    bindHandOver(module);
    bindNotifier(module);
    bindOptions(module);
    bindRecords(module);
    bindAnswers(module);
    bindEvents(module);
    bindFeeds(module);
    bindBus(module);
    bindEngines(module);
    bindStreams(module);
    bindBoards(module);
    bindEnumerations(module);
    bindLog(module);
}
