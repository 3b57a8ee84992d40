#include <utility>

#include <nanobind/nanobind.h>

#include <feed/Log.h>

#include "Bindings.h"
#include "Callable.h"
#include "HandOver.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {

void bindLog(nb::module_& module) {
    module.def(
        "set_log_sink",
        [](const nb::object& function) {
            tivra::Log::Sink sink;
            if (!function.is_none())
                sink = [call = Callable(function)](const tivra::LogLine& line) {
                    call.call([&] {
                        return nb::make_tuple(static_cast<int>(line.level), static_cast<int>(line.area),
                                              toStr(line.text), toNanoseconds(line.time));
                    });
                };
            const Unlock released;
            tivra::Log::setSink(std::move(sink));
        },
        nb::arg("function").none());
    module.def("set_log_level", [](int level) { tivra::Log::setLevel(static_cast<tivra::LogLevel>(level)); });
}

} // namespace tivra_python
