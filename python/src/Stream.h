#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <feed/Error.h>
#include <feed/Instrument.h>
#include <feed/Subscription.h>
#include <feed/SubscriptionGroup.h>

#include "StreamSink.h"

namespace tivra_python {

/// The subscriptions of one reader, wherever they come from. @thread any, without the interpreter's lock
class Stream {
public:
    explicit Stream(std::shared_ptr<StreamSink> sink) : m_sink(std::move(sink)) {}
    virtual ~Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    [[nodiscard]] StreamSink& sink() const noexcept { return *m_sink; }

    /// @throws tivra::Error for what can't be subscribed. @return how many are new
    virtual std::size_t add(const std::vector<tivra::Instrument>& instruments) = 0;
    virtual std::size_t remove(const std::vector<tivra::Instrument>& instruments) = 0;
    /// The symbols that match a pattern. @throws tivra::Error, as where there are no patterns
    virtual void addWildcard(int source, const std::string& pattern) = 0;
    /// The order book of a symbol. @throws tivra::Error, as where there are none
    virtual void addDepth(const tivra::Instrument& instrument) = 0;
    /// Ends all of them; what waits can still be read.
    virtual void close() = 0;
    /// What they come from has been closed.
    virtual void end() = 0;

    [[nodiscard]] virtual std::optional<tivra::DataState> state(const tivra::Instrument& instrument) = 0;
    [[nodiscard]] virtual std::optional<tivra::Error> error(const tivra::Instrument& instrument) = 0;
    /// When the last update came, of a symbol that is subscribed here and had one.
    [[nodiscard]] virtual std::optional<std::chrono::system_clock::time_point>
    lastUpdate(const tivra::Instrument& instrument) = 0;
    [[nodiscard]] virtual tivra::GroupStatistics statistics() = 0;
    [[nodiscard]] virtual std::vector<tivra::Instrument> instruments() = 0;

private:
    const std::shared_ptr<StreamSink> m_sink;
};

} // namespace tivra_python
