#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivra_cat {

/// What a request was about.
struct Asked {
    std::string command;    ///< as CommandTable calls it
    int source = 0;         ///< 0 for none
    std::string symbol;     ///< empty for none
    std::string identifier; ///< in place of a symbol, "CUSIP 459200101"
    std::string target;     ///< all of it, for people
};

/// A request that a hub said no to.
struct Refusal {
    std::string target;
    int code = 0;
    std::string text;
    bool hasStood = false; ///< it had been granted before
};

/// The requests that were sent, and which of them have been answered. Written by the main thread and the
/// callbacks.
class RequestBook {
public:
    struct Totals {
        std::size_t sent = 0;
        std::size_t answered = 0; ///< with success
        std::size_t refused = 0;

        [[nodiscard]] std::size_t open() const { return sent - answered - refused; }
    };

    /// Enters a request before it is sent, since its answer may be faster than the return of the call.
    void enter(std::int64_t tag, Asked asked);
    /// Notes an answer to a tag; an unknown one changes nothing. A request that was granted is answered again
    /// after each interruption, and may be refused then.
    /// @return whether this was such a refusal.
    bool answer(std::int64_t tag, int code, const std::string& text);

    /// What the request of a tag was about; nothing for an unknown one.
    [[nodiscard]] std::optional<Asked> asked(std::int64_t tag) const;
    [[nodiscard]] Totals totals() const;
    /// The refusals since the last call.
    [[nodiscard]] std::vector<Refusal> takeRefusals();
    /// Names of at most `limit` requests that are still open.
    [[nodiscard]] std::vector<std::string> openTargets(std::size_t limit) const;

private:
    enum class State { Open, Granted, Refused };
    struct Entry {
        Asked asked;
        State state = State::Open;
    };

    mutable std::mutex m_mutex; ///< guards all below
    std::unordered_map<std::int64_t, Entry> m_entries;
    std::vector<Refusal> m_refusals;
    Totals m_totals;
};

} // namespace tivra_cat
