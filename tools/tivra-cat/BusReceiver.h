#pragma once

#include "BusFields.h"
#include "Counters.h"
#include "FieldSelection.h"
#include "MessageCount.h"
#include "RecordQueue.h"
#include "Wakeup.h"

#include <reader/BusReader.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace tivra_cat {

/// What comes from the bus: copies messages for the writer, counts, and keeps what the user should hear until
/// the main thread asks.
class BusReceiver {
public:
    struct Settings {
        bool copiesMessages = true; ///< for the output
        bool takesImages = true;    ///< the images at the beginning too
        bool takesUpdates = true;   ///< what comes after them
        std::uint64_t limit = 0;    ///< messages to take, 0 for no limit
    };

    BusReceiver(const Settings& settings, const FieldSelection& selection, RecordQueue& queue,
                Counters& counters, const Wakeup& wakeup)
        : m_settings(settings)
        , m_queue(queue)
        , m_counters(counters)
        , m_wakeup(wakeup)
        , m_count(settings.limit, counters, wakeup)
        , m_fields(selection) {}

    /// They have to be gone before this.
    [[nodiscard]] tivra::BusHandlers handlers();
    void onState(const tivra::FeedStateChange& change);
    void onProblem(const tivra::BusProblem& problem);

    [[nodiscard]] bool isLimitReached() const { return m_count.isLimitReached(); }
    /// Symbols whose last values have come.
    [[nodiscard]] std::size_t answered() const;
    /// Names of at most `limit` of these whose last values haven't.
    [[nodiscard]] std::vector<std::string> open(const std::vector<tivra::Instrument>& instruments,
                                                std::size_t limit) const;
    /// What the user should hear, since the last call.
    [[nodiscard]] std::vector<std::string> takeNotices();
    /// The first that made the data incomplete; empty for none.
    [[nodiscard]] std::string firstIncident() const;
    /// Selected fields of which nothing has come.
    [[nodiscard]] std::vector<std::string> unseen() const;

private:
    void onUpdate(const tivra::BusUpdate& update);
    void onGap(const tivra::Instrument& instrument, const tivra::BusGap& gap);
    [[nodiscard]] Record copy(const tivra::BusUpdate& update, tivra::MessageEvent::Types type);
    void mark(const std::string& text);

    const Settings m_settings;
    RecordQueue& m_queue;
    Counters& m_counters;
    const Wakeup& m_wakeup;
    MessageCount m_count;

    mutable std::mutex m_mutex; ///< guards all below
    BusFields m_fields;
    std::set<tivra::Instrument> m_answered;
    std::vector<std::string> m_notices;
    std::map<tivra::BusGap::Cause, std::pair<std::size_t, std::uint64_t>> m_gaps; ///< not said yet
    std::string m_first;
};

} // namespace tivra_cat
