#include <event/StatisticsEvent.h>

#include "session/StatisticsEventImpl.h"

namespace tivra {

StatisticsEvent::StatisticsEvent(tivra_internal::StatisticsEventImpl* impl) noexcept
    : statisticsEventImpl(impl) {}

StatisticsEvent::~StatisticsEvent() {
    delete statisticsEventImpl;
}

uint64_t StatisticsEvent::getStat(StatsTypes type) const {
    return statisticsEventImpl->getStat(type);
}

Session& StatisticsEvent::getSession() const {
    return statisticsEventImpl->getSession();
}

} // namespace tivra
