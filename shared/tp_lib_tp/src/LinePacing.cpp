#include "LinePacing.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace tp {

namespace {

constexpr std::size_t kTextSize = 256;

bool isOver(double begin, double seconds, double now) noexcept {
    return now < begin || now - begin >= seconds;
}

void noteEnd(double& due, double end) noexcept {
    due = due == 0.0 ? end : std::min(due, end);
}

} // namespace

// Null when there are more sites than slots: those are not paced.
LinePacing::Slot* LinePacing::find(const Site& site) noexcept {
    const auto key = reinterpret_cast<std::uintptr_t>(site.file) * 31 +
                     static_cast<std::uintptr_t>(site.line) * 4 + static_cast<std::uintptr_t>(site.level);
    for (std::size_t step = 0; step < kSlots; ++step) {
        Slot& slot = m_slots[(key + step) % kSlots];
        if (slot.site.file == nullptr) {
            slot.site = site;
            ++m_used;
            return &slot;
        }
        if (slot.site.file == site.file && slot.site.line == site.line && slot.site.level == site.level)
            return &slot;
    }
    return nullptr;
}

LinePacing::Verdict LinePacing::judge(const Site& site, double now, const Pace& pace) noexcept {
    m_last = now;
    Slot* const slot = find(site);
    if (slot == nullptr)
        return Verdict::Write;
    slot->pace = pace;
    if (slot->held == 0 && isOver(slot->begin, pace.seconds, now)) {
        slot->begin = now;
        slot->written = 0;
        slot->isFlooded = false;
    }
    if (!slot->isFlooded && slot->written < pace.lines)
        return ++slot->written == pace.lines ? Verdict::WriteAndKeep : Verdict::Write;
    ++slot->held;
    noteEnd(m_due, slot->begin + pace.seconds);
    return Verdict::Hold;
}

void LinePacing::keepText(const Site& site, const char* text, std::size_t length) noexcept {
    Slot* const slot = find(site);
    if (slot == nullptr)
        return;
    if (slot->text == nullptr)
        slot->text = static_cast<char*>(std::malloc(kTextSize));
    if (slot->text == nullptr)
        return;
    length = std::min(length, kTextSize - 1);
    std::memcpy(slot->text, text, length);
    slot->text[length] = '\0';
}

bool LinePacing::takeDue(double now, bool all, Repeats& repeats) noexcept {
    for (; m_next < kSlots; ++m_next) {
        Slot& slot = m_slots[m_next];
        if (slot.held == 0)
            continue;
        if (!all && !isOver(slot.begin, slot.pace.seconds, now)) {
            noteEnd(m_nextDue, slot.begin + slot.pace.seconds);
            continue;
        }
        repeats = {slot.site, slot.held, slot.text != nullptr ? slot.text : ""};
        slot.isFlooded = slot.written + slot.held > slot.pace.lines;
        slot.begin = now;
        slot.held = 0;
        slot.written = 0;
        return true;
    }
    m_next = 0;
    m_due = std::exchange(m_nextDue, 0.0);
    m_last = now;
    return false;
}

} // namespace tp
