#include <tp/EventReactor.h>

namespace tp {

template class ReactorLoop<SocketPoller>;

EventReactor::EventReactor(Backend backend) : ReactorLoop(backend) {}

EventReactor::~EventReactor() = default;

void EventReactor::changeSocketFD(EventBase* event, int fd) {
    pollfd* const place = Table::placeOf(event);
    if (place == nullptr)
        return;
    m_poller.remove(*place, event);
    place->fd = fd;
    place->revents = 0;
    m_poller.add(*place, event);
}

int EventReactor::getSocketFD(const EventBase* event) const {
    const pollfd* const place = Table::placeOf(event);
    return place != nullptr ? place->fd : -1;
}

} // namespace tp
