#include <nanobind/nanobind.h>

#include "bus/LoadedEngines.h"

namespace nb = nanobind;

using tivra_python::LoadedEngines;

namespace {

constexpr LoadedEngines kEngines{&tivra_bus::openerOf};

} // namespace

NB_MODULE(_bus, module) {
    module.attr("engines") = nb::capsule(&kEngines, LoadedEngines::kCapsule);
}
