#pragma once

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <tivra.h>

#include "History.h"

namespace history {

/// What a sequence's thing is at the group.
struct Target {
    int source = 0;
    std::string name;              ///< symbol or pattern; empty when named by `cusip`
    std::string cusip;             ///< an alternate identifier
    std::string symbol;            ///< that the group has for it; empty for none
    std::set<std::size_t> asked;   ///< members that a request reaches
    std::set<std::size_t> holders; ///< of these, the ones that accept it
};

Target targetOf(int sequence, int thing);

/// The command and the pairs of a subscription or snapshot.
struct Asking {
    tivra::Commands command = tivra::SUBSCRIBE;
    std::string word; ///< as it goes to a hub
    std::vector<std::pair<int, std::string>> pairs;

    /// The whole text as a hub gets it.
    [[nodiscard]] std::string text(std::int64_t tag) const;
};

Asking askingOf(const Step& step);

/// What must stand after the steps of a history, whatever the order in which hubs, threads and losses met.
///
/// A request stands from its subscribe to its unsubscribe; a repeated one takes the place of the one before,
/// which can't be unsubscribed any more. What stands is asked of a member again whenever that comes back. A
/// member knows subscriptions by their symbol alone: an unsubscribe ends there whatever covers this symbol,
/// also what other commands have asked for and what therefore still stands for the next return.
class Model {
public:
    /// Whether a member sends updates for a thing. Maybe: it depends on whether an unsubscribe came before
    /// the member's loss or after.
    enum class Live { No, Yes, Maybe };

    void subscribe(const Step& step);
    void unsubscribe(const Step& request);
    /// All has been handled since the last settlement, in which these members were lost and came back.
    void settle(const std::set<std::size_t>& returned);

    [[nodiscard]] Live live(int sequence, int thing, std::size_t member) const;
    /// The subscriptions that stand, in the order in which they were asked for.
    [[nodiscard]] std::set<std::size_t> standing() const;

private:
    struct State {
        std::map<int, std::size_t> standing; ///< by form
        std::array<Live, MEMBERS> live{Live::No, Live::No, Live::No};
        bool isLastEnded = false; ///< an unsubscribe came, and no subscribe since
    };

    std::map<std::pair<int, int>, State> m_states;
    /// Unsubscribed since the last settlement: the library may or may not know already.
    std::set<std::size_t> m_ended;
};

} // namespace history
