#pragma once

#include <string>

#include "config/ParameterTable.h"

/// docs/parameters.md, made from the tables.
namespace parameter_doc {

inline std::string limitText(const tivra_internal::ParameterInfo& info) {
    using tivra_internal::kNoMaximum;
    using tivra_internal::kNoMinimum;
    if (info.type == tivra_internal::ParameterType::Bool)
        return "false, true";
    if (info.minimum == kNoMinimum && info.maximum == kNoMaximum)
        return "any";
    if (info.maximum == kNoMaximum)
        return std::to_string(info.minimum) + " or more";
    return std::to_string(info.minimum) + " to " + std::to_string(info.maximum);
}

inline std::string outOfRangeText(const tivra_internal::ParameterInfo& info) {
    switch (info.outOfRange) {
    case tivra_internal::OutOfRange::CorrectedWhenSet:
        return "corrected to the nearest limit, with a warning";
    case tivra_internal::OutOfRange::ClampedWhenUsed:
        return "used as the nearest limit";
    case tivra_internal::OutOfRange::Impossible:
    case tivra_internal::OutOfRange::Accepted:
        break;
    }
    return "";
}

inline std::string defaultText(const tivra_internal::ParameterInfo& info) {
    if (info.type == tivra_internal::ParameterType::Bool)
        return info.defaultValue != 0 ? "true" : "false";
    return std::to_string(info.defaultValue);
}

template<class Table>
std::string tableText(const Table& table) {
    std::string text = "| Parameter | Value | Unit | Range | Default | Out of range | Meaning |\n"
                       "| --- | --- | --- | --- | --- | --- | --- |\n";
    for (const tivra_internal::ParameterInfo& info : table) {
        text += std::string("| `") + info.name + "` | " + std::to_string(info.value) + " | " + info.unit +
                " | " + limitText(info) + " | " + defaultText(info) + " | " + outOfRangeText(info) + " | " +
                info.help + " |\n";
    }
    return text;
}

inline std::string wholeText() {
    return "# Parameters\n\n"
           "Set them before `Session::start`. The end of a name tells the type of its value. A value of the\n"
           "other type is logged at the warning level and changes nothing.\n\n"
           "## Session\n\n"
           "`Session::getSessionConfig().set(SessionConfig::NAME, value)`\n\n" +
           tableText(tivra_internal::kSessionParameters) +
           "\n## Connections and hosts\n\n"
           "`Session::getConnectionConfig().set(HostConfig::NAME, value)` for all connections,\n"
           "`Session::getConnectionConfig().getHostConfig(\"address:port\").set(HostConfig::NAME, value)` "
           "for one\n"
           "host. A host's own value comes before that of all connections. The first `_LONG` value that a "
           "host is\n"
           "given stays; later ones for the same parameter are ignored.\n\n" +
           tableText(tivra_internal::kHostParameters);
}

} // namespace parameter_doc
