#include <cstddef>
#include <cstdint>
#include <functional>
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
#include "bus/BusBoard.h"
#include "bus/BusHolder.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Released = nb::call_guard<Unlock>;
using tivra::BoardRow;
using tivra::Instrument;

/// A board of Python, and what is subscribed for it.
class OwnBoard {
public:
    OwnBoard(std::shared_ptr<tivra::Feed> feed, std::size_t maxSymbols)
        : m_feed(std::move(feed)), m_board({maxSymbols}), m_group(m_feed->makeGroup(m_board.handlers())) {}

    std::size_t add(const std::vector<Instrument>& instruments) { return m_group.add(instruments); }
    std::size_t remove(const std::vector<Instrument>& instruments) { return m_group.remove(instruments); }
    std::size_t forgetClosed() { return m_board.forgetClosed(); }
    [[nodiscard]] std::optional<BoardRow> find(const Instrument& instrument) const {
        return m_board.find(instrument.source, instrument.symbol);
    }
    std::uint64_t changedSince(std::uint64_t position,
                               const std::function<void(const BoardRow&)>& take) const {
        tivra::BoardCursor cursor{position};
        m_board.changedSince(cursor, take);
        return cursor.position;
    }
    [[nodiscard]] std::vector<Instrument> instruments() const { return m_board.instruments(); }
    [[nodiscard]] tivra::BoardStatistics statistics() const { return m_board.statistics(); }
    [[nodiscard]] std::uint64_t leftOut() const { return m_board.leftOut(); }

private:
    const std::shared_ptr<tivra::Feed> m_feed;
    tivra::Board m_board;
    tivra::SubscriptionGroup m_group;
};

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

template<class Holder>
[[nodiscard]] nb::object find(const Holder& self, int source, const std::string& symbol) {
    std::optional<BoardRow> row;
    {
        const Unlock released;
        row = self->find({source, symbol});
    }
    return row ? nb::object(toTuple(*row)) : nb::none();
}

/// (rows, position)
template<class Holder>
[[nodiscard]] nb::tuple changedSince(const Holder& self, std::uint64_t position) {
    std::vector<BoardRow> rows;
    {
        const Unlock released;
        position = self->changedSince(position, [&rows](const BoardRow& row) { rows.push_back(row); });
    }
    nb::list list;
    for (const BoardRow& row : rows)
        list.append(toTuple(row));
    return nb::make_tuple(list, position);
}

template<class Holder>
[[nodiscard]] nb::list instrumentsIn(const Holder& self) {
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

template<class Holder>
[[nodiscard]] nb::dict statisticsOf(const Holder& self) {
    tivra::BoardStatistics figures;
    std::uint64_t leftOut = 0;
    {
        const Unlock released;
        figures = self->statistics();
        leftOut = self->leftOut();
    }
    nb::dict statistics;
    statistics["symbols"] = figures.symbols;
    statistics["bytes"] = figures.bytes;
    statistics["changes"] = figures.changes;
    statistics["refused"] = figures.refused;
    statistics["left_out"] = leftOut;
    return statistics;
}

template<class OneBoard, class Owner>
void bindBoard(nb::module_& module, const char* name, const char* doc) {
    using Holder = Unlocked<OneBoard>;
    nb::class_<Holder>(module, name, doc)
        .def("__init__",
             [](Holder* self, const Owner& owner, std::size_t maxSymbols) {
                 const Unlock released;
                 new (self) Holder(std::make_shared<OneBoard>(owner.shared(), maxSymbols));
             })
        .def(
            "add",
            [](const Holder& self, int source, const std::vector<std::string>& symbols) {
                return self->add(instrumentsOf(source, symbols));
            },
            Released())
        .def(
            "remove",
            [](const Holder& self, int source, const std::vector<std::string>& symbols) {
                return self->remove(instrumentsOf(source, symbols));
            },
            Released())
        .def(
            "forget_closed", [](const Holder& self) { return self->forgetClosed(); }, Released())
        .def("find", &find<Holder>)
        .def("changed_since", &changedSince<Holder>)
        .def("instruments", &instrumentsIn<Holder>)
        .def("statistics", &statisticsOf<Holder>);
}

} // namespace

void bindBoards(nb::module_& module) {
    bindBoard<OwnBoard, FeedHolder>(module, "Board", "The last values of symbols.");
    bindBoard<BusBoard, BusHolder>(module, "BusBoard", "The last values of symbols of the bus.");
}

} // namespace tivra_python
