#include "bus/BusStream.h"

#include <utility>

#include <feed/LeaveAlive.h>

namespace tivra_python {
namespace {

using tivra::Error;

/// Before that of the inlet.
constexpr tp::LockRank kLockStream{880, "BusStream::m_mutex"};

[[noreturn]] void refuse(const char* what) {
    throw Error({Error::Code::InvalidArgument, Error::Phase::Request, std::string("the bus has no ") + what,
                 "subscribe symbols, or open a feed of a hub", "", 0, "", 0});
}

} // namespace

BusStream::BusStream(std::shared_ptr<BusConnection> bus, StreamSink::Options options)
    : BusStream(bus, std::make_shared<BusInlet>(std::move(options), bus->fields())) {}

BusStream::BusStream(std::shared_ptr<BusConnection> bus, std::shared_ptr<BusInlet> inlet)
    : Stream(inlet->sink()), m_bus(std::move(bus)), m_inlet(std::move(inlet)), m_mutex(kLockStream) {
    m_bus->enter(m_inlet);
}

BusStream::~BusStream() {
    // A child that was forked has none of the threads that may be in their handlers.
    if (m_process.isForeign())
        tivra_internal::leaveAlive(m_subscriptions);
    else
        m_inlet->endWaiting();
}

std::size_t BusStream::add(const std::vector<tivra::Instrument>& instruments) {
    const tp::MutexLock lock(m_mutex);
    if (m_isClosed)
        throw Error(
            {Error::Code::Closed, Error::Phase::Request, "the subscription is closed", "", "", 0, "", 0});
    const std::uint64_t group = ++m_lastGroup;
    std::vector<tivra::Instrument> entered = m_inlet->enter(instruments, group);
    if (entered.empty())
        return 0;
    try {
        m_subscriptions->emplace(group, m_bus->reader().subscribe(entered, m_inlet->handlers(group)));
    } catch (const Error&) {
        m_inlet->forget(entered);
        throw;
    }
    return entered.size();
}

std::size_t BusStream::remove(const std::vector<tivra::Instrument>& instruments) {
    // Their destructors wait for callbacks, which may ask this.
    std::vector<Subscriptions::node_type> ended;
    const tp::MutexLock lock(m_mutex);
    const BusInlet::Left left = m_inlet->leave(instruments);
    for (const std::uint64_t group : left.groups)
        ended.push_back(m_subscriptions->extract(group));
    return left.count;
}

void BusStream::addWildcard(int, const std::string&) {
    refuse("patterns");
}

void BusStream::addDepth(const tivra::Instrument&) {
    refuse("order books");
}

void BusStream::close() {
    m_inlet->endWaiting();
    Subscriptions ended;
    {
        const tp::MutexLock lock(m_mutex);
        m_isClosed = true;
        ended.swap(*m_subscriptions);
    }
    ended.clear();
    m_inlet->leave(m_inlet->instruments());
    sink().end();
}

std::optional<tivra::Error> BusStream::error(const tivra::Instrument& instrument) {
    if (m_inlet->state(instrument) != tivra::DataState::Refused)
        return std::nullopt;
    return Error({Error::Code::Refused, Error::Phase::Subscription,
                  "the bridge's hub has refused " + instrument.symbol, "", "", 0, "", 0});
}

} // namespace tivra_python
