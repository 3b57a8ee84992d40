#include "BusReceiver.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace tivra_cat {

namespace {

using Type = tivra::MessageEvent;

/// Further ones are only counted by the library.
constexpr std::size_t kMostNotices = 100;

tivra::ValueTypes typeOf(tivra::Value::Type type) {
    switch (type) {
    case tivra::Value::Type::Integer:
        return tivra::INT64;
    case tivra::Value::Type::Double:
        return tivra::DOUBLE;
    case tivra::Value::Type::Text:
        return tivra::STRING;
    case tivra::Value::Type::Time:
        return tivra::DATETIME;
    }
    return tivra::UNKNOWN;
}

double numberOf(const tivra::Value& value) {
    if (value.type() == tivra::Value::Type::Double)
        return value.as<double>();
    if (value.type() == tivra::Value::Type::Time)
        return std::chrono::duration<double>(value.as<tivra::TimePoint>().time_since_epoch()).count();
    return 0.0;
}

Type::Types typeOf(tivra::Update::Kind kind) {
    return kind == tivra::Update::Kind::Image     ? Type::IMAGE_PART
           : kind == tivra::Update::Kind::Refresh ? Type::REFRESH
                                                  : Type::UPDATE;
}

} // namespace

tivra::BusHandlers BusReceiver::handlers() {
    tivra::BusHandlers handlers;
    handlers.onUpdate = [this](const tivra::BusUpdate& update) { onUpdate(update); };
    handlers.onGap = [this](const tivra::Instrument& instrument, const tivra::BusGap& gap) {
        onGap(instrument, gap);
    };
    return handlers;
}

void BusReceiver::onUpdate(const tivra::BusUpdate& update) {
    const Type::Types type = typeOf(update.kind());
    bool isFirst = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        isFirst = m_answered.insert(update.instrument()).second;
    }
    const bool isWanted = isFirst ? m_settings.takesImages : m_settings.takesUpdates;
    if (isWanted && m_count.claim()) {
        m_count.count(type);
        if (m_settings.copiesMessages && !m_queue.push(copy(update, type)))
            m_counters.outputDropped.fetch_add(1, std::memory_order_relaxed);
    }
    if (isFirst)
        m_wakeup.notify();
}

Record BusReceiver::copy(const tivra::BusUpdate& update, Type::Types type) {
    Record record;
    record.type = type;
    record.received =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    record.source = update.source();
    record.symbol = update.symbol();
    const std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& [name, value] : update) {
        const BusFields::Entry* const field = m_fields.entryOf(name);
        if (field == nullptr && m_fields.leftOut() == 1) {
            const std::string text =
                fmt::format("fields of more than {} names, or {} bytes of them, have come: values of further "
                            "ones are left out",
                            BusFields::kMostNames, BusFields::kMostBytes);
            m_notices.push_back(text);
            mark(text);
        }
        if (field != nullptr && field->isSelected)
            record.fields.push_back(
                {field->token, &field->name, typeOf(value.type()), value.as<std::string>(), numberOf(value)});
    }
    return record;
}

void BusReceiver::onGap(const tivra::Instrument& instrument, const tivra::BusGap& gap) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto& [symbols, messages] = m_gaps[gap.cause];
    ++symbols;
    messages += gap.messages.value_or(0);
    mark(fmt::format("gap of {}:{}: {}", instrument.source, instrument.symbol, nameOf(gap.cause)));
}

void BusReceiver::onState(const tivra::FeedStateChange& change) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    // No incident: what is lost with it, if anything, is a gap.
    if (m_notices.size() < kMostNotices)
        m_notices.push_back(change.cause);
}

void BusReceiver::onProblem(const tivra::BusProblem& problem) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_notices.size() < kMostNotices)
        m_notices.push_back(problem.text);
    if (problem.kind != tivra::BusProblem::Kind::Engine)
        mark(problem.text);
}

void BusReceiver::mark(const std::string& text) {
    if (m_first.empty())
        m_first = text;
    m_wakeup.notify();
}

std::size_t BusReceiver::answered() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_answered.size();
}

std::vector<std::string> BusReceiver::open(const std::vector<tivra::Instrument>& instruments,
                                           std::size_t limit) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> names;
    for (const tivra::Instrument& instrument : instruments)
        if (names.size() < limit && m_answered.count(instrument) == 0)
            names.push_back(fmt::format("{}:{}", instrument.source, instrument.symbol));
    return names;
}

std::vector<std::string> BusReceiver::takeNotices() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<std::string> notices;
    notices.swap(m_notices);
    for (const auto& [cause, counts] : m_gaps)
        notices.push_back(fmt::format("gap: {} of {} symbols, {} updates are known to be missing",
                                      nameOf(cause), counts.first, counts.second));
    m_gaps.clear();
    return notices;
}

std::string BusReceiver::firstIncident() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_first;
}

std::vector<std::string> BusReceiver::unseen() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_fields.unseen();
}

} // namespace tivra_cat
