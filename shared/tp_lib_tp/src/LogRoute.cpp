#include "LogRoute.h"

#include "LogDelivery.h"
#include "LoggerOptions.h"

#include <tp/eprintf.h>
#include <tp/logRoute.h>

#include <array>
#include <atomic>
#include <memory>
#include <utility>

namespace tp {

namespace {

// Read without the mutex, as the options are.
constinit std::atomic<bool> s_hasCallback{false};
constinit std::atomic<bool> s_hasAreaLevels{false};
constinit std::atomic<LogClassifier> s_classifier{nullptr};
/// One above the level, so that all are unset in the beginning.
constinit std::array<std::atomic<int>, kMostLogAreas> s_areaLevels{};

constinit LogDelivery* s_delivery TP_GUARDED_BY(eprintf_mutex) = nullptr;

/// The most that is written of a file's lines.
int limitFor(const char* file) noexcept {
    if (s_hasAreaLevels.load(std::memory_order_relaxed)) {
        const int own = s_areaLevels[static_cast<std::size_t>(areaOf(file))].load(std::memory_order_relaxed);
        if (own != 0)
            return own - 1;
    }
    return eprintf_loglvl.load(std::memory_order_relaxed);
}

} // namespace

int areaOf(const char* file) noexcept {
    const LogClassifier classifier = s_classifier.load(std::memory_order_relaxed);
    const int area = classifier != nullptr ? classifier(file) : 0;
    return area > 0 && area < kMostLogAreas ? area : 0;
}

bool isLineWanted(int level, const char* file) noexcept {
    if (level < EPF_CRIT || level > EPF_ALWAYS_DBUG)
        return false;
    if (hasOption(EPF_MUTE) && !hasLogCallback())
        return false;
    const int needed = level & 3;
    return (needed == EPF_CRIT || limitFor(file) >= needed) && !LogDelivery::isInCallback();
}

bool hasLogCallback() noexcept {
    return s_hasCallback.load(std::memory_order_relaxed);
}

void putForCallback(int level, const char* file, const char* text, std::size_t length) noexcept {
    if (s_delivery != nullptr)
        s_delivery->put(level, areaOf(file), text, length);
}

void setLogCallback(LogCallback callback) {
    std::unique_ptr<LogDelivery> next;
    if (callback)
        next = std::make_unique<LogDelivery>(std::move(callback));
    LogDelivery* former = nullptr;
    {
        const LoggerLock lock;
        former = std::exchange(s_delivery, next.release());
        s_hasCallback = s_delivery != nullptr;
    }
    if (former != nullptr)
        LogDelivery::end(former);
}

void setLogClassifier(LogClassifier classifier) noexcept {
    s_classifier = classifier;
}

void setLogAreaLevel(int area, int level) noexcept {
    if (area < 0 || area >= kMostLogAreas)
        return;
    s_areaLevels[static_cast<std::size_t>(area)] = level + 1;
    bool hasAny = false;
    for (const std::atomic<int>& one : s_areaLevels)
        hasAny = hasAny || one != 0;
    s_hasAreaLevels = hasAny;
}

void setLogLevel(int level) noexcept {
    eprintf_loglvl = level;
}

} // namespace tp
