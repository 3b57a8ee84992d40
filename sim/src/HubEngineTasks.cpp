#include "HubEngine.h"

#include <sys/socket.h>

#include <algorithm>

// What other threads ask a hub to do. All of it runs as a task of the hub's thread.

namespace tivra_sim {

namespace {

std::string clockText() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return std::to_string(milliseconds / 1000) + "." + std::to_string(1000 + milliseconds % 1000).substr(1);
}

} // namespace

void HubEngine::startPlayback() {
    m_playback.start(Clock::now());
}

void HubEngine::drop(Hub::Close how) {
    for (const auto& connection : m_state.connections)
        closeConnection(*connection, how);
}

void HubEngine::halfClose() {
    for (const auto& connection : m_state.connections) {
        connection->isHalfClosed = true;
        ::shutdown(connection->fd(), SHUT_WR);
    }
}

void HubEngine::dropAfter(std::int64_t bytes, std::int64_t frames, Hub::Close how) {
    m_dropHow = how;
    for (const auto& connection : m_state.connections) {
        if (bytes >= 0)
            connection->output().stopAfterBytes(static_cast<std::uint64_t>(bytes));
        if (frames >= 0)
            connection->output().stopAfterFrames(static_cast<std::uint64_t>(frames));
    }
}

void HubEngine::applyShape() {
    for (const auto& connection : m_state.connections)
        connection->output().setShape(m_misbehaviour.shape);
}

void HubEngine::applyDeafness() {
    for (const auto& connection : m_state.connections)
        watch(*connection);
}

std::size_t HubEngine::publishRecord(std::string_view body, FrameKind kind) {
    Request fields;
    fields.text = body;
    const auto source = static_cast<int>(fields.number(token::SOURCE));
    const std::string symbol = fields.value(token::SYMBOL);
    if (source < 1 || symbol.empty())
        return 0;
    SymbolEntry& entry = m_state.model.findOrAdd(source, symbol);
    HubModel::settle(entry);
    HubModel::store(entry, body);
    return sendToSubscribers(entry, body, kind);
}

std::vector<PresentSubscription> HubEngine::presentSubscriptions() const {
    std::vector<PresentSubscription> present;
    for (const auto& connection : m_state.connections) {
        for (const Subscription& from : connection->subscriptions()) {
            if (connection->isClosing || from.source == SYSTEM_SOURCE)
                continue;
            PresentSubscription to{from.tag, from.source, from.pattern, from.isWildcard, {}};
            for (const SymbolEntry* entry : from.symbols)
                to.symbols.push_back(entry->symbol);
            present.push_back(std::move(to));
        }
    }
    return present;
}

std::size_t HubEngine::sendToSubscribers(SymbolEntry& entry, std::string_view body, FrameKind kind) {
    const std::string frame = encodeFrame(body);
    for (Connection* subscriber : entry.subscribers)
        subscriber->update(entry, body, frame, kind);
    return entry.subscribers.size();
}

std::size_t HubEngine::sendToAll(std::string_view frame, FrameKind kind, bool onlyLoggedIn) {
    std::size_t count = 0;
    for (const auto& connection : m_state.connections) {
        if (onlyLoggedIn && !connection->client().isLoggedIn)
            continue;
        connection->output().append(frame, kind);
        ++count;
    }
    return count;
}

std::size_t HubEngine::alert(int source, bool granted, const std::optional<std::string_view>& user) {
    Record record(SYSTEM_SOURCE, ENTITLEMENT_SYMBOL);
    record.add(token::SOURCE, source);
    if (!granted)
        record.add(token::RECORD_DEL, 1);
    std::size_t count = 0;
    for (const auto& connection : m_state.connections) {
        if (!connection->client().isLoggedIn || (user && connection->client().user != *user))
            continue;
        connection->output().append(record.frame(), FrameKind::System);
        ++count;
    }
    return count;
}

void HubEngine::announceBox() {
    if (m_group != nullptr)
        m_group->setSources(m_state.member, m_state.model.boxPermissions());
}

std::size_t HubEngine::pushHeartbeat() {
    Record record(SYSTEM_SOURCE, HEARTBEAT_SYMBOL);
    record.add(token::CURRENT_DATETIME, clockText());
    return publishRecord(record.body(), FrameKind::System);
}

/// What was dropped for a client is told to that one alone.
std::size_t HubEngine::pushHubStatus() {
    const auto status = [this](std::uint64_t dropped) {
        Record record(SYSTEM_SOURCE, HUB_STATUS_SYMBOL);
        record
            .add(token::DROPPED_BYTES,
                 static_cast<long long>(m_droppedBytes) + static_cast<long long>(dropped))
            .add(token::IDLE_COUNT, static_cast<long long>(m_idleCount));
        return record.body();
    };
    SymbolEntry& entry = m_state.model.findOrAdd(SYSTEM_SOURCE, HUB_STATUS_SYMBOL);
    HubModel::settle(entry);
    HubModel::store(entry, status(0));
    for (Connection* subscriber : entry.subscribers) {
        const std::string body = status(subscriber->droppedBytes);
        subscriber->update(entry, body, encodeFrame(body), FrameKind::System);
    }
    return entry.subscribers.size();
}

void HubEngine::setHubStatus(std::int64_t droppedBytes, std::int64_t idleCount) {
    m_droppedBytes = droppedBytes;
    m_idleCount = idleCount;
}

} // namespace tivra_sim
