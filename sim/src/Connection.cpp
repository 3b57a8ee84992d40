#include "Connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace tivra_sim {

namespace {

/// Longest request text that is waited for, well above what a client may send.
constexpr std::size_t kMaxRequest = 65536;

bool passesAnyFilter(int token) {
    return token == token::PERMISSION || token == token::SOURCE || token == token::SYMBOL ||
           token == token::REFRESH || token == token::TAG || token == token::STATUS;
}

} // namespace

Connection::Connection(std::uint64_t id, Descriptor socket, std::string localAddress, std::string peerAddress,
                       std::uint16_t peerPort)
    : m_id(id)
    , m_socket(std::move(socket))
    , m_localAddress(std::move(localAddress))
    , m_peerAddress(std::move(peerAddress))
    , m_peerPort(peerPort)
    , m_reader(kMaxRequest) {}

Connection::~Connection() {
    for (const auto& covered : m_covered) {
        std::vector<Connection*>& subscribers = covered.first->subscribers;
        subscribers.erase(std::remove(subscribers.begin(), subscribers.end(), this), subscribers.end());
    }
}

ssize_t Connection::receive(void* into, std::size_t length) {
    return m_tls ? m_tls->receive(into, length) : ::recv(fd(), into, length, MSG_DONTWAIT);
}

void Connection::answer(std::string frame, Clock::time_point due) {
    if (m_waiting.empty() && due == Clock::time_point{})
        m_output.append(frame, FrameKind::Answer);
    else
        m_waiting.push_back({due, std::move(frame), FrameKind::Answer});
}

void Connection::releaseAnswers(Clock::time_point now) {
    while (!m_waiting.empty() && m_waiting.front().due <= now) {
        const Waiting next = std::move(m_waiting.front());
        m_waiting.pop_front();
        if (next.entry == nullptr)
            m_output.append(next.text, next.kind);
        else
            send(*next.entry, next.text, encodeFrame(next.text), next.kind);
    }
}

void Connection::subscribe(Subscription subscription) {
    for (SymbolEntry* entry : subscription.symbols)
        attach(*entry);
    m_subscriptions.push_back(std::move(subscription));
}

std::size_t Connection::unsubscribe(const std::function<bool(const Subscription&)>& predicate) {
    const auto ended =
        std::stable_partition(m_subscriptions.begin(), m_subscriptions.end(),
                              [&](const Subscription& candidate) { return !predicate(candidate); });
    const auto count = static_cast<std::size_t>(m_subscriptions.end() - ended);
    for (auto subscription = ended; subscription != m_subscriptions.end(); ++subscription) {
        for (SymbolEntry* entry : subscription->symbols)
            detach(*entry);
    }
    m_subscriptions.erase(ended, m_subscriptions.end());
    return count;
}

void Connection::cover(SymbolEntry& entry) {
    for (Subscription& subscription : m_subscriptions) {
        const bool sameSource = subscription.source == -1 || subscription.source == entry.source;
        if (subscription.isWildcard && sameSource && matchesWildcard(subscription.pattern, entry.symbol)) {
            subscription.symbols.push_back(&entry);
            attach(entry);
        }
    }
}

std::vector<SymbolEntry*> Connection::subscribedSymbols() const {
    std::vector<SymbolEntry*> symbols;
    for (const auto& covered : m_covered)
        symbols.push_back(covered.first);
    std::sort(symbols.begin(), symbols.end(), [](const SymbolEntry* left, const SymbolEntry* right) {
        return std::tie(left->source, left->symbol) < std::tie(right->source, right->symbol);
    });
    return symbols;
}

void Connection::attach(SymbolEntry& entry) {
    if (m_covered[&entry]++ > 0)
        return;
    entry.subscribers.push_back(this);
    if (entry.source != SYSTEM_SOURCE)
        ++m_countedSymbols;
}

void Connection::detach(SymbolEntry& entry) {
    const auto covered = m_covered.find(&entry);
    if (--covered->second > 0)
        return;
    m_covered.erase(covered);
    if (m_conflator)
        m_conflator->forget(entry);
    std::erase_if(m_waiting, [&entry](const Waiting& waiting) { return waiting.entry == &entry; });
    entry.subscribers.erase(std::remove(entry.subscribers.begin(), entry.subscribers.end(), this),
                            entry.subscribers.end());
    if (entry.source != SYSTEM_SOURCE)
        --m_countedSymbols;
}

void Connection::update(const SymbolEntry& entry, std::string_view body, std::string_view frame,
                        FrameKind kind) {
    if (m_waiting.empty() || entry.source == SYSTEM_SOURCE)
        send(entry, body, frame, kind);
    else
        m_waiting.push_back({m_waiting.back().due, std::string(body), kind, &entry});
}

void Connection::send(const SymbolEntry& entry, std::string_view body, std::string_view frame,
                      FrameKind kind) {
    if (!m_conflator && !needsTailoring()) {
        m_output.append(frame, kind);
        return;
    }
    const std::string text = needsTailoring() ? tailored(body, entry) : std::string(body);
    if (m_conflator)
        m_conflator->update(entry, text, kind, m_output, Clock::now());
    else
        m_output.append(encodeFrame(text), kind);
}

std::string Connection::tailored(std::string_view body, const SymbolEntry& entry) const {
    Record record;
    std::set<int> present;
    for (const Pair& pair : splitPairs(body)) {
        present.insert(pair.token);
        if (m_client.filter.empty() || passesAnyFilter(pair.token) || m_client.filter.count(pair.token) > 0)
            record.add(pair.token, pair.value);
    }
    const auto wanted = m_client.alternateIndexes.find(entry.source);
    if (wanted != m_client.alternateIndexes.end()) {
        for (const int token : wanted->second) {
            const auto field = entry.fields.find(token);
            if (field != entry.fields.end() && present.count(token) == 0)
                record.add(token, field->second);
        }
    }
    return record.body();
}

} // namespace tivra_sim
