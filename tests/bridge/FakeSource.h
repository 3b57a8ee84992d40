#pragma once

#include "bus/BusError.h"
#include "reader/BusSource.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace bridge_test {

/// An engine in memory, with one partition.
class FakeEngine {
public:
    /// @return the position
    std::uint64_t append(const std::string& batch) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stream.push_back(batch);
        for (auto& [number, consumer] : m_consumers)
            send(consumer);
        return m_stream.size();
    }
    void setLast(const std::string& symbol, const std::string& message) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_last[symbol] = message;
    }
    /// The stream's limit drops what is up to there.
    void dropTo(std::uint64_t position) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_dropped = position;
    }
    /// Others write so much that the stream is never read to its end.
    void setLag(std::uint64_t messages) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lag = messages;
    }
    /// Messages that come from now on stay with the engine, which says where they end.
    void hold() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isHeld = true;
        m_asked = 0;
    }
    /// Sends them once somebody has asked for their end.
    void releaseWhenAsked() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait_for(lock, std::chrono::seconds(20), [&] { return m_asked > 0; });
        m_isHeld = false;
        for (auto& [number, consumer] : m_consumers)
            send(consumer);
    }
    void setConnected(bool isConnected) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isConnected = isConnected;
        if (!isConnected)
            m_consumers.clear();
    }

    [[nodiscard]] bool isConnected() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_isConnected;
    }
    [[nodiscard]] std::optional<std::string> last(const std::string& symbol) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        requireConnection();
        const auto found = m_last.find(symbol);
        return found == m_last.end() ? std::nullopt : std::optional(found->second);
    }
    [[nodiscard]] tivra_bus::StreamSpan span() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        requireConnection();
        ++m_asked;
        m_changed.notify_all();
        return {m_dropped + 1, m_stream.size(), {}};
    }
    std::uint64_t follow(const tivra_bus::StreamStart& start, tivra_bus::BusSource::OnMessage onMessage) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        requireConnection();
        // Of the time of a start, all that the stream has is later.
        const auto* const position = std::get_if<std::uint64_t>(&start);
        Consumer& consumer = m_consumers[++m_lastConsumer];
        consumer = {std::max(position != nullptr ? *position : 0, m_dropped + 1), 0, std::move(onMessage)};
        send(consumer);
        return m_lastConsumer;
    }
    [[nodiscard]] std::uint64_t lag() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lag;
    }
    void forget(std::uint64_t consumer) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_consumers.erase(consumer);
    }

private:
    struct Consumer {
        std::uint64_t next = 0;
        std::uint64_t order = 0;
        tivra_bus::BusSource::OnMessage onMessage;
    };

    void send(Consumer& consumer) {
        for (; !m_isHeld && consumer.next <= m_stream.size(); ++consumer.next)
            consumer.onMessage({consumer.next, ++consumer.order, m_stream.size() - consumer.next + m_lag,
                                m_stream[consumer.next - 1]});
    }
    void requireConnection() const {
        if (!m_isConnected)
            throw tivra_bus::BusError("the engine: no connection");
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_stream;
    std::map<std::string, std::string> m_last;
    std::map<std::uint64_t, Consumer> m_consumers;
    std::uint64_t m_lastConsumer = 0;
    std::uint64_t m_dropped = 0;
    std::uint64_t m_lag = 0;
    std::size_t m_asked = 0; ///< for the end
    bool m_isHeld = false;
    bool m_isConnected = true;
};

/// A reader's connection to it. Of the partitions only the first has a stream that answers.
class FakeSource : public tivra_bus::BusSource {
public:
    explicit FakeSource(FakeEngine& engine, unsigned partitions = 1)
        : m_engine(engine), m_partitions(partitions) {}

    std::string layout() override {
        return R"({"tivra":1,"partitions":)" + std::to_string(m_partitions) + "}";
    }
    std::string dictionary() override { return R"({"tivra":1,"fields":{"TIME":"time"}})"; }
    std::vector<std::optional<std::string>>
    lastValues(const std::vector<tivra::Instrument>& instruments) override {
        std::vector<std::optional<std::string>> answers;
        answers.reserve(instruments.size());
        for (const tivra::Instrument& instrument : instruments)
            answers.push_back(m_engine.last(instrument.symbol));
        return answers;
    }
    std::optional<std::string> status(int) override { return R"({"tivra":1,"source":100,"state":"up"})"; }
    void followStatus(OnStatus) override {}
    tivra_bus::StreamSpan spanOf(unsigned partition) override {
        if (partition > 0)
            throw tivra_bus::BusError("no leader");
        return m_engine.span();
    }
    std::unique_ptr<tivra_bus::BusConsumer> follow(unsigned, const tivra_bus::StreamStart& start,
                                                   OnMessage onMessage) override {
        return std::make_unique<Consumer>(m_engine, m_engine.follow(start, std::move(onMessage)));
    }
    bool isConnected() const override { return m_engine.isConnected(); }

private:
    struct Consumer : tivra_bus::BusConsumer {
        Consumer(FakeEngine& consumed, std::uint64_t ownNumber) : engine(consumed), number(ownNumber) {}
        ~Consumer() override { engine.forget(number); }
        std::uint64_t behind() const override { return engine.lag(); }
        FakeEngine& engine;
        const std::uint64_t number;
    };

    FakeEngine& m_engine;
    const unsigned m_partitions;
};

} // namespace bridge_test
