#include "Summary.h"

#include <fmt/format.h>

namespace tivra_cat {

double secondsOfData(const Counters& counters) {
    return static_cast<double>(counters.lastNanoseconds - counters.firstNanoseconds) / 1e9;
}

double ratePerSecond(const Counters& counters) {
    const double seconds = secondsOfData(counters);
    return seconds > 0.0 ? static_cast<double>(counters.received - 1) / seconds : 0.0;
}

std::string receivedText(const Counters& counters) {
    return fmt::format("received {} messages ({} updates, {} refreshes, {} image parts) in {:.3f} s, {:.0f} "
                       "messages/s",
                       counters.received.load(), counters.updates.load(), counters.refreshes.load(),
                       counters.imageParts.load(), secondsOfData(counters), ratePerSecond(counters));
}

std::string outcomeText(const Counters& counters, const RequestBook::Totals& requests,
                        const Incidents::Totals& incidents) {
    const bool isUnknown = incidents.interruptions + incidents.sourceLosses > 0;
    return fmt::format("{} requests: {} answered, {} refused, {} open; lost {}{} (output {}, sequence {}, "
                       "receive queue {} bytes, hubs {} bytes)",
                       requests.sent, requests.answered, requests.refused, requests.open(),
                       counters.outputDropped + incidents.missing,
                       isUnknown ? " and what came while a hub was away" : "", counters.outputDropped.load(),
                       incidents.missing, incidents.queueBytes, incidents.hubBytes);
}

std::string incidentsText(const Incidents::Totals& incidents) {
    return fmt::format(
        "{} interruptions ({} by a full receive queue, {} sources lost); {} holes in sequences, "
        "{} restarts of them",
        incidents.interruptions, incidents.resets, incidents.sourceLosses, incidents.holes,
        incidents.restarts);
}

std::string statisticsText(const SessionWatch::Statistics& statistics) {
    using Event = tivra::StatisticsEvent;
    return fmt::format(
        "statistics: in {} ({}/s, peak {}/s), out {} ({}/s), handed on {}, queue {}% (peak {}%), "
        "dropped here {} bytes, at hubs {} bytes",
        statistics[Event::MSGS_IN], statistics[Event::IN_MSGS_SEC], statistics[Event::PEAK_IN_MSGS_SEC],
        statistics[Event::MSGS_OUT], statistics[Event::OUT_MSGS_SEC], statistics[Event::NET_MSGS_OUT],
        statistics[Event::PCT_FULL], statistics[Event::PEAK_PCT_FULL], statistics[Event::DROP],
        statistics[Event::HUB_DROP]);
}

} // namespace tivra_cat
