// The table that messages find their items in, beside one that is too simple to be wrong.
#include <map>
#include <random>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "feed/FeedItem.h"
#include "feed/FeedRegistry.h"
#include "feed/ItemTable.h"

using tivra_internal::FeedItem;
using tivra_internal::ItemKind;
using tivra_internal::ItemTable;

namespace {

using Name = std::pair<int, std::string>;

std::shared_ptr<FeedItem> makeItem(ItemKind kind, const Name& name) {
    return std::make_shared<FeedItem>(nullptr, kind, name.first, name.second, 0);
}

std::set<const FeedItem*> found(const ItemTable& table, const Name& name) {
    std::set<const FeedItem*> items;
    if (const ItemTable::Slot* const slot = table.find(name.first, name.second))
        slot->forEach([&](const FeedItem& item) {
            if (!item.isGone())
                items.insert(&item);
        });
    return items;
}

} // namespace

// Symbols of all lengths about the two limits of a key, some alike in their beginnings and ends.
TEST(ItemTable, FindsWhatHasBeenEnteredAndNothingElse) {
    std::mt19937 random(1);
    std::map<Name, std::vector<std::shared_ptr<FeedItem>>> expected;
    ItemTable table;
    for (int step = 0; step < 20'000; ++step) {
        const std::string number = std::to_string(random() % 4000);
        const Name name{static_cast<int>(random() % 3), number + std::string(random() % 20, 'x') + "END"};
        auto& items = expected[name];
        if (random() % 4 == 0) {
            for (const auto& item : items)
                item->setGone();
            items.clear();
        } else if (items.size() < 2) {
            items.push_back(makeItem(items.empty() ? ItemKind::Symbol : ItemKind::Pattern, name));
            table.add(name.first, name.second, items.back());
        }
    }
    for (const auto& [name, items] : expected) {
        std::set<const FeedItem*> wanted;
        for (const auto& item : items)
            wanted.insert(item.get());
        EXPECT_EQ(found(table, name), wanted) << name.first << ' ' << name.second;
        EXPECT_TRUE(found(table, {name.first + 3, name.second}).empty());
        EXPECT_TRUE(found(table, {name.first, name.second + "x"}).empty());
    }
}
