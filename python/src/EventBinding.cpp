#include <array>
#include <string>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include "Bindings.h"
#include "Errors.h"
#include "Event.h"
#include "Notices.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

/// In the order of the enumerators.
constexpr std::array<const char*, 5> kKindNames{"image", "update", "refresh", "state", "gap"};

[[nodiscard]] nb::object nameOf(Event::Kind kind) {
    return toName(kKindNames.at(static_cast<std::size_t>(kind)));
}

[[nodiscard]] nb::object gapType() {
    return nb::module_::import_("tivra.gap").attr("Gap");
}

[[nodiscard]] nb::object orNone(const std::optional<std::uint64_t>& number) {
    return number ? nb::object(nb::int_(*number)) : nb::none();
}

[[nodiscard]] nb::str describe(const Event& event) {
    nb::object content;
    if (event.state)
        content = makeStateChange(event);
    else if (event.gap)
        content = makeGap(event, 0);
    else
        content = toDict(event.record);
    return nb::str("<tivra.Event {} {} {} {}>")
        .format(nameOf(event.kind), event.source, toStr(event.symbol), content);
}

} // namespace

nb::object makeGap(const Event& event, std::size_t row) {
    const KeptGap& gap = *event.gap;
    return gapType()(nb::arg("cause") = toName(gap.cause), nb::arg("source") = event.source,
                     nb::arg("symbol") = toStr(event.symbol), nb::arg("start") = toDatetime(gap.from),
                     nb::arg("end") = toDatetime(gap.to), nb::arg("messages") = orNone(gap.messages),
                     nb::arg("bytes") = orNone(gap.bytes), nb::arg("row") = row);
}

nb::object makeOverflow(int source, const std::string& symbol, std::uint64_t messages, std::int64_t from,
                        std::int64_t to, std::size_t row) {
    using Time = std::chrono::system_clock::time_point;
    const auto timeOf = [](std::int64_t ns) {
        return ns == 0 ? nb::none() : toDatetime(Time(std::chrono::nanoseconds(ns)));
    };
    return gapType()(nb::arg("cause") = "overflow", nb::arg("source") = source,
                     nb::arg("symbol") = toStr(symbol), nb::arg("start") = timeOf(from),
                     nb::arg("end") = timeOf(to), nb::arg("messages") = messages,
                     nb::arg("bytes") = nb::none(), nb::arg("row") = row);
}

nb::object makeUnlisted(std::uint64_t gaps) {
    return gapType()(nb::arg("cause") = "unlisted", nb::arg("source") = 0, nb::arg("symbol") = "",
                     nb::arg("start") = nb::none(), nb::arg("end") = nb::none(),
                     nb::arg("messages") = nb::none(), nb::arg("bytes") = nb::none(), nb::arg("row") = 0,
                     nb::arg("count") = gaps);
}

nb::object makeStateChange(const Event& event) {
    const KeptState& state = *event.state;
    return nb::module_::import_("tivra.events")
        .attr("state_change")(event.source, toStr(event.symbol), static_cast<int>(state.from),
                              static_cast<int>(state.to), toStr(state.cause),
                              state.error ? makeException(*state.error) : nb::none(), toDatetime(state.time));
}

void bindEvents(nb::module_& module) {
    nb::class_<Event>(module, "Event",
                      "What has come for a subscription: an update, a change of state or a gap.\n\n"
                      "Fields are read by event[\"BID\"] and event.get(\"BID\"); a state or a gap has none.")
        .def_prop_ro(
            "kind", [](const Event& self) { return nameOf(self.kind); },
            "\"image\" (a part of the present state), \"update\", \"refresh\", \"state\" or \"gap\".")
        .def_ro("source", &Event::source, "The number of the source.")
        .def_prop_ro(
            "symbol", [](const Event& self) { return toStr(self.symbol); }, "The symbol.")
        .def_ro("received", &Event::received,
                "When the message was read from the socket, in nanoseconds since 1970, UTC.")
        .def_prop_ro(
            "time",
            [](const Event& self) {
                return toDatetime(
                    std::chrono::system_clock::time_point(std::chrono::nanoseconds(self.received)));
            },
            "The same as a datetime in UTC.")
        .def_ro("dropped", &Event::dropped,
                "Messages of this symbol that were lost since its last event, because this reader was slow.")
        .def_ro("merged", &Event::merged, "Messages that have been merged into this one.")
        .def_prop_ro(
            "fields", [](const Event& self) { return toDict(self.record); },
            "All fields as a dict, in the order of the message.")
        .def_prop_ro(
            "state", [](const Event& self) { return self.state ? makeStateChange(self) : nb::none(); },
            "The change of state, of an event that is one; else None.")
        .def_prop_ro(
            "gap", [](const Event& self) { return self.gap ? makeGap(self, 0) : nb::none(); },
            "The gap, of an event that is one; else None.")
        .def("__contains__",
             [](const Event& self, const std::string& name) { return findIn(self.record, name).is_valid(); })
        .def("__getitem__",
             [](const Event& self, const std::string& name) {
                 nb::object value = findIn(self.record, name);
                 if (!value.is_valid())
                     throw nb::key_error(name.c_str());
                 return value;
             })
        .def(
            "get",
            [](const Event& self, const std::string& name, nb::object otherwise) {
                nb::object value = findIn(self.record, name);
                return value.is_valid() ? value : otherwise;
            },
            nb::arg("name"), nb::arg("default") = nb::none(),
            "The value of a field, or the default when the event doesn't have it.")
        .def("__repr__", &describe);
}

} // namespace tivra_python
