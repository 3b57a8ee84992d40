#include <tp/chash.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

struct Record {
    virtual ~Record() = default; // offsets must hold for polymorphic records too
    int id = 0;
    tp::chash_node node;
};

class Chash : public ::testing::Test {
protected:
    Chash() { EXPECT_EQ(tp::chash_init(&root), 0); }
    ~Chash() override { tp::chash_free(&root); }

    Record* insert(int id, unsigned long hash) {
        auto record = std::make_unique<Record>();
        record->id = id;
        record->node.hashval = hash;
        tp::chash_insert(&root, &record->node);
        records.push_back(std::move(record));
        return records.back().get();
    }
    void insertMany(int count) {
        for (int i = 0; i < count; ++i)
            insert(i, static_cast<unsigned long>(i));
    }
    Record* find(int id, unsigned long hash) {
        return tp::chash_find(&root, hash, &Record::node,
                              [id](const Record& record) { return record.id == id; });
    }
    std::string stats() {
        char text[512];
        const int length = tp::chash_eval(&root, text, sizeof text);
        EXPECT_EQ(static_cast<std::size_t>(length), std::strlen(text));
        return text;
    }

    tp::chash_root root;
    std::vector<std::unique_ptr<Record>> records;
};

TEST_F(Chash, GrowsOnTheInsertThatFindsItFullByItsFactorAndAWalkMeetsEveryNode) {
    insertMany(64);
    EXPECT_EQ(root.mask(), 63U);
    insert(64, 64);
    EXPECT_EQ(root.mask(), 127U);
    insertMany(3000);
    EXPECT_EQ(root.mask(), 4095U);
    for (const auto& record : records)
        EXPECT_NE(find(record->id, record->node.hashval), nullptr);
    tp::chash_iter iter;
    tp::chash_iter_init(&iter, &root);
    std::multiset<const tp::chash_node*> met;
    while (const tp::chash_node* node = tp::chash_iter_next(&iter))
        EXPECT_EQ(met.count(*met.insert(node)), 1U);
    EXPECT_EQ(met.size(), 3065U);
    tp::chash_resize_factor(&root, 2.0);
    insertMany(8191 - 3065);
    EXPECT_EQ(root.mask(), 4095U);
    insert(0, 0);
    EXPECT_EQ(root.mask(), 8191U);
}

TEST_F(Chash, ShrinksOnlyWhileItIsNearlyEmptyAndMay) {
    insertMany(3000);
    const auto removeDownTo = [&](std::size_t left) {
        while (records.size() > left) {
            tp::chash_remove(&root, &records.back()->node);
            records.pop_back();
        }
    };
    removeDownTo(1024); // four times that is not below 4095
    EXPECT_EQ(root.mask(), 4095U);
    tp::chash_shrink_allowed(&root, false);
    removeDownTo(1000);
    EXPECT_EQ(root.mask(), 4095U);
    tp::chash_shrink_allowed(&root, true);
    removeDownTo(1);
    EXPECT_EQ(root.mask(), 511U);
    EXPECT_EQ(root.count, 1U);
    EXPECT_NE(find(0, 0), nullptr);
    removeDownTo(0);
    insertMany(3000); // through arrays that were used before
    EXPECT_EQ(stats().substr(0, 10), "found=3000");
}

TEST_F(Chash, EqualHashesAreToldApartByTheKeyAndRemovedOneByOne) {
    Record* const a = insert(1, 5);
    Record* const b = insert(2, 5);
    insert(3, 5 + 64); // same bucket, other hash
    EXPECT_EQ(Record(*b).node.next, nullptr) << "a copied record stands in no table";
    EXPECT_EQ(find(1, 5), a);
    EXPECT_EQ(find(3, 5), nullptr);
    tp::chash_remove(&root, &b->node);
    EXPECT_EQ(find(2, 5), nullptr);
    tp::chash_remove(&root, &b->node); // not linked any more
    EXPECT_EQ(root.count, 2U);
    EXPECT_EQ(find(1, 5), a);
}

TEST_F(Chash, StatisticsTellTheLoad) {
    for (const unsigned long hash : {7UL, 7UL, 7UL, 7UL, 8UL})
        insert(0, hash);
    const std::string expected = "found=5 buckets=64 nzbuckets=2 minBucket=0 maxBucket=4\n"
                                 "     avg=0.078 dev=0.509\n"
                                 "     nzavg=2.500 nzdev=1.500\n";
    EXPECT_EQ(stats(), expected);
    ++root.count;
    EXPECT_EQ(stats(), "COUNT MISMATCH " + expected);
    char small[8];
    EXPECT_EQ(tp::chash_eval(&root, small, sizeof small), 7);
    EXPECT_STREQ(small, "COUNT M");
}

} // namespace
