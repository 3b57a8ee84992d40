#pragma once

#include <feed/Value.h>

#include <string>
#include <utility>
#include <vector>

namespace bridge_test {

/// A field without a feed.
struct FakeField {
    const std::string* text;
    [[nodiscard]] const std::string& name() const { return *text; }
    friend bool operator==(const FakeField& a, const FakeField& b) { return a.text == b.text; }
};

/// What an update or a record shows, without a hub.
using FakeValues = std::vector<std::pair<FakeField, tivra::Value>>;

} // namespace bridge_test
