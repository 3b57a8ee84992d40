#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "Bindings.h"
#include "Errors.h"
#include "FeedHolder.h"
#include "FeedStream.h"
#include "HandOver.h"
#include "Notices.h"
#include "Stream.h"
#include "Values.h"
#include "Waiting.h"
#include "bus/BusHolder.h"
#include "bus/BusStream.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Released = nb::call_guard<Unlock>;
using StreamHolder = Unlocked<Stream>;
using tivra::Instrument;

[[nodiscard]] ColumnType typeOf(tivra::Value::Type type) noexcept {
    switch (type) {
    case tivra::Value::Type::Integer:
        return ColumnType::Int64;
    case tivra::Value::Type::Double:
        return ColumnType::Double;
    case tivra::Value::Type::Time:
        return ColumnType::Time;
    case tivra::Value::Type::Text:
        break;
    }
    return ColumnType::Text;
}

[[nodiscard]] HeadField headFieldOf(const std::string& name) noexcept {
    if (name == "ENUM.SRC.ID")
        return HeadField::Source;
    if (name == "SYMBOL.TICKER")
        return HeadField::Symbol;
    return name == "REFRESH" ? HeadField::Refresh : HeadField::None;
}

/// Types come from the hub's dictionary, so that all batches have the same. A field has one column, however
/// often it is named.
template<class Owner>
[[nodiscard]] RowFields rowFieldsOf(const Owner& feed, const std::vector<std::string>& names) {
    RowFields fields;
    if (feed.typeOf("QUERY.TAG"))
        fields.tag = feed.field("QUERY.TAG");
    std::vector<FieldColumn>& columns = fields.columns;
    for (const std::string& name : names) {
        if (std::any_of(columns.begin(), columns.end(),
                        [&name](const FieldColumn& column) { return column.spec.name == name; }))
            continue;
        const tivra::Field field = feed.field(name);
        const std::optional<tivra::Value::Type> type = feed.typeOf(name);
        columns.push_back({field, {name, type ? typeOf(*type) : ColumnType::Found}, headFieldOf(name)});
    }
    return fields;
}

[[nodiscard]] std::vector<Instrument> instrumentsOf(int source, const std::vector<std::string>& symbols) {
    std::vector<Instrument> instruments;
    instruments.reserve(symbols.size());
    for (const std::string& symbol : symbols)
        instruments.emplace_back(source, symbol);
    return instruments;
}

/// What a stream is made with, in the order of the arguments of Python's side.
template<class OwnStream, class Holder>
void makeStream(StreamHolder* self, const Holder& owner, const std::vector<std::string>& fields, int policy,
                std::size_t maxRows, std::size_t maxBytes, const nb::object& onUpdate,
                const nb::object& onState, const nb::object& onGap) {
    StreamSink::Options options{{static_cast<tivra::QueuePolicy>(policy), maxRows, maxBytes, true},
                                {},
                                Callable(onUpdate),
                                Callable(onState),
                                Callable(onGap)};
    const Unlock released;
    options.fields = rowFieldsOf(*owner, fields);
    new (self) StreamHolder(std::make_shared<OwnStream>(owner.shared(), std::move(options)));
}

template<class OwnStream, class Holder>
void bindMaking(nb::class_<StreamHolder>& stream) {
    stream.def("__init__", &makeStream<OwnStream, Holder>, nb::arg("owner"), nb::arg("fields"),
               nb::arg("policy"), nb::arg("max_rows"), nb::arg("max_bytes"), nb::arg("on_update").none(),
               nb::arg("on_state").none(), nb::arg("on_gap").none());
}

[[nodiscard]] std::vector<Event> pollEvents(const StreamHolder& self, std::size_t most) {
    std::vector<Event> events;
    const Unlock released;
    self->sink().queue().poll(most, [&events](Event&& event) { events.push_back(std::move(event)); });
    return events;
}

[[nodiscard]] nb::list takeEvents(const StreamHolder& self, std::size_t most) {
    nb::list list;
    for (Event& event : pollEvents(self, most))
        list.append(nb::cast(std::move(event)));
    return list;
}

/// (columns, gaps, states)
[[nodiscard]] nb::tuple takeRows(const StreamHolder& self) {
    RowBlock block;
    {
        const Unlock released;
        block = self->sink().takeRows();
    }
    nb::list gaps;
    nb::list states;
    if (block.loss.rows != 0)
        gaps.append(makeOverflow(0, "", block.loss.rows, block.loss.from, block.loss.to, 0));
    for (const RowBlock::Notice& notice : block.notices) {
        const Event& event = notice.event;
        if (event.gap)
            gaps.append(makeGap(event, notice.row));
        else if (event.state)
            states.append(makeStateChange(event));
        else
            gaps.append(makeOverflow(event.source, event.symbol, event.dropped, 0, 0, notice.row));
    }
    if (block.loss.gaps != 0)
        gaps.append(makeUnlisted(block.loss.gaps));
    return nb::make_tuple(nb::cast(std::move(block.rows)), nb::tuple(gaps), nb::tuple(states));
}

[[nodiscard]] nb::dict statisticsOf(const StreamHolder& self) {
    tivra::GroupStatistics figures;
    std::uint64_t dropped = 0;
    std::uint64_t merged = 0;
    std::size_t waiting = 0;
    {
        const Unlock released;
        figures = self->statistics();
        dropped = self->sink().dropped();
        merged = self->sink().merged();
        waiting = self->sink().waiting();
    }
    nb::dict statistics;
    statistics["subscriptions"] = figures.subscriptions;
    statistics["pending"] = figures.pending;
    statistics["live"] = figures.live;
    statistics["stale"] = figures.stale;
    statistics["recovering"] = figures.recovering;
    statistics["refused"] = figures.refused;
    statistics["updates"] = figures.updates;
    statistics["gaps"] = figures.gaps;
    statistics["waiting"] = waiting;
    statistics["dropped"] = dropped;
    statistics["merged"] = merged;
    return statistics;
}

[[nodiscard]] nb::object errorOf(const StreamHolder& self, int source, const std::string& symbol) {
    std::optional<tivra::Error> error;
    {
        const Unlock released;
        error = self->error({source, symbol});
    }
    return error ? makeException(*error) : nb::none();
}

[[nodiscard]] nb::object lastUpdateOf(const StreamHolder& self, int source, const std::string& symbol) {
    std::optional<std::chrono::system_clock::time_point> last;
    {
        const Unlock released;
        last = self->lastUpdate({source, symbol});
    }
    return last ? toDatetime(*last) : nb::none();
}

[[nodiscard]] nb::list instrumentsIn(const StreamHolder& self) {
    std::vector<Instrument> instruments;
    {
        const Unlock released;
        instruments = self->instruments();
    }
    nb::list list;
    for (const Instrument& instrument : instruments)
        list.append(nb::make_tuple(instrument.source, toStr(instrument.symbol)));
    return list;
}

void bindSubscribing(nb::class_<StreamHolder>& stream) {
    stream
        .def(
            "add",
            [](const StreamHolder& self, int source, const std::vector<std::string>& symbols) {
                return self->add(instrumentsOf(source, symbols));
            },
            Released())
        .def(
            "remove",
            [](const StreamHolder& self, int source, const std::vector<std::string>& symbols) {
                return self->remove(instrumentsOf(source, symbols));
            },
            Released())
        .def(
            "add_wildcard",
            [](const StreamHolder& self, int source, const std::string& pattern) {
                self->addWildcard(source, pattern);
            },
            Released())
        .def(
            "add_depth",
            [](const StreamHolder& self, int source, const std::string& symbol) {
                self->addDepth({source, symbol});
            },
            Released())
        .def(
            "close", [](const StreamHolder& self) { self->close(); }, Released())
        .def(
            "end", [](const StreamHolder& self) { self->end(); }, Released())
        .def(
            "state",
            [](const StreamHolder& self, int source, const std::string& symbol) -> std::optional<int> {
                const auto state = self->state({source, symbol});
                return state ? std::optional(static_cast<int>(*state)) : std::nullopt;
            },
            Released())
        .def("error", &errorOf)
        .def("last_update", &lastUpdateOf)
        .def("instruments", &instrumentsIn)
        .def("statistics", &statisticsOf);
}

void bindReading(nb::class_<StreamHolder>& stream) {
    stream
        .def(
            "finished", [](const StreamHolder& self) { return self->sink().isFinished(); }, Released())
        .def(
            "descriptor", [](const StreamHolder& self) { return self->sink().queue().descriptor(); },
            Released())
        .def("take_events", &takeEvents)
        .def(
            "wait_events",
            [](const StreamHolder& self, std::optional<double> seconds) {
                return waitInterruptibly(seconds, [&](auto deadline) {
                    return self->sink().queue().wait(deadline - std::chrono::steady_clock::now()) ||
                           self->sink().isFinished();
                });
            },
            nb::arg("seconds").none())
        .def(
            "begin_rows",
            [](const StreamHolder& self, std::size_t batchRows) { return self->sink().beginRows(batchRows); },
            Released())
        .def(
            "is_direct", [](const StreamHolder& self) { return self->sink().isDirect(); }, Released())
        .def(
            "gather", [](const StreamHolder& self) { return self->sink().gather(); }, Released())
        .def(
            "wait_rows",
            [](const StreamHolder& self, std::size_t rows, std::optional<double> seconds) {
                return waitInterruptibly(seconds, [&](auto deadline) {
                    return self->sink().waitForRows(rows, deadline) || self->sink().isFinished();
                });
            },
            nb::arg("rows"), nb::arg("seconds").none())
        .def(
            "notify",
            [](const StreamHolder& self, std::size_t rows, const NotifierHolder& notifier,
               std::uint64_t token) { return self->sink().notify(rows, notifier.notifier, token); },
            Released())
        .def("take_rows", &takeRows);
}

} // namespace

void bindStreams(nb::module_& module) {
    nb::class_<StreamHolder> stream(module, "Stream", "The subscriptions of one reader.");
    bindMaking<FeedStream, FeedHolder>(stream);
    bindMaking<BusStream, BusHolder>(stream);
    bindSubscribing(stream);
    bindReading(stream);
}

} // namespace tivra_python
