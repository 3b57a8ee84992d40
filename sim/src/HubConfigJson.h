#pragma once

#include "JsonReading.h"

namespace tivra_sim {

/// What each key of a hub's configuration does to `config`, which must outlive the readers.
[[nodiscard]] std::map<std::string, json_reading::Reader> hubReaders(HubConfig& config);

/// The configuration that a hub's object starts from: realistic(), or empty() when it says so.
[[nodiscard]] HubConfig baseOf(const nlohmann::json& value, const std::string& where);

[[nodiscard]] nlohmann::ordered_json hubJson(const HubConfig& config, HubConfig::Passwords passwords);

} // namespace tivra_sim
