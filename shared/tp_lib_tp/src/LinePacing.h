#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tp {

/// Keeps a call site from filling the disk: its first ten lines in ten seconds pass as they are, from then on
/// only their number is reported, once every ten seconds until it is calm again. Holds no lock: it belongs to
/// the logger's. Trivially destructible, and bounded by the number of call sites.
class LinePacing {
public:
    /// A call site and a level that it logs at.
    struct Site {
        const char* file; ///< known by its address
        const char* func;
        int line;
        int level;
    };
    /// How often a site has been held back, and the line that it was.
    struct Repeats {
        Site site;
        std::uint64_t count;
        const char* text;
    };
    /// So many lines of a site are written as they are in so many seconds.
    struct Pace {
        double seconds;
        unsigned lines;
    };
    static constexpr Pace kUsual{10.0, 10};
    static constexpr Pace kCalm{1.0, 1};
    enum class Verdict {
        Write,
        WriteAndKeep, ///< the last one as it is: keepText() with what was written
        Hold          ///< counted only
    };

    /// Judges one line. What is due must have been taken before.
    [[nodiscard]] Verdict judge(const Site& site, double now, const Pace& pace = kUsual) noexcept;
    /// Stands for the lines of the site that are held from now on.
    void keepText(const Site& site, const char* text, std::size_t length) noexcept;

    [[nodiscard]] bool isDue(double now) const noexcept {
        return m_due != 0.0 && (now >= m_due || now < m_last);
    }
    /// Hands out the next site whose count is due (`all`: any count) and starts its next ten seconds; call it
    /// until it returns false.
    [[nodiscard]] bool takeDue(double now, bool all, Repeats& repeats) noexcept;

    [[nodiscard]] std::size_t sites() const noexcept { return m_used; }

private:
    struct Slot {
        Site site;
        double begin;
        std::uint64_t held;
        char* text; // allocated once, when the site is held back for the first time
        unsigned written;
        Pace pace;      // that the site has had last
        bool isFlooded; // the ten seconds before were too many as well: nothing passes as it is
    };
    static constexpr std::size_t kSlots = 1024; // more than there are call sites

    [[nodiscard]] Slot* find(const Site& site) noexcept;

    std::array<Slot, kSlots> m_slots{};
    std::size_t m_used = 0;
    std::size_t m_next = 0; // where takeDue goes on
    // The earliest end of ten seconds with lines held back, 0 when there is none: of all slots, and of those
    // that takeDue has passed.
    double m_due = 0.0;
    double m_nextDue = 0.0;
    double m_last = 0.0;
};

} // namespace tp
