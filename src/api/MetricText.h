#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tivra_internal {

// What the texts of counters have in common: JSON for a log, and OpenMetrics.

using MetricLabels = std::vector<std::pair<std::string, std::string>>;

[[nodiscard]] std::string join(std::initializer_list<std::string_view> pieces);

/// The beginning of a JSON object, up to and including the time and the labels.
[[nodiscard]] std::string jsonHead(const MetricLabels& labels);

/// The text between the quotes of a JSON string.
[[nodiscard]] std::string jsonEscaped(std::string_view text);

/// A share of so many percent, from 0.00 to 1.00, in any locale.
[[nodiscard]] std::string ratioText(std::uint64_t percent);

/// `name="value",...` for OpenMetrics, of the labels whose names can be used.
[[nodiscard]] std::string labelPairs(const MetricLabels& labels);

/// The text between the quotes of a label's value.
[[nodiscard]] std::string labelEscaped(std::string_view text);

} // namespace tivra_internal
