#include "StandingHistory.h"

#include <algorithm>
#include <array>
#include <random>

namespace standing {
namespace {

constexpr int BURSTS = 6;
constexpr const char* KINDS[] = {"subscribe", "unsubscribe", "snap",   "pause",   "drop",
                                 "drop soon", "leave",       "return", "restart", "settle"};
constexpr const char* THING_NAMES[] = {"regional", "other regional", "split",   "news",
                                       "unknown",  "pattern",        "by CUSIP"};

struct Form {
    tivra::Commands command;
    const char* word;
    bool hasMore; ///< with the conflation pair
};

const std::vector<Form>& formsOf(int thing) {
    static const std::vector<Form> SYMBOL{{tivra::SUBSCRIBE, "Subscribe", false},
                                          {tivra::QUERYSNAPANDSUBSCRIBE, "QuerySnapAndSubscribe", false},
                                          {tivra::SUBSCRIBE, "Subscribe", true},
                                          {tivra::QUERYDEPTHANDSUBSCRIBE, "QueryDepthAndSubscribe", false}};
    static const std::vector<Form> WILD{
        {tivra::SUBSCRIBEWILDCARD, "SubscribeWildCard", false},
        {tivra::QUERYSNAPANDSUBSCRIBEWILDCARD, "QuerySnapAndSubscribeWildCard", false}};
    // The library makes a snap of it, since only its answer tells the symbol.
    static const std::vector<Form> CUSIP{{tivra::SUBSCRIBE, "QuerySnapAndSubscribe", false}};
    return thing == Pattern ? WILD : thing == ByCusip ? CUSIP : SYMBOL;
}

/// Draws in a way that is the same with every standard library.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : m_engine(seed) {}
    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(m_engine() % limit); }
    bool oneIn(std::size_t count) { return below(count) == 0; }
    std::size_t member() { return below(MEMBERS); }

private:
    std::mt19937_64 m_engine;
};

Step memberStep(Step::Kind kind, std::size_t member) {
    Step step;
    step.kind = kind;
    step.member = member;
    return step;
}

class Writer {
public:
    Writer(std::uint64_t seed, int sequences) : m_dice(seed), m_made(static_cast<std::size_t>(sequences)) {
        m_history.seed = seed;
        m_history.sequences = sequences;
        m_history.hasThreadPerHub = m_dice.oneIn(2);
    }

    History write() {
        for (int burst = 0; burst < BURSTS; ++burst) {
            writeBurst();
            append(memberStep(Step::Settle, 0));
            if (m_dice.oneIn(2)) {
                append(memberStep(m_dice.oneIn(6) ? Step::Restart : Step::Drop, m_dice.member()));
                append(memberStep(Step::Settle, 0));
            }
        }
        return std::move(m_history);
    }

private:
    void writeBurst() {
        // A sequence asks on average for a little more than one thing, in turn with all others.
        const std::size_t requests = m_made.size() + m_dice.below(m_made.size() + 1) / 2;
        std::vector<std::pair<std::size_t, Step>> weather = writeWeather(requests);
        for (std::size_t at = 0; at <= requests; ++at) {
            for (const auto& [place, step] : weather) {
                if (place == at)
                    append(step);
            }
            if (at < requests)
                writeRequest(m_dice.below(m_made.size()));
        }
    }

    /// Steps of no sequence with their places among the requests of a burst.
    std::vector<std::pair<std::size_t, Step>> writeWeather(std::size_t requests) {
        std::vector<std::pair<std::size_t, Step>> weather;
        const auto place = [&] { return m_dice.below(requests + 1); };
        if (m_dice.oneIn(2))
            weather.emplace_back(place(), memberStep(Step::Pause, m_dice.member()));
        switch (m_dice.below(7)) {
        case 0:
        case 1:
            break; // fair
        case 2:
            weather.emplace_back(place(), memberStep(Step::Drop, m_dice.member()));
            weather.emplace_back(place(), memberStep(Step::Drop, m_dice.member()));
            break;
        case 3: {
            Step soon = memberStep(Step::DropSoon, m_dice.member());
            soon.frames = static_cast<unsigned>(m_dice.below(requests));
            weather.emplace_back(place(), soon);
            break;
        }
        case 4:
        case 5: {
            const std::size_t member = m_dice.member();
            const std::size_t from = place();
            weather.emplace_back(from, memberStep(Step::Leave, member));
            weather.emplace_back(from + m_dice.below(requests + 1 - from), memberStep(Step::Return, member));
            break;
        }
        default:
            weather.emplace_back(place(), memberStep(Step::Restart, 0));
        }
        return weather;
    }

    void writeRequest(std::size_t sequence) {
        std::vector<std::size_t>& made = m_made[sequence];
        Step step;
        step.sequence = static_cast<int>(sequence);
        const std::size_t choice = m_dice.below(8);
        step.kind = choice < 4 ? Step::Subscribe : choice < 7 ? Step::Unsubscribe : Step::Snap;
        if (made.empty() && step.kind == Step::Unsubscribe)
            step.kind = Step::Subscribe;
        if (step.kind == Step::Unsubscribe) {
            // Mostly one of the latest, now and then any, and never one of another sequence.
            const std::size_t back =
                m_dice.below(m_dice.oneIn(4) ? made.size() : std::min<std::size_t>(2, made.size()));
            step.request = made[made.size() - 1 - back];
        } else {
            // A request that repeats an earlier one is the interesting case.
            const Step* earlier =
                made.empty() || m_dice.oneIn(2) ? nullptr : &m_history.steps[made[m_dice.below(made.size())]];
            step.thing = earlier != nullptr ? earlier->thing : static_cast<int>(m_dice.below(THINGS));
            if (step.kind == Step::Subscribe)
                step.form = static_cast<int>(m_dice.below(formsOf(step.thing).size()));
            if (earlier != nullptr && earlier->kind == step.kind && !m_dice.oneIn(3))
                step.form = earlier->form;
            step.isReversed = m_dice.oneIn(2);
        }
        append(step);
        if (step.kind != Step::Unsubscribe)
            made.push_back(m_history.steps.back().id);
    }

    void append(Step step) {
        step.id = m_history.steps.size();
        m_history.steps.push_back(step);
    }

    Dice m_dice;
    History m_history;
    /// The subscriptions and snapshots of each sequence.
    std::vector<std::vector<std::size_t>> m_made;
};

} // namespace

Target targetOf(int sequence, int thing) {
    const auto number = static_cast<std::size_t>(sequence);
    const std::string text = std::to_string(sequence);
    const std::size_t letter = number * 7 % 26;
    std::size_t owner = 0;
    while (letter >= (owner + 1) * 26 / MEMBERS)
        ++owner;
    const std::string splitName = std::string(1, static_cast<char>('A' + letter)) + "S" + text + "X";
    const auto regional = [&](std::size_t shift, const std::string& name) {
        const std::size_t member = (number + shift) % MEMBERS;
        return Target{200 + static_cast<int>(member), name, "", name, {member}, {member}};
    };
    switch (thing) {
    case Regional:
        return regional(0, "R" + text);
    case OtherRegional:
        return regional(1, "Q" + text);
    case Split:
        return {300, splitName, "", splitName, {owner}, {owner}};
    case News:
        return {4100, "N" + text, "", "N" + text, {0, 1, 2}, {0, 2}};
    case Unknown: {
        Target unknown = regional(2, "U" + text);
        unknown.symbol.clear();
        unknown.holders.clear();
        return unknown;
    }
    case Pattern:
        return {300, splitName + "*", "", splitName, {0, 1, 2}, {owner}};
    default: {
        Target alternate = regional(2, "C" + text);
        alternate.name.clear();
        alternate.cusip = "90" + std::to_string(1000000 + sequence);
        return alternate;
    }
    }
}

std::string Asking::text(std::int64_t tag) const {
    std::string text = "5022=" + word + "|";
    for (const auto& [token, value] : pairs)
        text += std::to_string(token) + "=" + value + "|";
    return text + "5026=" + std::to_string(tag);
}

Asking askingOf(const Step& step) {
    const Target target = targetOf(step.sequence, step.thing);
    const Form& form = formsOf(step.thing)[static_cast<std::size_t>(step.form)];
    Asking asking{form.command, form.word, {}};
    if (step.kind == Step::Snap && step.thing == Pattern)
        asking = {tivra::QUERYWILDCARD, "QueryWildCard", {}};
    else if (step.kind == Step::Snap)
        asking = {tivra::QUERYSNAP, "QuerySnap", {}};
    asking.pairs.emplace_back(tivra::ENUM_SRC_ID, std::to_string(target.source));
    if (target.name.empty())
        asking.pairs.emplace_back(tivra::CUSIP, target.cusip);
    else
        asking.pairs.emplace_back(tivra::SYMBOL_TICKER, target.name);
    if (step.kind == Step::Subscribe && form.hasMore)
        asking.pairs.emplace_back(tivra::CONFLATION, "1");
    if (step.isReversed)
        std::reverse(asking.pairs.begin(), asking.pairs.end());
    return asking;
}

std::string Step::text() const {
    std::string text = KINDS[kind];
    if (kind == Unsubscribe) {
        text += request == NO_STEP ? " nothing" : " what step " + std::to_string(request) + " has asked for";
    } else if (isRequest()) {
        text += std::string(" ") + THING_NAMES[thing] + ": ";
        const Asking asking = askingOf(*this);
        text += asking.word;
        for (const auto& [token, value] : asking.pairs)
            text += "|" + std::to_string(token) + "=" + value;
    } else if (kind != Settle && kind != Restart) {
        text += " member " + std::to_string(member);
        if (kind == DropSoon)
            text += " after " + std::to_string(frames) + " frames";
    }
    return text;
}

History History::random(std::uint64_t seed, int sequences) {
    return Writer(seed, sequences).write();
}

History History::of(int sequence) const {
    History part = *this;
    part.steps.erase(std::remove_if(part.steps.begin(), part.steps.end(),
                                    [sequence](const Step& step) {
                                        return step.sequence != -1 && step.sequence != sequence;
                                    }),
                     part.steps.end());
    return part;
}

std::string History::text() const {
    std::string text = hasThreadPerHub ? "a thread per hub\n" : "one thread for all hubs\n";
    for (const Step& step : steps)
        text += "  " + std::to_string(step.id) + " " + step.text() + "\n";
    return text;
}

} // namespace standing
