#include "receive/UserEventReactor.h"

template class tp::ReactorLoop<tivra_internal::QueuePoller>;

namespace tivra_internal {

UserEventReactor::UserEventReactor(int threadIndex) : index(threadIndex) {}

UserEventReactor::~UserEventReactor() = default;

} // namespace tivra_internal
