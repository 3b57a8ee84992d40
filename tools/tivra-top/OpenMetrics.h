#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tivra_top {

/// A sample of an exposition.
struct Metric {
    std::string name;
    std::string labels; ///< with their braces, as they stand there
    std::string text;   ///< of the value
    double value = 0.0;

    [[nodiscard]] bool isCounter() const {
        return name.size() > 6 && name.substr(name.size() - 6) == "_total";
    }
};

/// The samples of a text in the OpenMetrics form, at most `most` of them; the rest is left out. Lines that
/// aren't samples are passed over, and `faults` is how many of them are no comments either.
[[nodiscard]] std::vector<Metric> parseOpenMetrics(std::string_view text, std::size_t most,
                                                   std::size_t& faults);

} // namespace tivra_top
