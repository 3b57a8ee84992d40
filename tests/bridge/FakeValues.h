#pragma once

#include "bus/BatchWriter.h"
#include "bus/JsonRecords.h"

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

/// A symbol's values as a bridge keeps them.
class FakeImage {
public:
    explicit FakeImage(const FakeValues& values) { image.apply(values, true, 1 << 20, m_names, change); }

    tivra_bus::SymbolImage image;
    tivra_bus::SymbolImage::Change change;

private:
    tivra_bus::FieldNames m_names;
};

inline void addRecord(tivra_bus::OpenBatch& writer, tivra_bus::RecordType type,
                      const tivra_bus::RecordKey& key, const FakeValues& values) {
    const tivra_bus::SymbolName name(key.source, key.symbol);
    const FakeImage fake(values);
    writer.add({type, name, key.number, fake.image});
}

inline std::string lastMessageOf(const tivra_bus::RecordKey& key, std::uint64_t epoch, std::string_view state,
                                 const FakeValues& values) {
    const tivra_bus::SymbolName name(key.source, key.symbol);
    return tivra_bus::lastMessage(name, key.number, epoch, state, "now", FakeImage(values).image);
}

} // namespace bridge_test
