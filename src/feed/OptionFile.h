#pragma once

#include <string>
#include <string_view>

namespace tivra_internal {

class OptionSetter;

/// Takes the options out of a file, ".toml" or ".json".
/// @throws tivra::Error (InvalidOption)
void readOptionFile(const std::string& path, OptionSetter& setter);

// Each takes a whole text; `path` is for errors.
void readToml(std::string_view text, const std::string& path, OptionSetter& setter);
void readJson(std::string_view text, const std::string& path, OptionSetter& setter);

} // namespace tivra_internal
