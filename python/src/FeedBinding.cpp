#include <chrono>
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
#include "HandOver.h"
#include "PendingAnswer.h"
#include "Statuses.h"
#include "Values.h"
#include "Waiting.h"

namespace nb = nanobind;

namespace tivra_python {
namespace {

using Released = nb::call_guard<Unlock>;
using tivra::Instrument;

[[nodiscard]] FeedHolder takeFeed(OpeningHolder& self) {
    std::optional<tivra::Result<tivra::Feed>> result = self.result().take();
    if (!result)
        raiseInvalid("the feed has been taken, or isn't open yet", "open it once");
    return FeedHolder(std::make_shared<tivra::Feed>(std::move(*result).value()));
}

[[nodiscard]] nb::list hubsOf(const FeedHolder& self) {
    std::vector<tivra::HubStatus> hubs;
    {
        const Unlock released;
        hubs = self->hubs();
    }
    nb::list list;
    for (const tivra::HubStatus& hub : hubs)
        list.append(toHubDict(hub));
    return list;
}

[[nodiscard]] std::vector<PendingAnswer> snapshots(const FeedHolder& self, int source,
                                                   const std::vector<std::string>& symbols) {
    std::vector<Instrument> instruments;
    for (const std::string& symbol : symbols)
        instruments.emplace_back(source, symbol);
    std::vector<PendingAnswer> answers;
    for (tivra::Answer& answer : self->queryMany(instruments))
        answers.emplace_back(std::move(answer));
    return answers;
}

} // namespace

void bindFeeds(nb::module_& module) {
    nb::class_<OpeningHolder>(module, "Opening", "A feed that is being opened.")
        .def("__init__",
             [](OpeningHolder* self, const tivra::FeedOptions& options) {
                 tivra::FeedOptions copy = options;
                 const Unlock released;
                 new (self) OpeningHolder(std::move(copy));
             })
        .def("ready", [](const OpeningHolder& self) { return self.result().isReady(); })
        .def(
            "wait",
            [](const OpeningHolder& self, std::optional<double> seconds) {
                return waitInterruptibly(seconds,
                                         [&](auto deadline) { return self.result().waitUntil(deadline); });
            },
            nb::arg("seconds").none())
        .def("notify", [](const OpeningHolder& self, const NotifierHolder& notifier,
                          std::uint64_t token) { return self.result().notify(notifier.notifier, token); })
        .def("cancel", &OpeningHolder::cancel, Released())
        .def("take", &takeFeed);

    nb::class_<FeedHolder>(module, "Feed", "A feed that is open.")
        .def(
            "state", [](const FeedHolder& self) { return static_cast<int>(self->state()); }, Released())
        .def("hubs", &hubsOf)
        .def(
            "reconnect_now", [](const FeedHolder& self) { self->reconnectNow(); }, Released())
        .def(
            "statistics_json", [](const FeedHolder& self) { return self->statisticsText(); }, Released())
        .def(
            "open_metrics",
            [](const FeedHolder& self, const tivra::Feed::StatisticsLabels& labels) {
                return self->openMetrics(labels);
            },
            Released())
        .def(
            "snapshot",
            [](const FeedHolder& self, int source, const std::string& symbol) {
                return PendingAnswer(self->query({source, symbol}));
            },
            Released())
        .def("snapshots", &snapshots, Released())
        .def(
            "depth",
            [](const FeedHolder& self, int source, const std::string& symbol) {
                return PendingAnswer(self->queryDepth({source, symbol}));
            },
            Released())
        .def(
            "wildcard",
            [](const FeedHolder& self, int source, const std::string& pattern) {
                return PendingAnswer(self->queryWildcard(source, pattern));
            },
            Released())
        .def(
            "xref",
            [](const FeedHolder& self, int source, const std::string& symbol) {
                return PendingAnswer(self->queryXref({source, symbol}));
            },
            Released())
        .def(
            "list",
            [](const FeedHolder& self, int what) {
                return PendingAnswer(self->list(static_cast<tivra::ListOf>(what)));
            },
            Released())
        .def(
            "close",
            [](const FeedHolder& self, std::optional<double> seconds) {
                if (!seconds)
                    return self->close();
                return self->close(std::chrono::ceil<std::chrono::milliseconds>(toDuration(*seconds)));
            },
            nb::arg("seconds").none(), Released());
}

} // namespace tivra_python
