#pragma once

#include <map>
#include <string>
#include <vector>

namespace tivra_sim {

/// One row of a hub's dictionary, as ListInternalTokens sends it.
struct DictionaryRow {
    int number = 0;
    std::string name;
    /// STRING, BOOL, DATETIME, FLOAT, INTEGER, DATE, YEAR or MONTHYEAR. Any other word is sent as it stands.
    std::string type;
    int length = 0;
};

/// The values of one enumerated token and their texts, as ListEnumeration sends them.
struct Enumeration {
    int token = 0;
    std::map<int, std::string> values;
};

/// A realistic dictionary of more than 200 fields of all eight type words, in ascending order of number.
[[nodiscard]] std::vector<DictionaryRow> builtinDictionary();

/// Names of the status codes and of a few enumerated fields.
[[nodiscard]] std::vector<Enumeration> builtinEnumerations();

} // namespace tivra_sim
