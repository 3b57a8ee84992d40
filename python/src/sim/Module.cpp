#include <nanobind/nanobind.h>

namespace nb = nanobind;

NB_MODULE(_sim, module) {
    nb::set_leak_warnings(false);
    module.doc() = "The simulator behind tivra.sim.";
}
