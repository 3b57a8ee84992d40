#pragma once

#include <feed/Feed.h>

#include <string>

namespace tivra_bus {

/// The fields of the hubs by name, each with its type: a JSON object.
/// @throws tivra::Error as Answer::get of the hub's list
[[nodiscard]] std::string dictionaryText(tivra::Feed& feed);

} // namespace tivra_bus
