#include "HandOvers.h"

#include "Clock.h"

namespace tivra_bench {

HandOvers::HandOvers()
    : m_router([this] {
        for (m_toRoute.acquire(); !m_isOver; m_toRoute.acquire())
            m_toExchange.release();
    })
    , m_exchanger([this] {
        for (m_toExchange.acquire(); !m_isOver; m_toExchange.acquire()) {
            m_peer.ask();
            m_toDeliver.release();
        }
    })
    , m_deliverer([this] {
        for (m_toDeliver.acquire(); !m_isOver; m_toDeliver.acquire()) {
            m_answeredAt = nowNanoseconds();
            m_toCaller.release();
        }
    }) {}

HandOvers::~HandOvers() {
    m_isOver = true;
    for (std::binary_semaphore* const next : {&m_toRoute, &m_toExchange, &m_toDeliver})
        next->release();
    for (std::thread* const thread : {&m_router, &m_exchanger, &m_deliverer})
        thread->join();
}

std::int64_t HandOvers::ask() {
    m_toRoute.release();
    m_toCaller.acquire();
    return m_answeredAt;
}

} // namespace tivra_bench
