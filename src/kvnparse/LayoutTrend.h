#pragma once

namespace KVNAPI {

/// Whether messages repeat few layouts, so that the field that follows another can be guessed, or mix many.
/// The vector forms have a way of reading for each: guesses that mostly fail cost more than they save.
class LayoutTrend {
public:
    [[nodiscard]] bool areMixed() const noexcept { return m_mixed != 0; }

    /// After a message: how many guesses were wrong, of how many fields.
    void note(unsigned misses, unsigned fields) noexcept {
        if (m_mixed != 0) {
            // Guesses are tried again from time to time.
            if (--m_mixed == 0)
                m_strikes = kStrikes - kTrial;
        } else if (misses * 2 <= fields) {
            m_strikes = 0;
        } else if (++m_strikes == kStrikes) {
            m_mixed = kStay;
        }
    }

private:
    static constexpr unsigned kStrikes = 32;
    static constexpr unsigned kTrial = 4;
    static constexpr unsigned kStay = 1024;

    unsigned m_mixed = 0;   ///< messages that are still to be read as mixed
    unsigned m_strikes = 0; ///< messages in a row whose guesses were mostly wrong
};

} // namespace KVNAPI
