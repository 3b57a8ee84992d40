#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <feed/Board.h>

#include "Bindings.h"
#include "FeedHolder.h"
#include "HandOver.h"
#include "Values.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Released = nb::call_guard<Unlock>;
using tivra::BoardRow;
using tivra::Instrument;

/// A board of Python, and what is subscribed for it.
struct OwnBoard {
    OwnBoard(const std::shared_ptr<tivra::Feed>& owner, std::size_t maxSymbols)
        : feed(owner), board({maxSymbols}), group(feed->makeGroup(board.handlers())) {}

    const std::shared_ptr<tivra::Feed> feed;
    tivra::Board board;
    tivra::SubscriptionGroup group;
};
using BoardHolder = Unlocked<OwnBoard>;

[[nodiscard]] std::vector<Instrument> instrumentsOf(int source, const std::vector<std::string>& symbols) {
    std::vector<Instrument> instruments;
    for (const std::string& symbol : symbols)
        instruments.emplace_back(source, symbol);
    return instruments;
}

/// (record, state, last update, updates, gaps)
[[nodiscard]] nb::tuple toTuple(const BoardRow& row) {
    return nb::make_tuple(nb::cast(row.values), static_cast<int>(row.state),
                          row.lastUpdate ? toDatetime(*row.lastUpdate) : nb::none(), row.updates, row.gaps);
}

[[nodiscard]] nb::object find(const BoardHolder& self, int source, const std::string& symbol) {
    std::optional<BoardRow> row;
    {
        const Unlock released;
        row = self->board.find(source, symbol);
    }
    return row ? nb::object(toTuple(*row)) : nb::none();
}

/// (rows, position)
[[nodiscard]] nb::tuple changedSince(const BoardHolder& self, std::uint64_t position) {
    std::vector<BoardRow> rows;
    tivra::BoardCursor cursor{position};
    {
        const Unlock released;
        self->board.changedSince(cursor, [&rows](const BoardRow& row) { rows.push_back(row); });
    }
    nb::list list;
    for (const BoardRow& row : rows)
        list.append(toTuple(row));
    return nb::make_tuple(list, cursor.position);
}

[[nodiscard]] nb::list instrumentsIn(const BoardHolder& self) {
    std::vector<Instrument> instruments;
    {
        const Unlock released;
        instruments = self->board.instruments();
    }
    nb::list list;
    for (const Instrument& instrument : instruments)
        list.append(nb::make_tuple(instrument.source, toStr(instrument.symbol)));
    return list;
}

[[nodiscard]] nb::dict statisticsOf(const BoardHolder& self) {
    tivra::BoardStatistics figures;
    {
        const Unlock released;
        figures = self->board.statistics();
    }
    nb::dict statistics;
    statistics["symbols"] = figures.symbols;
    statistics["bytes"] = figures.bytes;
    statistics["changes"] = figures.changes;
    statistics["refused"] = figures.refused;
    statistics["left_out"] = figures.leftOut;
    return statistics;
}

} // namespace

void bindBoards(nb::module_& module) {
    nb::class_<BoardHolder>(module, "Board", "The last values of symbols.")
        .def("__init__",
             [](BoardHolder* self, const FeedHolder& feed, std::size_t maxSymbols) {
                 const Unlock released;
                 new (self) BoardHolder(std::make_shared<OwnBoard>(feed.shared(), maxSymbols));
             })
        .def(
            "add",
            [](const BoardHolder& self, int source, const std::vector<std::string>& symbols) {
                return self->group.add(instrumentsOf(source, symbols));
            },
            Released())
        .def(
            "remove",
            [](const BoardHolder& self, int source, const std::vector<std::string>& symbols) {
                return self->group.remove(instrumentsOf(source, symbols));
            },
            Released())
        .def("find", &find)
        .def("changed_since", &changedSince)
        .def("instruments", &instrumentsIn)
        .def("statistics", &statisticsOf);
}

} // namespace tivra_python
