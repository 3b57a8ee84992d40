#include "Incidents.h"

#include <fmt/format.h>

namespace tivra_cat {

void Incidents::hubLost(const std::string& text, bool isReset) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isCounting)
        return;
    ++m_totals.interruptions;
    m_totals.resets += isReset ? 1U : 0U;
    note(isReset ? "reset" : "interrupted", {{"text", text}});
    mark(text);
}

void Incidents::hubsRestored(const std::string& text) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isCounting)
        note("restored", {{"text", text}});
}

void Incidents::sourceLost(int source) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isCounting)
        return;
    ++m_totals.sourceLosses;
    note("source-lost", {{"source", std::to_string(source)}});
    mark(fmt::format("source {} was lost with its hub", source));
}

void Incidents::sourceRestored(int source) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    note("source-back", {{"source", std::to_string(source)}});
}

void Incidents::hole(int source, std::int64_t after, std::int64_t before, std::uint64_t missing) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_totals.holes;
    m_totals.missing += missing;
    note("hole", {{"source", std::to_string(source)},
                  {"after", std::to_string(after)},
                  {"before", std::to_string(before)},
                  {"missing", std::to_string(missing)}});
    mark(fmt::format("source {}: {} messages are missing between {} and {}", source, missing, after, before));
}

void Incidents::restart(int source, std::int64_t after, std::int64_t before) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_totals.restarts;
    note("restart", {{"source", std::to_string(source)},
                     {"after", std::to_string(after)},
                     {"before", std::to_string(before)}});
}

void Incidents::dropped(std::uint64_t queueBytes, std::uint64_t hubBytes) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    raise(m_totals.queueBytes, queueBytes, "queue");
    raise(m_totals.hubBytes, hubBytes, "hub");
}

void Incidents::standingRequestEnded(const std::string& target) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    ++m_totals.endedStandingRequests;
    mark(fmt::format("{}: was granted, and refused when asked again", target));
}

void Incidents::endCounting() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isCounting = false;
}

Incidents::Totals Incidents::totals() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_totals;
}

std::string Incidents::first() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_first;
}

void Incidents::note(const std::string& kind, tivra_capture::Note::Values values) {
    m_recordings.addNote(tivra_capture::Note{kind, std::move(values)});
}

void Incidents::raise(std::uint64_t& total, std::uint64_t now, const char* at) {
    if (now <= total)
        return;
    note("discarded", {{"bytes", std::to_string(now - total)}, {"at", at}});
    total = now;
    mark(fmt::format("{} bytes were dropped at the {}", now, at));
}

void Incidents::mark(const std::string& text) {
    if (m_first.empty())
        m_first = text;
    m_wakeup.notify();
}

} // namespace tivra_cat
