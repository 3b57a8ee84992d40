#include "bus/LoadedEngines.h"

#include <atomic>

#include <nanobind/nanobind.h>

#include <bus/BusError.h>

#include "Bindings.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

/// Null until the module of the engines has been imported, which stays then.
std::atomic<const LoadedEngines*> s_engines{nullptr};

void useEngines(const nb::capsule& engines) {
    s_engines = static_cast<const LoadedEngines*>(engines.data(LoadedEngines::kCapsule));
}

} // namespace

void bindEngines(nb::module_& module) {
    module.def("use_engines", &useEngines, nb::arg("engines"), "What connects to engines of the bus.");
}

} // namespace tivra_python

namespace tivra_bus {

SourceOpener openerOf(const tivra::BusOptions& options) {
    const tivra_python::LoadedEngines* const engines = tivra_python::s_engines;
    if (engines == nullptr)
        throw BusError("the engines' client libraries aren't loaded: connect by tivra.bus");
    return engines->openerOf(options);
}

} // namespace tivra_bus
