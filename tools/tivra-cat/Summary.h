#pragma once

#include "Counters.h"
#include "Incidents.h"
#include "RequestBook.h"
#include "SessionWatch.h"

#include <string>

namespace tivra_cat {

/// Messages per second between the first and the last, 0 for fewer than two.
[[nodiscard]] double ratePerSecond(const Counters& counters);

/// Seconds between the first message and the last.
[[nodiscard]] double secondsOfData(const Counters& counters);

/// "received 40000 messages (...) in 0.1 s, 312000 messages/s".
[[nodiscard]] std::string receivedText(const Counters& counters);

/// "4 requests: 4 answered, 0 refused, 0 open; lost 0 (...)".
[[nodiscard]] std::string outcomeText(const Counters& counters, const RequestBook::Totals& requests,
                                      const Incidents::Totals& incidents);

/// "1 interruptions (0 by a full receive queue, 2 sources lost), 0 holes in sequences, 0 restarts of them".
[[nodiscard]] std::string incidentsText(const Incidents::Totals& incidents);

/// The session's counters as a line of --stats.
[[nodiscard]] std::string statisticsText(const SessionWatch::Statistics& statistics);

} // namespace tivra_cat
