#include "bus/BusConnection.h"

#include <algorithm>

#include <feed/Error.h>
#include <feed/LeaveAlive.h>

namespace tivra_python {

BusConnection::~BusConnection() {
    // A child that was forked has none of its threads.
    if (m_process.isForeign())
        tivra_internal::leaveAlive(m_reader);
    else
        close();
}

tivra::Field BusConnection::field(const std::string& name) const {
    using tivra::Error;
    if (!typeOf(name))
        throw Error({Error::Code::UnknownField, Error::Phase::Request,
                     "the dictionary of the bus has no field " + name,
                     "see that it is spelled as hubs spell it", "", 0, "", 0});
    return m_fields.field(name);
}

void BusConnection::enter(const std::shared_ptr<BusInlet>& inlet) {
    const tp::MutexLock lock(m_mutex);
    if (m_isClosed)
        inlet->endWaiting();
    std::erase_if(m_inlets, [](const auto& each) { return each.expired(); });
    m_inlets.push_back(inlet);
}

void BusConnection::close() {
    if (m_process.refuses("closing a connection to the bus"))
        return;
    std::vector<std::weak_ptr<BusInlet>> inlets;
    {
        const tp::MutexLock lock(m_mutex);
        m_isClosed = true;
        inlets.swap(m_inlets);
    }
    for (const auto& each : inlets)
        if (const auto inlet = each.lock())
            inlet->endWaiting();
    m_reader->close();
}

} // namespace tivra_python
