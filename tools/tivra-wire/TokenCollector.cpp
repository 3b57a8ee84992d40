#include "TokenCollector.h"

#include <fmt/format.h>

#include <utility>

namespace tivra_wire {

namespace {

/// The field with the type of a token, which no request carries.
constexpr int kKvnTokenType = 5012;
/// A hub may not fill the memory, neither with tokens nor with long texts.
constexpr std::size_t kMaxTokens = 200000;
constexpr std::size_t kMaxText = std::size_t{64} << 20;

/// The text of a field, empty for one that the message lacks.
std::string textOf(tivra::MessageReader& reader, int token) {
    return reader.find(token) ? reader.getValueAsString() : std::string();
}

} // namespace

void TokenCollector::onUserEvent(const tivra::UserEvent& event) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (event.getType() == tivra::UserEvent::AUTHORIZATION_SUCCESS)
        m_refusal.reset();
    else
        m_refusal = tivra_tools::LoginRefusal{event.getRetCode(), event.getRetCodeString()};
}

void TokenCollector::onSessionEvent(const tivra::SessionEvent& event) {
    if (event.getType() != tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE &&
        event.getType() != tivra::SessionEvent::TIVRA_SESSION_RECOVERY)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isLost = true;
    m_changed.notify_one();
}

void TokenCollector::onMessageEvent(const tivra::MessageEvent& event) {
    if (event.getTag() == 0)
        return;
    tivra::MessageReader& reader = event.getReader();
    if (reader.find(tivra::KVN_TOKEN_NUM)) {
        const std::int64_t number = reader.getValueAsInteger();
        std::string name = textOf(reader, tivra::KVN_TOKEN_NAME);
        add(event.getTag(), {number, std::move(name), textOf(reader, kKvnTokenType)});
    }
    if (event.getType() == tivra::MessageEvent::STATUS ||
        event.getType() == tivra::MessageEvent::IMAGE_COMPLETE)
        end(event.getTag(),
            event.getStatusCode() == 0
                ? std::string()
                : fmt::format("the hub answered {} {}", event.getStatusCode(), event.getStatusString()));
}

void TokenCollector::beginAnewFor(std::int64_t tag) {
    if (tag == m_tag)
        return;
    m_tag = tag;
    m_tokens.clear();
    m_textSize = 0;
    m_isTooMuch = false;
}

void TokenCollector::add(std::int64_t tag, HubToken token) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    beginAnewFor(tag);
    m_textSize += token.name.size() + token.type.size();
    m_isTooMuch = m_isTooMuch || m_tokens.size() == kMaxTokens || m_textSize > kMaxText;
    if (!m_isTooMuch)
        m_tokens.push_back(std::move(token));
}

void TokenCollector::end(std::int64_t tag, const std::string& error) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    beginAnewFor(tag);
    m_error = error;
    if (error.empty() && m_tokens.empty())
        m_error = "the hub listed no token";
    if (error.empty() && m_isTooMuch)
        m_error =
            fmt::format("the hub lists more than {} tokens, or {} MB of names", kMaxTokens, kMaxText >> 20U);
    m_hasAnswer = true;
    m_changed.notify_one();
}

void TokenCollector::noteStart() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_hasStarted = true;
    m_changed.notify_one();
}

bool TokenCollector::waitForStart(Deadline deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_until(lock, deadline, [this] { return m_hasStarted; });
}

TokenCollector::Outcome TokenCollector::waitForAnswer(Deadline deadline) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_changed.wait_until(lock, deadline, [this] { return m_hasAnswer || m_isLost; }))
        return Outcome::Late;
    m_isLost = false;
    return m_hasAnswer ? Outcome::Answered : Outcome::Lost;
}

std::size_t TokenCollector::tokenCount() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_tokens.size();
}

std::string TokenCollector::error() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_error;
}

std::optional<tivra_tools::LoginRefusal> TokenCollector::refusal() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_refusal;
}

std::vector<HubToken> TokenCollector::takeTokens() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_tokens, {});
}

} // namespace tivra_wire
