// The tables of docs/parameters.md.
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "config/ParameterTable.h"

namespace {

using namespace tivra_internal;

std::string limitText(const ParameterInfo& info) {
    if (info.type == ParameterType::Bool)
        return "false, true";
    if (info.type == ParameterType::String)
        return "a text";
    if (info.minimum == kNoMinimum && info.maximum == kNoMaximum)
        return "any";
    if (info.maximum == kNoMaximum)
        return std::to_string(info.minimum) + " or more";
    return std::to_string(info.minimum) + " to " + std::to_string(info.maximum);
}

std::string outOfRangeText(const ParameterInfo& info) {
    switch (info.outOfRange) {
    case OutOfRange::CorrectedWhenSet:
        return "corrected to the nearest limit, with a warning";
    case OutOfRange::ClampedWhenUsed:
        return "used as the nearest limit";
    case OutOfRange::Impossible:
    case OutOfRange::Accepted:
        break;
    }
    return "";
}

std::string defaultText(const ParameterInfo& info) {
    if (info.type == ParameterType::Bool)
        return info.defaultValue != 0 ? "true" : "false";
    if (info.type == ParameterType::String)
        return "";
    return std::to_string(info.defaultValue);
}

template<class Table>
std::string tableText(const Table& table) {
    std::string text = "| Parameter | Value | Unit | Range | Default | Out of range | Meaning |\n"
                       "| --- | --- | --- | --- | --- | --- | --- |\n";
    for (const ParameterInfo& info : table) {
        text += std::string("| `") + info.name + "` | " + std::to_string(info.value) + " | " + info.unit +
                " | " + limitText(info) + " | " + defaultText(info) + " | " + outOfRangeText(info) + " | " +
                info.help + " |\n";
    }
    return text;
}

TEST(ParameterDoc, DocumentHasTheTablesAsTheyStand) {
    std::ifstream file(TIVRA_SOURCE_DIR "/docs/parameters.md");
    const std::string text = std::string(std::istreambuf_iterator<char>(file), {}) + '\n';
    for (const std::string& table : {tableText(kSessionParameters), tableText(kHostParameters)})
        EXPECT_NE(text.find("\n\n" + table + '\n'), std::string::npos) << "it lacks:\n" << table;
}

} // namespace
