#pragma once

#include <memory>

#include <feed/LeaveAlive.h>
#include <feed/Record.h>
#include <tp/Process.h>

#include "Pending.h"
#include "bus/BusConnection.h"

namespace tivra_python {

/// The last values of a symbol, which are on their way. Without the interpreter's lock.
class PendingLast {
public:
    /// @throws tivra::Error as BusReader::subscribe
    PendingLast(const std::shared_ptr<BusConnection>& bus, const tivra::Instrument& instrument)
        : m_bus(bus)
        , m_subscription(std::make_shared<tivra::BusSubscription>(
              bus->reader().subscribe({instrument}, handlers(bus->fields())))) {
        bus->enter(m_result);
    }
    ~PendingLast() {
        // A child that was forked has none of the threads that may be in their handlers.
        if (m_process.isForeign())
            tivra_internal::leaveAlive(m_subscription);
    }
    PendingLast(const PendingLast&) = delete;
    PendingLast& operator=(const PendingLast&) = delete;

    [[nodiscard]] Pending<tivra::Record>& result() const noexcept { return *m_result; }
    /// Whoever waits gets the error (Cancelled).
    void cancel() {
        m_subscription->close();
        complete(tivra::Error::Code::Cancelled, "the request has been given up");
    }

private:
    using Result = std::shared_ptr<Pending<tivra::Record>>;

    [[nodiscard]] tivra::BusHandlers handlers(const BusFields& fields) const {
        tivra::BusHandlers handlers;
        handlers.onUpdate = [result = m_result, fields](const tivra::BusUpdate& update) {
            result->complete(fields.recordOf(update));
        };
        handlers.onState = [result = m_result](const tivra::Instrument& instrument,
                                               const tivra::StateChange& change) {
            if (change.to == tivra::DataState::Refused)
                complete(*result, tivra::Error::Code::Refused,
                         "the bridge's hub has refused " + instrument.symbol);
        };
        return handlers;
    }
    static void complete(Pending<tivra::Record>& result, tivra::Error::Code code, const std::string& cause) {
        result.complete(tivra::Error({code, tivra::Error::Phase::Answer, cause, "", "", 0, "", 0}));
    }
    void complete(tivra::Error::Code code, const std::string& cause) const {
        complete(*m_result, code, cause);
    }

    const tp::ProcessMark m_process;
    const std::shared_ptr<BusConnection> m_bus;
    const Result m_result = std::make_shared<Pending<tivra::Record>>();
    std::shared_ptr<tivra::BusSubscription> m_subscription;
};

} // namespace tivra_python
