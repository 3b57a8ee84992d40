// An intrusive chained hash table: the caller computes hashes and owns the nodes.
//
// One thread at a time may insert, remove or evaluate; its owner sees to that. Look-ups take no lock and may
// run beside one inserting thread. Removing needs more than that: the owner must know that nobody still
// looks at the node before it frees it.
#pragma once

#include <atomic>
#include <bit>
#include <cstddef>
#include <thread>

namespace tp {

/// The link of one record, a member of it. A copied record stands in no table.
struct chash_node {
    unsigned long hashval = 0;
    std::atomic<chash_node*> next{nullptr};

    chash_node() noexcept = default;
    chash_node(const chash_node&) noexcept {}
    chash_node& operator=(const chash_node&) noexcept { return *this; }
};

/// A bucket array with its mask, which are only valid together and so are published as one.
struct chash_buckets {
    unsigned long mask;         // bucket count, a power of two, less one
    chash_buckets* nextSmaller; // arrays of other sizes that a reader may still be walking

    [[nodiscard]] std::atomic<chash_node*>& bucket(unsigned long hashval) noexcept {
        return reinterpret_cast<std::atomic<chash_node*>*>(this + 1)[hashval & mask];
    }
};

struct chash_root {
    std::atomic<chash_buckets*> list{nullptr};
    std::atomic<unsigned long> resizes{0}; // odd while nodes are being linked into another array
    unsigned long count = 0;
    double resize_factor = 1.0;
    bool minimize = true;
    chash_buckets* arrays = nullptr; // every array ever used, one of each size

    /// Bucket count less one.
    [[nodiscard]] unsigned long mask() const noexcept {
        const chash_buckets* buckets = list.load(std::memory_order_acquire);
        return buckets != nullptr ? buckets->mask : 0;
    }
};

/// A walk over all nodes, in no meaningful order. The table must not change during it.
struct chash_iter {
    const chash_root* root = nullptr;
    unsigned long level = 0; // the bucket to look at next
    chash_node* pos = nullptr;
};

/// Gives an empty table 64 buckets. @return 0, or -1 when there is no memory
[[nodiscard]] int chash_init(chash_root* root) noexcept;
/// Frees the bucket arrays alone; the nodes are the caller's.
void chash_free(chash_root* root) noexcept;
void chash_resize_factor(chash_root* root, double factor) noexcept;
void chash_shrink_allowed(chash_root* root, bool allowed) noexcept;

/// Links a node, whose hashval is set, at the head of its bucket, and grows the table when it is full. A
/// table that can't grow keeps its size.
void chash_insert(chash_root* root, chash_node* node) noexcept;
/// Unlinks a node, and shrinks the table when it is nearly empty. A node that isn't linked is ignored.
void chash_remove(chash_root* root, chash_node* node) noexcept;

/// Writes load statistics as text of at most `n` bytes, its terminating zero included.
/// @return the length of the text
int chash_eval(const chash_root* root, char* buf, int n) noexcept;

void chash_iter_init(chash_iter* iter, const chash_root* root) noexcept;
/// @return the next node, null after the last
chash_node* chash_iter_next(chash_iter* iter) noexcept;

/// The record that a node is a member of: chash_entry(node, &Token::node).
template<class Record>
[[nodiscard]] Record* chash_entry(chash_node* node, chash_node Record::*member) noexcept {
    // The ABI keeps a pointer to a data member as the member's offset.
    const auto offset = std::bit_cast<std::ptrdiff_t>(member);
    return reinterpret_cast<Record*>(reinterpret_cast<char*>(node) - offset);
}

/// The first node with that hash for which `matches(node)` holds, or null. Any thread, beside one writer.
template<class Matches>
[[nodiscard]] chash_node* chash_find_node(const chash_root* root, unsigned long hashval, Matches&& matches) {
    for (;;) {
        const unsigned long resizes = root->resizes.load(std::memory_order_acquire);
        chash_buckets* buckets = root->list.load(std::memory_order_acquire);
        if (buckets == nullptr)
            return nullptr;
        chash_node* node = buckets->bucket(hashval).load(std::memory_order_acquire);
        for (; node != nullptr; node = node->next.load(std::memory_order_acquire)) {
            if (node->hashval == hashval && matches(*node))
                return node;
        }
        // A walk beside a resize may be led into another chain and miss a node, but never out of the
        // table: only a miss in quiet times is a miss.
        if ((resizes & 1) == 0 && root->resizes.load(std::memory_order_acquire) == resizes)
            return nullptr;
        std::this_thread::yield();
    }
}

/// The record with that hash for which `matches(record)` holds, or null.
template<class Record, class Matches>
[[nodiscard]] Record* chash_find(const chash_root* root, unsigned long hashval, chash_node Record::*member,
                                 Matches&& matches) {
    chash_node* node = chash_find_node(root, hashval, [&](chash_node& candidate) {
        return matches(static_cast<const Record&>(*chash_entry(&candidate, member)));
    });
    return node != nullptr ? chash_entry(node, member) : nullptr;
}

} // namespace tp
