#include "Weather.h"

#include <random>

namespace chaos {
namespace {

constexpr std::size_t SPELLS = 4;

const char* nameOf(Kind kind) {
    static const char* const names[] = {
        "kill",         "restart",         "drop",   "reset",    "half-close",     "drop soon",
        "silence",      "deafness",        "drip",   "split",    "garbage",        "shut door",
        "refuse login", "delay",           "busy",   "wrong",    "new dictionary", "rights",
        "clock jump",   "wall clock step", "toggle", "snapshot", "stop and start"};
    static_assert(sizeof names / sizeof *names == static_cast<std::size_t>(Kind::Last) + 1);
    return names[static_cast<std::size_t>(kind)];
}

} // namespace

Forecast Forecast::random(std::uint64_t seed) {
    std::mt19937_64 dice(seed);
    const auto below = [&dice](unsigned limit) { return static_cast<unsigned>(dice() % limit); };
    Forecast forecast;
    forecast.seed = seed;
    forecast.hasBackup = below(3) > 0;
    forecast.hasThreadPerHub = below(2) > 0;
    forecast.isCompressed = below(3) == 0;
    for (std::size_t spell = 0; spell < SPELLS; ++spell) {
        std::vector<Event>& events = forecast.spells.emplace_back();
        for (unsigned count = 1 + below(5); count > 0; --count) {
            Event event;
            event.kind = static_cast<Kind>(below(static_cast<unsigned>(Kind::Last) + 1));
            event.side = below(4) == 0 ? 1 : 0;
            event.member = below(MEMBERS);
            event.amount = below(1000);
            event.milliseconds = below(4) == 0 ? below(1500) : below(40);
            events.push_back(event);
        }
    }
    return forecast;
}

std::string Forecast::text() const {
    std::string text = "seed " + std::to_string(seed) + (hasBackup ? ", with backup" : "") +
                       (hasThreadPerHub ? ", a thread per hub" : "") + (isCompressed ? ", compressed" : "");
    for (const std::vector<Event>& spell : spells) {
        text += "\n ";
        for (const Event& event : spell)
            text += std::string(" ") + nameOf(event.kind) + " " + std::to_string(event.side) + "." +
                    std::to_string(event.member) + " (" + std::to_string(event.amount) + "), " +
                    std::to_string(event.milliseconds) + " ms;";
    }
    return text + "\n";
}

} // namespace chaos
