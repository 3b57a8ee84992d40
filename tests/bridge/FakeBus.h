#pragma once

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/BusPublisher.h"
#include "bus/SubjectNames.h"
#include "nats/NatsAnswer.h"

#include <tp/Mutex.h>

#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace bridge_test {

/// An engine in memory, which does what a test says with what comes next, and stores the rest.
class FakeBus : public tivra_bus::BusPublisher {
public:
    enum class Deed { Store, LoseAnswer, Refuse, TooBig };

    struct Last {
        std::uint64_t position = 0;
        std::string message;
    };

    void prepare(const tivra_bus::BusLayout&) override {}
    tivra_bus::StreamEnd endOf(unsigned partition) override {
        const tp::MutexLock lock(m_mutex);
        if (m_unreadable.count(partition) != 0)
            throw tivra_bus::BusError("its end can't be read");
        const std::vector<std::string>& stream = m_streams[partition];
        tivra_bus::StreamEnd end;
        end.position = stream.size();
        try {
            const auto header = tivra_bus::headerOf(stream.empty() ? "" : stream.back());
            end.epoch = header.epoch;
            end.batch = header.batch;
            end.writer = header.writer;
            end.time = header.time;
        } catch (const tivra_bus::BatchError&) {
        }
        return end;
    }
    void sendBatch(unsigned partition, std::string_view batch, std::uint64_t expected,
                   tivra_bus::SendTicket ticket) override {
        tivra_bus::SendResult result = next(batch.size());
        {
            const tp::MutexLock lock(m_mutex);
            std::vector<std::string>& stream = m_streams[partition];
            if (m_deed == Deed::Store || m_deed == Deed::LoseAnswer) {
                if (expected != stream.size()) {
                    result.outcome = tivra_bus::SendResult::Outcome::Conflict;
                } else {
                    stream.emplace_back(batch);
                    result.position = stream.size();
                }
            }
        }
        ticket.end(result);
    }
    void findLast(int source, std::string_view symbol, tivra_bus::SendTicket ticket) override {
        tivra_bus::SendResult result{tivra_bus::SendResult::Outcome::Stored, 0, 0, {}};
        if (const Last present = last(source, symbol); present.position > 0) {
            result.position = present.position;
            result.epoch = tivra_bus::epochOfLast(present.message);
        }
        ticket.end(result);
    }
    void sendLast(int source, std::string_view symbol, std::string_view message, std::uint64_t expected,
                  tivra_bus::SendTicket ticket) override {
        tivra_bus::SendResult result = next(message.size());
        {
            const tp::MutexLock lock(m_mutex);
            Last& present = m_last[tivra_bus::lastSubject(source, symbol)];
            if (m_deed == Deed::Store || m_deed == Deed::LoseAnswer) {
                if (expected != present.position) {
                    result.outcome = tivra_bus::SendResult::Outcome::Conflict;
                } else {
                    present = {++m_lastPosition, std::string(message)};
                    result.position = m_lastPosition;
                }
            }
        }
        ticket.end(result);
    }
    void sendStatus(int, std::string_view) override {}
    void sendLive(int, std::string_view, std::string_view) override {}
    void flush() override {}
    std::uint64_t storeDictionary(const std::string&) override {
        const tp::MutexLock lock(m_mutex);
        if (m_refusesDictionary)
            throw tivra_bus::BusError("the dictionary can't be stored");
        return ++m_dictionary;
    }
    bool isConnected() const override { return true; }
    std::size_t maxMessage() const override { return std::size_t{1} << 20; }

    void refuseDictionary(bool refuses) {
        const tp::MutexLock lock(m_mutex);
        m_refusesDictionary = refuses;
    }
    /// The revision of the last one stored.
    [[nodiscard]] std::uint64_t dictionary() const {
        const tp::MutexLock lock(m_mutex);
        return m_dictionary;
    }
    /// What becomes of the next messages, in turn.
    void script(std::deque<Deed> deeds) {
        const tp::MutexLock lock(m_mutex);
        m_script = std::move(deeds);
    }
    /// What becomes of all that the script doesn't speak of.
    void always(Deed deed) {
        const tp::MutexLock lock(m_mutex);
        m_always = deed;
    }
    void makeUnreadable(unsigned partition) {
        const tp::MutexLock lock(m_mutex);
        m_unreadable.insert(partition);
    }
    std::vector<std::string> stream(unsigned partition) const {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_streams.find(partition);
        return found == m_streams.end() ? std::vector<std::string>{} : found->second;
    }
    void setStream(unsigned partition, std::vector<std::string> messages) {
        const tp::MutexLock lock(m_mutex);
        m_streams[partition] = std::move(messages);
    }
    Last last(int source, std::string_view symbol) const {
        const tp::MutexLock lock(m_mutex);
        const auto found = m_last.find(tivra_bus::lastSubject(source, symbol));
        return found == m_last.end() ? Last{} : found->second;
    }
    void setLast(int source, std::string_view symbol, const std::string& message) {
        const tp::MutexLock lock(m_mutex);
        m_last[tivra_bus::lastSubject(source, symbol)] = {++m_lastPosition, message};
    }

private:
    using Outcome = tivra_bus::SendResult::Outcome;

    tivra_bus::SendResult next(std::size_t bytes) {
        const tp::MutexLock lock(m_mutex);
        m_deed = m_always;
        if (!m_script.empty()) {
            m_deed = m_script.front();
            m_script.pop_front();
        }
        if (bytes > maxMessage())
            m_deed = Deed::TooBig;
        switch (m_deed) {
        case Deed::Store:
            return {Outcome::Stored, 0, 0, {}};
        case Deed::TooBig:
            return {Outcome::TooBig, 0, 0, "too big"};
        case Deed::LoseAnswer:
        case Deed::Refuse:
            break;
        }
        return {Outcome::Failed, 0, 0, "refused"};
    }

    mutable tp::Mutex m_mutex;
    std::deque<Deed> m_script TP_GUARDED_BY(m_mutex);
    Deed m_always TP_GUARDED_BY(m_mutex) = Deed::Store;
    Deed m_deed TP_GUARDED_BY(m_mutex) = Deed::Store; ///< of the message at hand: one thread sends
    std::set<unsigned> m_unreadable TP_GUARDED_BY(m_mutex);
    bool m_refusesDictionary TP_GUARDED_BY(m_mutex) = false;
    std::uint64_t m_dictionary TP_GUARDED_BY(m_mutex) = 0;
    std::map<unsigned, std::vector<std::string>> m_streams TP_GUARDED_BY(m_mutex);
    std::map<std::string, Last> m_last TP_GUARDED_BY(m_mutex);
    std::uint64_t m_lastPosition TP_GUARDED_BY(m_mutex) = 0;
};

} // namespace bridge_test
