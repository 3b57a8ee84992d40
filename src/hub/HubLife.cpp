#include "hub/HubLife.h"

#include <algorithm>

namespace tivra_internal {

template<class State>
bool HubLife::move(std::atomic<State>& state, std::initializer_list<State> from, State to) {
    State now = state;
    while (std::find(from.begin(), from.end(), now) != from.end()) {
        if (state.compare_exchange_weak(now, to))
            return true;
    }
    return false;
}

void HubLife::setLetGo(bool letGo) {
    if (letGo)
        move(m_membership, {Membership::InSession}, Membership::LetGo);
    else
        move(m_membership, {Membership::LetGo}, Membership::InSession);
}

void HubLife::retire() {
    // Whoever marks or unmarks it between the two looks must not make this wish disappear.
    while (m_membership == Membership::InSession || m_membership == Membership::LetGo) {
        if (move(m_membership, {Membership::LetGo}, Membership::Dropped) ||
            move(m_membership, {Membership::InSession}, Membership::Retired))
            return;
    }
}

void HubLife::startAnew() {
    move(m_membership, {Membership::Retired}, Membership::InSession);
    move(m_xref, {Xref::Connected, Xref::GivenUp, Xref::Served}, Xref::Coming);
}

void HubLife::setXref(bool isXref) {
    m_xref = isXref ? Xref::Coming : Xref::None;
}

void HubLife::noteConnected() {
    move(m_xref, {Xref::Coming}, Xref::Connected);
}

void HubLife::giveUp() {
    move(m_xref, {Xref::Coming, Xref::Connected}, Xref::GivenUp);
}

bool HubLife::noteServed() {
    return move(m_xref, {Xref::Connected}, Xref::Served);
}

void HubLife::noteClosed() {
    move(m_xref, {Xref::Connected, Xref::GivenUp}, Xref::Coming);
}

} // namespace tivra_internal
