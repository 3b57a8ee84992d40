#pragma once

#include "History.h"
#include "Picture.h"

#include <map>
#include <string>

namespace tivra_top {

/// What the page gets, as JSON: all that there is when it comes, and then what changes.
class PageFeed {
public:
    /// More rows than this are too many for a browser; the rest is counted. Those that came first stay.
    static constexpr std::size_t kMostRows = 1000;

    /// Takes the next picture. @return what has changed since the one before, empty when nothing has
    [[nodiscard]] std::string next(Picture picture);
    /// The present picture with its history.
    [[nodiscard]] std::string everything() const;
    /// The history of a symbol.
    [[nodiscard]] std::string symbol(const std::string& name) const;

private:
    /// What of a row is worth sending again.
    struct Version {
        std::uint64_t updates = 0;
        std::uint64_t gaps = 0;
        tivra::DataState state = tivra::DataState::Pending;
        double rate = -1.0;
        std::vector<std::string> cells;

        friend bool operator==(const Version&, const Version&) = default;
    };

    [[nodiscard]] static Version versionOf(const Row& row);
    /// Takes the rows off the page that aren't in the picture any more. @return their names
    [[nodiscard]] std::vector<std::string> takeGone();
    /// The rows to send, of those that are on the page or come onto it.
    [[nodiscard]] std::vector<const Row*> takeChanged(bool wantsAll);

    Picture m_picture;
    History m_history;
    std::map<std::string, Version> m_sent; ///< of the rows on the page
    std::string m_frame;                   ///< all but rows and time, as it was sent
};

} // namespace tivra_top
