#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "Bindings.h"
#include "Callable.h"
#include "Errors.h"
#include "HandOver.h"
#include "Values.h"
#include "Waiting.h"
#include "bus/BusHolder.h"
#include "bus/BusOpening.h"
#include "bus/PendingLast.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Released = nb::call_guard<Unlock>;
using LastHolder = Unlocked<PendingLast>;
using tivra::BusOptions;

void onState(BusOptions& options, const nb::object& function) {
    options.onState = [call = Callable(function)](const tivra::FeedStateChange& change) {
        call.call([&] {
            return nb::make_tuple(static_cast<int>(change.from), static_cast<int>(change.to),
                                  toStr(change.cause), toDatetime(change.time));
        });
    };
}

/// (kind, partition, position, text)
void onProblem(BusOptions& options, const nb::object& function) {
    options.onProblem = [call = Callable(function)](const tivra::BusProblem& problem) {
        call.call([&] {
            return nb::make_tuple(static_cast<int>(problem.kind), problem.partition, problem.position,
                                  toStr(problem.text));
        });
    };
}

[[nodiscard]] std::chrono::milliseconds toMilliseconds(double seconds) {
    return std::chrono::ceil<std::chrono::milliseconds>(toDuration(seconds));
}

void bindBusOptions(nb::module_& module) {
    nb::class_<BusOptions>(module, "BusOptions", "What a connection to the bus is opened with.")
        .def(nb::init<>())
        .def_rw("url", &BusOptions::url)
        .def_rw("name", &BusOptions::name)
        .def_rw("credentials_file", &BusOptions::credentialsFile)
        .def_rw("ca_file", &BusOptions::caFile)
        .def_rw("certificate_file", &BusOptions::certificateFile)
        .def_rw("key_file", &BusOptions::keyFile)
        .def(
            "set_times",
            [](BusOptions& self, double answer, double lookBack) {
                self.answerTimeout = toMilliseconds(answer);
                self.lookBack = toMilliseconds(lookBack);
            },
            nb::arg("answer"), nb::arg("look_back"))
        .def("on_state", &onState)
        .def("on_problem", &onProblem);
}

[[nodiscard]] BusHolder takeBus(BusOpening& self) {
    std::optional<tivra::Result<tivra::BusReader>> result = self.result().take();
    if (!result)
        raiseInvalid("the connection has been taken, or isn't open yet", "open it once");
    return BusHolder(std::make_shared<BusConnection>(std::move(*result).value()));
}

[[nodiscard]] nb::dict statisticsOf(const BusHolder& self) {
    tivra::BusStatistics figures;
    {
        const Unlock released;
        figures = self->reader().statistics();
    }
    nb::dict statistics;
    statistics["batches"] = figures.batches;
    statistics["duplicates"] = figures.duplicates;
    statistics["updates"] = figures.updates;
    statistics["gaps"] = figures.gaps;
    statistics["problems"] = figures.problems;
    statistics["restarts"] = figures.restarts;
    statistics["partitions"] = figures.partitions;
    statistics["waiting_bytes"] = figures.waitingBytes;
    return statistics;
}

/// (records, failures), as of an answer of a hub, or raises why there is none.
[[nodiscard]] nb::tuple takeLast(const LastHolder& self) {
    std::optional<tivra::Result<tivra::Record>> result = self->result().take();
    if (!result)
        raiseInvalid("the answer has been taken, or isn't there yet", "keep what it gave");
    return nb::make_tuple(nb::make_tuple(nb::cast(std::move(*result).value())), nb::tuple());
}

void bindConnections(nb::module_& module) {
    nb::class_<BusOpening>(module, "BusOpening", "A connection to the bus that is being opened.")
        .def("__init__",
             [](BusOpening* self, const BusOptions& options) {
                 BusOptions copy = options;
                 const Unlock released;
                 new (self) BusOpening(std::move(copy));
             })
        .def(
            "wait",
            [](const BusOpening& self, std::optional<double> seconds) {
                return waitInterruptibly(seconds,
                                         [&](auto deadline) { return self.result().waitUntil(deadline); });
            },
            nb::arg("seconds").none())
        .def("notify", [](const BusOpening& self, const NotifierHolder& notifier,
                          std::uint64_t token) { return self.result().notify(notifier.notifier, token); })
        .def("take", &takeBus);

    nb::class_<BusHolder>(module, "Bus", "A connection to the bus that is open.")
        .def(
            "state", [](const BusHolder& self) { return static_cast<int>(self->reader().state()); },
            Released())
        .def(
            "partitions", [](const BusHolder& self) { return self->reader().partitions(); }, Released())
        .def("statistics", &statisticsOf)
        .def(
            "close", [](const BusHolder& self) { self->close(); }, Released());
}

void bindLast(nb::module_& module) {
    nb::class_<LastHolder>(module, "BusAnswer", "The last values of a symbol, which are on their way.")
        .def("__init__",
             [](LastHolder* self, const BusHolder& bus, int source, const std::string& symbol) {
                 const Unlock released;
                 new (self) LastHolder(
                     std::make_shared<PendingLast>(bus.shared(), tivra::Instrument(source, symbol)));
             })
        .def("ready", [](const LastHolder& self) { return self->result().isReady(); })
        .def(
            "wait",
            [](const LastHolder& self, std::optional<double> seconds) {
                return waitInterruptibly(seconds,
                                         [&](auto deadline) { return self->result().waitUntil(deadline); });
            },
            nb::arg("seconds").none())
        .def("notify", [](const LastHolder& self, const NotifierHolder& notifier,
                          std::uint64_t token) { return self->result().notify(notifier.notifier, token); })
        .def(
            "cancel", [](const LastHolder& self) { self->cancel(); }, Released())
        .def("take", &takeLast);
}

} // namespace

void bindBus(nb::module_& module) {
    bindBusOptions(module);
    bindConnections(module);
    bindLast(module);
}

} // namespace tivra_python
