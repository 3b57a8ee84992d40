#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <tp/Mutex.h>
#include <tp/Process.h>

#include "Stream.h"
#include "bus/BusConnection.h"

namespace tivra_python {

/// Subscriptions of the bus, which has symbols alone. @thread any, without the interpreter's lock
class BusStream : public Stream {
public:
    BusStream(std::shared_ptr<BusConnection> bus, StreamSink::Options options);
    ~BusStream() override;

    std::size_t add(const std::vector<tivra::Instrument>& instruments) override TP_EXCLUDES(m_mutex);
    std::size_t remove(const std::vector<tivra::Instrument>& instruments) override TP_EXCLUDES(m_mutex);
    /// @throws tivra::Error (InvalidArgument)
    void addWildcard(int source, const std::string& pattern) override;
    /// @throws tivra::Error (InvalidArgument)
    void addDepth(const tivra::Instrument& instrument) override;
    void close() override TP_EXCLUDES(m_mutex);
    void end() override { close(); }

    [[nodiscard]] std::optional<tivra::DataState> state(const tivra::Instrument& instrument) override {
        return m_inlet->state(instrument);
    }
    [[nodiscard]] std::optional<tivra::Error> error(const tivra::Instrument& instrument) override;
    [[nodiscard]] std::optional<std::chrono::system_clock::time_point>
    lastUpdate(const tivra::Instrument& instrument) override {
        return m_inlet->lastUpdate(instrument);
    }
    [[nodiscard]] tivra::GroupStatistics statistics() override { return m_inlet->statistics(); }
    [[nodiscard]] std::vector<tivra::Instrument> instruments() override { return m_inlet->instruments(); }

private:
    BusStream(std::shared_ptr<BusConnection> bus, std::shared_ptr<BusInlet> inlet);

    /// By the groups that were added together.
    using Subscriptions = std::map<std::uint64_t, tivra::BusSubscription>;

    const tp::ProcessMark m_process;
    const std::shared_ptr<BusConnection> m_bus;
    const std::shared_ptr<BusInlet> m_inlet;
    tp::Mutex m_mutex;
    std::shared_ptr<Subscriptions> m_subscriptions TP_GUARDED_BY(m_mutex) = std::make_shared<Subscriptions>();
    std::uint64_t m_lastGroup TP_GUARDED_BY(m_mutex) = 0;
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_python
