#include "History.h"

#include <algorithm>
#include <iterator>
#include <random>

namespace history {
namespace {

constexpr int BURSTS = 6;
constexpr int SPELLS = 4;
constexpr const char* NAMES[] = {"subscribe", "unsubscribe", "pause",     "settle", "toggle", "snap",
                                 "restart",   "leave",       "bounce",    "drop",   "reset",  "half-close",
                                 "drop soon", "silence",     "deafness",  "drip",   "split",  "garbage",
                                 "shut door", "refuse",      "delay",     "busy",   "wrong",  "new words",
                                 "rights",    "clock jump",  "wall clock"};
static_assert(std::size(NAMES) == Step::KINDS);

/// Draws in a way that is the same with every standard library.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : m_engine(seed) {}
    unsigned below(std::size_t limit) { return static_cast<unsigned>(m_engine() % limit); }
    bool oneIn(std::size_t count) { return below(count) == 0; }

private:
    std::mt19937_64 m_engine;
};

class Writer {
public:
    explicit Writer(std::uint64_t seed) : m_dice(seed) { m_history.hasThreadPerHub = m_dice.oneIn(2); }

    History writeRequests(int sequences) {
        m_history.sequences = sequences;
        m_made.resize(static_cast<std::size_t>(sequences));
        for (int burst = 0; burst < BURSTS; ++burst) {
            // A sequence asks on average for a little more than one thing, in turn with all others.
            const std::size_t requests = m_made.size() + m_dice.below(m_made.size() + 1) / 2;
            for (std::size_t i = 0; i < requests; ++i) {
                if (m_dice.oneIn(requests))
                    appendLoss(requests);
                appendRequest(m_dice.below(m_made.size()));
            }
            append({});
            if (m_dice.oneIn(2)) {
                append(Step{m_dice.oneIn(6) ? Step::Restart : Step::Drop, 0, 0, m_dice.below(MEMBERS)});
                append({});
            }
        }
        return std::move(m_history);
    }

    History writeFaults() {
        m_history.hasBackup = !m_dice.oneIn(3);
        m_history.isCompressed = m_dice.oneIn(3);
        for (int spell = 0; spell < SPELLS; ++spell) {
            for (unsigned count = 1 + m_dice.below(5); count > 0; --count) {
                Step step;
                step.kind = static_cast<Step::Kind>(Step::Toggle + m_dice.below(Step::KINDS - Step::Toggle));
                step.side = m_dice.oneIn(4) ? 1 : 0;
                step.member = m_dice.below(2);
                step.amount = m_dice.below(1000);
                step.milliseconds = m_dice.oneIn(4) ? m_dice.below(1500) : m_dice.below(40);
                append(step);
            }
            append({});
        }
        return std::move(m_history);
    }

private:
    void appendLoss(std::size_t requests) {
        static constexpr Step::Kind kinds[] = {Step::Pause, Step::Pause,    Step::Drop,
                                               Step::Reset, Step::DropSoon, Step::Leave,
                                               Step::Leave, Step::Bounce,   Step::Restart};
        Step step{kinds[m_dice.below(std::size(kinds))], 0, 0, m_dice.below(MEMBERS)};
        step.amount = m_dice.below(requests);
        append(step);
    }

    void appendRequest(std::size_t sequence) {
        std::vector<std::size_t>& made = m_made[sequence];
        Step step;
        step.sequence = static_cast<int>(sequence);
        const unsigned choice = m_dice.below(8);
        step.kind = choice < 4 ? Step::Subscribe : choice < 7 ? Step::Unsubscribe : Step::Snap;
        if (made.empty() && step.kind == Step::Unsubscribe)
            step.kind = Step::Subscribe;
        if (step.kind == Step::Unsubscribe) {
            // Mostly one of the latest, now and then any, and never one of another sequence.
            const std::size_t back =
                m_dice.below(m_dice.oneIn(4) ? made.size() : std::min<std::size_t>(2, made.size()));
            step.request = made[made.size() - 1 - back];
            return append(step);
        }
        // A request that repeats an earlier one is the interesting case.
        const Step* earlier =
            made.empty() || m_dice.oneIn(2) ? nullptr : &m_history.steps[made[m_dice.below(made.size())]];
        step.thing = earlier != nullptr ? earlier->thing : static_cast<int>(m_dice.below(THINGS));
        if (step.kind == Step::Subscribe)
            step.form = static_cast<int>(m_dice.below(FORMS[step.thing]));
        if (earlier != nullptr && earlier->kind == step.kind && !m_dice.oneIn(3))
            step.form = earlier->form;
        step.isReversed = m_dice.oneIn(2);
        append(step);
        made.push_back(m_history.steps.back().id);
    }

    void append(Step step) {
        step.id = m_history.steps.size();
        m_history.steps.push_back(step);
    }

    Dice m_dice;
    History m_history;
    std::vector<std::vector<std::size_t>> m_made; ///< the subscriptions and snapshots of each sequence
};

} // namespace

History History::ofRequests(std::uint64_t seed, int sequences) {
    return Writer(seed).writeRequests(sequences);
}

History History::ofFaults(std::uint64_t seed) {
    return Writer(seed).writeFaults();
}

std::string History::text(int sequence) const {
    std::string text = hasThreadPerHub ? "a thread per hub" : "one thread";
    text += std::string(hasBackup ? ", with backup" : "") + (isCompressed ? ", compressed\n" : "\n");
    for (const Step& step : steps) {
        if (sequence != -1 && step.sequence != -1 && step.sequence != sequence)
            continue;
        text += "  " + std::to_string(step.id) + " " + NAMES[step.kind];
        if (step.kind == Step::Unsubscribe)
            text += " what step " + std::to_string(step.request) + " has asked for";
        else if (step.sequence != -1)
            text += " thing " + std::to_string(step.thing) + " form " + std::to_string(step.form) +
                    (step.isReversed ? " reversed" : "");
        else if (step.kind != Step::Settle)
            text += " " + std::to_string(step.side) + "." + std::to_string(step.member) + " (" +
                    std::to_string(step.amount) + "), " + std::to_string(step.milliseconds) + " ms";
        text += "\n";
    }
    return text;
}

} // namespace history
