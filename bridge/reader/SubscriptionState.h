#pragma once

#include "reader/BusSubscription.h"
#include "reader/ReaderCounters.h"

#include <tp/Mutex.h>

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tivra_bus {

/// What a BusSubscription and the reader's thread share: the handlers, and how the symbols are.
/// @thread any, but for what comes: reader
class SubscriptionState {
public:
    /// Hears of exceptions that have left a handler.
    using OnFailure = std::function<void(const std::string& text)>;

    SubscriptionState(const std::vector<tivra::Instrument>& instruments, tivra::BusHandlers handlers,
                      std::vector<std::string> fields, ReaderCounters& counters, OnFailure onFailure);

    void update(tivra::Update::Kind kind, const tivra::BusUpdate& update);
    void changed(const tivra::Instrument& instrument, const tivra::StateChange& change);
    void gap(const tivra::Instrument& instrument, const tivra::BusGap& gap);

    [[nodiscard]] std::vector<tivra::Instrument> instruments() const;
    [[nodiscard]] bool isClosed() const { return m_isClosed.load(); }
    [[nodiscard]] std::optional<tivra::DataState> state(const tivra::Instrument& instrument) const;
    [[nodiscard]] tivra::BusSubscriptionStatistics statistics() const;
    void close();

    /// Whether this thread is inside a handler of any reader.
    [[nodiscard]] static bool isInHandler();

private:
    template<class Call>
    void call(const char* name, const Call& handler);

    const tivra::BusHandlers m_handlers;
    const std::set<std::string, std::less<>> m_fields;
    ReaderCounters& m_counters; ///< not used after close()
    const OnFailure m_onFailure;
    std::atomic<bool> m_isClosed{false};
    std::atomic<std::uint64_t> m_updates{0};
    std::atomic<std::uint64_t> m_gaps{0};
    std::atomic<std::uint64_t> m_missing{0};
    std::atomic<std::uint64_t> m_withoutField{0};

    mutable tp::Mutex m_mutex;
    tp::ConditionVariable m_returned;
    bool m_isCalling TP_GUARDED_BY(m_mutex) = false;
    std::map<tivra::Instrument, tivra::DataState> m_states TP_GUARDED_BY(m_mutex);
};

} // namespace tivra_bus
