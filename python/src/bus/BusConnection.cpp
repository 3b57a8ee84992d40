#include "bus/BusConnection.h"

#include <algorithm>

#include <feed/Error.h>
#include <feed/LeaveAlive.h>

namespace tivra_python {
namespace {

[[nodiscard]] tivra::Error closed() {
    using tivra::Error;
    return Error({Error::Code::Closed, Error::Phase::Answer, "the connection to the bus has been closed", "",
                  "", 0, "", 0});
}

} // namespace

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

void BusConnection::enter(const std::shared_ptr<Pending<tivra::Record>>& result) {
    {
        const tp::MutexLock lock(m_mutex);
        if (!m_isClosed) {
            if (m_results.size() >= m_lookForEndedAt) {
                std::erase_if(m_results, [](const auto& each) { return each.expired(); });
                m_lookForEndedAt = std::max(2 * m_results.size(), kFewResults);
            }
            m_results.push_back(result);
            return;
        }
    }
    result->complete(closed());
}

void BusConnection::close() {
    if (m_process.refuses("closing a connection to the bus"))
        return;
    std::vector<std::weak_ptr<BusInlet>> inlets;
    std::vector<std::weak_ptr<Pending<tivra::Record>>> results;
    {
        const tp::MutexLock lock(m_mutex);
        m_isClosed = true;
        inlets.swap(m_inlets);
        results.swap(m_results);
    }
    for (const auto& each : results)
        if (const auto result = each.lock())
            result->complete(closed());
    for (const auto& each : inlets)
        if (const auto inlet = each.lock())
            inlet->endWaiting();
    m_reader->close();
}

} // namespace tivra_python
