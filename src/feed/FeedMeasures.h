#pragma once

#include <map>
#include <memory>
#include <string>

#include <feed/Feed.h>
#include <tp/Mutex.h>

#include "feed/HubMeasures.h"

namespace tivra_internal {

/// What is measured of a feed: of each hub by its address, which stays when the hub goes, and of the feed's
/// requests. @thread any
class FeedMeasures {
public:
    /// Those without a name, and all hubs beyond kMostHubs, are measured together and get no entry.
    [[nodiscard]] std::shared_ptr<HubMeasures> ofHub(const std::string& address) TP_EXCLUDES(m_mutex);
    /// A request was answered after so many seconds.
    void addAnswer(double seconds) noexcept { m_requestToAnswer.record(seconds); }
    /// Enters the times, and an entry for each hub.
    void describe(tivra::FeedStatistics& figures) const TP_EXCLUDES(m_mutex);

private:
    static constexpr std::size_t kMostHubs = 256;

    [[nodiscard]] std::map<std::string, std::shared_ptr<HubMeasures>> allHubs() const TP_EXCLUDES(m_mutex);

    LatencyHistogram m_requestToAnswer;
    mutable tp::Mutex m_mutex; ///< guards what follows
    std::map<std::string, std::shared_ptr<HubMeasures>> m_hubs TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_internal
