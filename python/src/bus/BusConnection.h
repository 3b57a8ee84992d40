#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <feed/Record.h>
#include <reader/BusReader.h>
#include <tp/Mutex.h>
#include <tp/Process.h>

#include "Pending.h"
#include "bus/BusFields.h"
#include "bus/BusInlet.h"

namespace tivra_python {

/// A reader of the bus, which its subscriptions share. @thread any, without the interpreter's lock
class BusConnection {
public:
    explicit BusConnection(tivra::BusReader reader)
        : m_reader(std::make_shared<tivra::BusReader>(std::move(reader))) {}
    ~BusConnection();
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    [[nodiscard]] tivra::BusReader& reader() noexcept { return *m_reader; }
    [[nodiscard]] const BusFields& fields() const noexcept { return m_fields; }

    /// As those of a feed. @throws tivra::Error (UnknownField) for one that isn't in the dictionary
    [[nodiscard]] tivra::Field field(const std::string& name) const;
    [[nodiscard]] std::optional<tivra::Value::Type> typeOf(const std::string& name) const {
        return m_reader->typeOf(name);
    }

    /// Its deliveries wait for a reader no longer than until close().
    void enter(const std::shared_ptr<BusInlet>& inlet) TP_EXCLUDES(m_mutex);
    /// It is waited for no longer than until close(): it gets an error (Closed) then.
    void enter(const std::shared_ptr<Pending<tivra::Record>>& result) TP_EXCLUDES(m_mutex);
    void close() TP_EXCLUDES(m_mutex);

private:
    static constexpr std::size_t kFewResults = 64;

    const tp::ProcessMark m_process;
    std::shared_ptr<tivra::BusReader> m_reader;
    const BusFields m_fields;
    tp::Mutex m_mutex;
    std::vector<std::weak_ptr<BusInlet>> m_inlets TP_GUARDED_BY(m_mutex);
    std::vector<std::weak_ptr<Pending<tivra::Record>>> m_results TP_GUARDED_BY(m_mutex);
    /// Not each time: there may be one for each of very many symbols.
    std::size_t m_lookForEndedAt TP_GUARDED_BY(m_mutex) = kFewResults;
    bool m_isClosed TP_GUARDED_BY(m_mutex) = false;
};

} // namespace tivra_python
