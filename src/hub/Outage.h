#pragma once

namespace tivra_internal {

/// The time during which a hub is away, from its loss or the first dial that failed until it is ready. What
/// is said of it once isn't said again at each dial. The hub's thread.
class Outage {
public:
    /// A dial begins.
    void noteDial() noexcept { ++m_dials; }
    /// The hub has been dialled since it was ready.
    [[nodiscard]] bool isDialled() const noexcept { return m_dials > 0; }
    /// The hub was dialled before, and hasn't been ready since.
    [[nodiscard]] bool isDialRepeated() const noexcept { return m_dials > 1; }

    /// The hub is away; nothing new while it is known to be.
    void begin(double now) noexcept {
        if (!m_isUnderWay)
            m_since = now;
        m_isUnderWay = true;
    }
    [[nodiscard]] bool isUnderWay() const noexcept { return m_isUnderWay; }
    /// How long it has lasted.
    [[nodiscard]] double secondsUntil(double now) const noexcept { return now - m_since; }
    /// The hub is ready.
    void end() noexcept { *this = Outage(); }

private:
    bool m_isUnderWay = false;
    unsigned m_dials = 0;
    double m_since = 0.0;
};

} // namespace tivra_internal
