#include <feed/Log.h>

#include <string_view>
#include <utility>

#include <tp/logRoute.h>

#include "feed/ClockTime.h"
#include "feed/LogAreaOf.h"

namespace tivra {
namespace {

int classify(const char* file) noexcept {
    return static_cast<int>(tivra_internal::logAreaOf(file));
}

} // namespace

void Log::setSink(Sink sink) {
    tp::setLogClassifier(classify);
    if (!sink) {
        tp::setLogCallback(nullptr);
        return;
    }
    tp::setLogCallback([sink = std::move(sink)](const tp::LogRecord& record) {
        sink({static_cast<LogLevel>(record.level), static_cast<LogArea>(record.area),
              tivra_internal::toTimePoint(record.time), record.text});
    });
}

void Log::setLevel(LogLevel level) {
    tp::setLogLevel(static_cast<int>(level));
}

void Log::setLevel(LogArea area, LogLevel level) {
    tp::setLogClassifier(classify);
    tp::setLogAreaLevel(static_cast<int>(area), static_cast<int>(level));
}

void Log::resetLevel(LogArea area) {
    tp::setLogAreaLevel(static_cast<int>(area), -1);
}

void Log::setMilliseconds(bool isOn) {
    tp::setLogMilliseconds(isOn);
}

void Log::setFileLimit(std::uint64_t bytes, unsigned kept) {
    tp::setLogFileLimit(bytes, kept);
}

void Log::setFolding(bool isOn) {
    tp::setLogClassifier(classify);
    tp::setLogFolding(isOn, static_cast<int>(LogArea::Requests));
}

} // namespace tivra
