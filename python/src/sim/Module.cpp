#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nanobind/nanobind.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <tivra_sim/Hub.h>

#include "Bindings.h"
#include "HandOver.h"

namespace nb = nanobind;

namespace {

using Released = nb::call_guard<tivra_python::Unlock>;
using tivra_sim::Hub;
using tivra_sim::HubConfig;

/// Its thread needs nothing of Python, but ending it takes a moment.
struct OwnHub {
    explicit OwnHub(HubConfig config) : hub(std::make_unique<Hub>(std::move(config))) {}
    ~OwnHub() {
        const tivra_python::Unlock released;
        hub.reset();
    }
    OwnHub(const OwnHub&) = delete;
    OwnHub& operator=(const OwnHub&) = delete;

    std::unique_ptr<Hub> hub;
};

struct PlaybackOptions {
    std::string file;
    double factor;
    std::size_t startWhen;
    std::size_t maxEvents;
    unsigned repeat;
};

void setPlayback(HubConfig& config, PlaybackOptions options) {
    config.playback.file = std::move(options.file);
    config.playback.factor = options.factor;
    config.playback.startWhenSubscriptions = options.startWhen;
    config.playback.maxEvents = options.maxEvents;
    config.playback.repeat = options.repeat;
}

[[nodiscard]] Hub::Deadline deadlineOf(double seconds) {
    constexpr double kLongest = 1e9; // what fits
    return std::chrono::milliseconds(static_cast<std::int64_t>(std::min(seconds, kLongest) * 1000));
}

[[nodiscard]] Hub::Close closeOf(bool isReset) noexcept {
    return isReset ? Hub::Close::Reset : Hub::Close::Orderly;
}

std::size_t publish(const OwnHub& self, int source, const std::string& symbol,
                    const std::vector<std::pair<int, std::string>>& values) {
    tivra_sim::Record record(source, symbol);
    for (const auto& [token, value] : values)
        record.add(token, value);
    return self.hub->pushRecord(record);
}

[[nodiscard]] nb::dict statisticsOf(const OwnHub& self) {
    const tivra_sim::HubStatistics figures = self.hub->statistics();
    nb::dict statistics;
    statistics["connections"] = figures.connections;
    statistics["logged_in"] = figures.loggedIn;
    statistics["subscriptions"] = figures.subscriptions;
    statistics["accepted"] = figures.accepted;
    statistics["requests"] = figures.requests;
    statistics["protocol_errors"] = figures.protocolErrors;
    statistics["frames_sent"] = figures.framesSent;
    statistics["bytes_sent"] = figures.bytesSent;
    statistics["updates_sent"] = figures.updatesSent;
    statistics["playback_sent"] = figures.playbackSent;
    statistics["playback_finished"] = figures.playbackFinished;
    return statistics;
}

[[nodiscard]] nb::dict fieldsOf(const OwnHub& self) {
    nb::dict fields;
    for (const tivra_sim::DictionaryRow& row : self.hub->config().dictionary)
        fields[row.name.c_str()] = nb::make_tuple(row.number, row.type);
    return fields;
}

void bindData(nb::class_<OwnHub>& hub) {
    hub.def("publish", &publish, Released())
        .def(
            "refresh",
            [](const OwnHub& self, int source, const std::string& symbol) {
                return self.hub->pushRefresh(source, symbol);
            },
            Released())
        .def(
            "start_playback", [](const OwnHub& self) { self.hub->startPlayback(); }, Released())
        .def(
            "stop_playback", [](const OwnHub& self) { self.hub->stopPlayback(); }, Released())
        .def(
            "grant", [](const OwnHub& self, int source) { self.hub->grantSource(source); }, Released())
        .def(
            "withdraw", [](const OwnHub& self, int source) { self.hub->withdrawSource(source); }, Released())
        .def(
            "overrun",
            [](const OwnHub& self, std::int64_t bytes, std::int64_t idle) {
                self.hub->pushHubStatus(bytes, idle);
            },
            Released());
}

void bindFaults(nb::class_<OwnHub>& hub) {
    hub.def(
           "drop_connections",
           [](const OwnHub& self, bool isReset) { self.hub->dropConnections(closeOf(isReset)); }, Released())
        .def(
            "drop_after_frames",
            [](const OwnHub& self, std::uint64_t frames, bool isReset) {
                self.hub->dropAfterFrames(frames, closeOf(isReset));
            },
            Released())
        .def(
            "set_accepting", [](const OwnHub& self, bool isOn) { self.hub->setAccepting(isOn); }, Released())
        .def(
            "set_silent", [](const OwnHub& self, bool isOn) { self.hub->setSilent(isOn); }, Released())
        .def(
            "set_answer_delay",
            [](const OwnHub& self, double seconds) { self.hub->setAnswerDelay(deadlineOf(seconds)); },
            Released())
        .def(
            "refuse",
            [](const OwnHub& self, const std::string& command, int status, unsigned times) {
                self.hub->refuse(command, status, times);
            },
            Released())
        .def(
            "ignore",
            [](const OwnHub& self, const std::string& command, unsigned times) {
                self.hub->ignore(command, times);
            },
            Released())
        .def(
            "clear_refusals", [](const OwnHub& self) { self.hub->clearRefusals(); }, Released())
        .def("send_body", [](const OwnHub& self, const nb::bytes& body) {
            const std::string bytes(body.c_str(), body.size());
            const tivra_python::Unlock released;
            self.hub->sendBody(bytes);
        });
}

void bindWaiting(nb::class_<OwnHub>& hub) {
    hub.def(
           "wait_for_connections",
           [](const OwnHub& self, std::size_t count, double seconds) {
               return self.hub->waitForConnections(count, deadlineOf(seconds));
           },
           Released())
        .def(
            "wait_for_subscriptions",
            [](const OwnHub& self, std::size_t count, double seconds) {
                return self.hub->waitForSubscriptions(count, deadlineOf(seconds));
            },
            Released())
        .def(
            "wait_for_playback",
            [](const OwnHub& self, double seconds) { return self.hub->waitForPlayback(deadlineOf(seconds)); },
            Released())
        .def(
            "wait_for_command",
            [](const OwnHub& self, const std::string& command, double seconds) {
                return self.hub->waitForCommand(command, deadlineOf(seconds)).has_value();
            },
            Released());
}

} // namespace

NB_MODULE(_sim, module) {
    nb::set_leak_warnings(false);
    module.doc() = "The simulator behind tivra.sim.";
    tivra_python::bindHandOver(module);
    nb::class_<HubConfig>(module, "HubConfig", "What a hub is started with.")
        .def_static("realistic", &HubConfig::realistic)
        .def_static("quiet", &HubConfig::quiet)
        .def_static("from_json", [](const std::string& text) { return HubConfig::fromJson(text); })
        .def_rw("port", &HubConfig::port)
        .def("set_playback",
             [](HubConfig& self, const std::string& file, double factor, std::size_t startWhen,
                std::size_t maxEvents, unsigned repeat) {
                 setPlayback(self, {file, factor, startWhen, maxEvents, repeat});
             })
        .def("add_symbol", [](HubConfig& self, int source, const std::string& symbol) {
            self.symbols.push_back({source, symbol, {}});
        });
    nb::class_<OwnHub> hub(module, "Hub", "A hub in this process.");
    hub.def(nb::init<HubConfig>())
        .def(
            "start", [](const OwnHub& self) { self.hub->start(); }, Released())
        .def(
            "stop", [](const OwnHub& self) { self.hub->stop(); }, Released())
        .def(
            "restart", [](const OwnHub& self) { self.hub->restart(); }, Released())
        .def("port", [](const OwnHub& self) { return self.hub->port(); })
        .def("address", [](const OwnHub& self) { return self.hub->hostString(); })
        .def("fields", &fieldsOf)
        .def("requests", [](const OwnHub& self) { return self.hub->requestTexts(); })
        .def("statistics", &statisticsOf);
    bindData(hub);
    bindFaults(hub);
    bindWaiting(hub);
}
