#include "captures/DaySource.h"

#include "captures/FileFault.h"

#include <charconv>
#include <cmath>
#include <stdexcept>

namespace tivra_python {

namespace {

tivra_sim::TradingDayReader open(const std::string& path) {
    try {
        return tivra_sim::TradingDayReader(path);
    } catch (const std::runtime_error& error) {
        throw FileFault(error.what());
    }
}

/// Nanoseconds since the epoch; what lies further away than numbers reach is the end of the day.
std::int64_t timeOf(std::string_view milliseconds, std::int64_t midnight) {
    constexpr double kDay = 86'400'000.0;
    double value = 0.0;
    std::from_chars(milliseconds.data(), milliseconds.data() + milliseconds.size(), value);
    return midnight * 1'000'000'000 + std::llround((value <= kDay ? value : kDay) * 1e6);
}

} // namespace

DaySource::DaySource(const std::string& path, int source, std::int64_t midnight)
    : m_reader(open(path)), m_source(source), m_midnight(midnight) {}

bool DaySource::next(SourceMessage& message) {
    tivra_sim::MarketEvent event;
    try {
        if (!m_reader.next(event))
            return false;
    } catch (const std::runtime_error& error) {
        throw FileFault(error.what());
    }
    m_body = tivra_sim::eventBody(event, m_source, m_midnight, ++m_events);
    message = {timeOf(event.milliseconds, m_midnight), m_body};
    return true;
}

} // namespace tivra_python
