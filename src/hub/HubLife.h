#pragma once

#include <atomic>
#include <initializer_list>

namespace tivra_internal {

/// What has become of a hub in its session. Several threads move it on and any thread may look, so each of
/// the two states is one atomic; a step that the present state doesn't allow changes nothing.
class HubLife {
public:
    enum class Membership {
        InSession,
        LetGo,   ///< a first hub that was only a door: the session parts with it, and its close is no loss
        Dropped, ///< the same, out of the session's tables for good
        Retired  ///< out of the tables until it is brought back; its own thread closes it and looks no more
    };
    /// The way of a hub that is connected only when a request needs it first.
    enum class Xref {
        None,      ///< it is no such hub
        Coming,    ///< it is to come up, for the first time or again
        Connected, ///< it is ready and gets its read handler next
        GivenUp,   ///< it failed: it is not dialled any more and will be taken out of the session
        Served     ///< it has had its read handler; from then on a close is that of any hub
    };

    HubLife() = default;
    HubLife(const HubLife&) = delete;
    HubLife& operator=(const HubLife&) = delete;

    // --- its place in the session ---
    void setLetGo(bool letGo);
    void retire();
    /// A hub that was retired is back in the session, and one that failed is to come up again. No other
    /// thread may know it.
    void startAnew();
    /// It was a first hub that the session has parted with, or is about to.
    [[nodiscard]] bool isLetGo() const {
        const Membership now = m_membership;
        return now == Membership::LetGo || now == Membership::Dropped;
    }
    [[nodiscard]] bool hasLeft() const {
        const Membership now = m_membership;
        return now == Membership::Dropped || now == Membership::Retired;
    }
    /// Nobody brings it back: it is out of the session, or will be.
    [[nodiscard]] bool leavesForGood() const { return isGivenUp() || hasLeft(); }

    // --- as a cross-reference hub ---
    void setXref(bool isXref);
    void noteConnected();
    void giveUp();
    /// True when it was connected and is served from now on.
    [[nodiscard]] bool noteServed();
    /// A close takes back what the connection had come to.
    void noteClosed();
    [[nodiscard]] bool isXref() const { return m_xref != Xref::None; }
    /// It has never been served.
    [[nodiscard]] bool isComing() const { return isXref() && !isServed(); }
    [[nodiscard]] bool isConnected() const { return m_xref == Xref::Connected; }
    [[nodiscard]] bool isGivenUp() const { return m_xref == Xref::GivenUp; }
    [[nodiscard]] bool isServed() const { return m_xref == Xref::Served; }

private:
    template<class State>
    static bool move(std::atomic<State>& state, std::initializer_list<State> from, State to);

    std::atomic<Membership> m_membership{Membership::InSession};
    std::atomic<Xref> m_xref{Xref::None};
};

} // namespace tivra_internal
