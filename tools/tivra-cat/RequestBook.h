#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivra_cat {

/// A request that a hub said no to.
struct Refusal {
    std::string target;
    int code = 0;
    std::string text;
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
    void enter(std::int64_t tag, std::string target);
    /// Notes the final answer to a tag; an unknown one and a second answer change nothing.
    /// @return whether this was the answer to the last open request.
    bool answer(std::int64_t tag, int code, const std::string& text);

    [[nodiscard]] Totals totals() const;
    /// The refusals since the last call.
    [[nodiscard]] std::vector<Refusal> takeRefusals();
    /// Names of at most `limit` requests that are still open.
    [[nodiscard]] std::vector<std::string> openTargets(std::size_t limit) const;

private:
    mutable std::mutex m_mutex; ///< guards all below
    std::unordered_map<std::int64_t, std::string> m_open;
    std::vector<Refusal> m_refusals;
    Totals m_totals;
};

} // namespace tivra_cat
