#include <tp/chash.h>

#include "BoundedText.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <new>
#include <utility>

namespace tp {

namespace {

constexpr unsigned long kInitialMask = 63;
constexpr unsigned long kShrinkFloor = 512;

static_assert(sizeof(chash_buckets) % alignof(std::atomic<chash_node*>) == 0,
              "the buckets follow their header at once");

chash_buckets* allocate(unsigned long bucketCount) noexcept {
    void* memory = std::calloc(1, sizeof(chash_buckets) + bucketCount * sizeof(std::atomic<chash_node*>));
    if (memory == nullptr)
        return nullptr;
    auto* buckets = new (memory) chash_buckets{bucketCount - 1, nullptr};
    for (unsigned long i = 0; i < bucketCount; ++i)
        new (&buckets->bucket(i)) std::atomic<chash_node*>(nullptr);
    return buckets;
}

// An array of that size with empty buckets: one that was used before, or a new one.
chash_buckets* arrayOfSize(chash_root* root, unsigned long bucketCount) noexcept {
    for (chash_buckets* known = root->arrays; known != nullptr; known = known->nextSmaller) {
        if (known->mask != bucketCount - 1)
            continue;
        for (unsigned long i = 0; i < bucketCount; ++i)
            known->bucket(i).store(nullptr, std::memory_order_release);
        return known;
    }
    chash_buckets* fresh = allocate(bucketCount);
    if (fresh != nullptr) {
        fresh->nextSmaller = root->arrays;
        root->arrays = fresh;
    }
    return fresh;
}

void push(chash_buckets* buckets, chash_node* node) noexcept {
    std::atomic<chash_node*>& head = buckets->bucket(node->hashval);
    node->next.store(head.load(std::memory_order_relaxed), std::memory_order_release);
    head.store(node, std::memory_order_release);
}

// Failure is silent: the table stays as it is. A reader in the old array follows a re-linked node into its
// new chain, which ends as every chain does, and looks again when it missed (chash_find_node).
void resize(chash_root* root, unsigned long bucketCount) noexcept {
    chash_buckets* from = root->list.load(std::memory_order_relaxed);
    // Every store to a bucket or link from here on is a release, so who sees one sees the odd number too.
    const unsigned long resizes = root->resizes.load(std::memory_order_relaxed);
    root->resizes.store(resizes + 1, std::memory_order_relaxed);
    chash_buckets* to = arrayOfSize(root, bucketCount);
    for (unsigned long i = 0; to != nullptr && i <= from->mask; ++i) {
        chash_node* node = from->bucket(i).load(std::memory_order_relaxed);
        while (node != nullptr) {
            chash_node* const next = node->next.load(std::memory_order_relaxed);
            push(to, node);
            node = next;
        }
    }
    if (to != nullptr)
        root->list.store(to, std::memory_order_release);
    root->resizes.store(resizes + 2, std::memory_order_release);
}

struct Load {
    unsigned long nodes = 0;
    unsigned long buckets = 0;
    unsigned long shortest = 0;
    unsigned long longest = 0;
    double squares = 0.0;

    void add(unsigned long length) noexcept {
        shortest = buckets == 0 ? length : std::min(shortest, length);
        longest = std::max(longest, length);
        nodes += length;
        ++buckets;
        squares += static_cast<double>(length) * static_cast<double>(length);
    }
    [[nodiscard]] double average() const noexcept {
        return buckets == 0 ? 0.0 : static_cast<double>(nodes) / static_cast<double>(buckets);
    }
    [[nodiscard]] double deviation() const noexcept {
        if (buckets == 0)
            return 0.0;
        const double variance = squares / static_cast<double>(buckets) - average() * average();
        return std::sqrt(std::max(0.0, variance));
    }
};

unsigned long chainLength(const chash_node* node) noexcept {
    unsigned long length = 0;
    for (; node != nullptr; node = node->next.load(std::memory_order_acquire))
        ++length;
    return length;
}

} // namespace

int chash_init(chash_root* root) noexcept {
    root->list = nullptr;
    root->resizes = 0;
    root->count = 0;
    root->resize_factor = 1.0;
    root->minimize = true;
    root->arrays = nullptr;
    root->list = arrayOfSize(root, kInitialMask + 1);
    return root->list.load() != nullptr ? 0 : -1;
}

void chash_free(chash_root* root) noexcept {
    root->list = nullptr;
    root->count = 0;
    while (root->arrays != nullptr)
        std::free(std::exchange(root->arrays, root->arrays->nextSmaller));
}

void chash_resize_factor(chash_root* root, double factor) noexcept {
    root->resize_factor = factor;
}

void chash_shrink_allowed(chash_root* root, bool allowed) noexcept {
    root->minimize = allowed;
}

void chash_insert(chash_root* root, chash_node* node) noexcept {
    const chash_buckets* buckets = root->list.load(std::memory_order_relaxed);
    if (buckets == nullptr) {
        // chash_init found no memory and said so; there may be some by now.
        root->list.store(arrayOfSize(root, kInitialMask + 1), std::memory_order_release);
        buckets = root->list.load(std::memory_order_relaxed);
        if (buckets == nullptr)
            return;
    }
    if (static_cast<double>(root->count) > static_cast<double>(buckets->mask) * root->resize_factor)
        resize(root, buckets->mask * 2 + 2);
    push(root->list.load(std::memory_order_relaxed), node);
    ++root->count;
}

void chash_remove(chash_root* root, chash_node* node) noexcept {
    chash_buckets* buckets = root->list.load(std::memory_order_relaxed);
    if (buckets == nullptr)
        return;
    std::atomic<chash_node*>* link = &buckets->bucket(node->hashval);
    while (link->load(std::memory_order_relaxed) != node) {
        chash_node* const linked = link->load(std::memory_order_relaxed);
        if (linked == nullptr)
            return;
        link = &linked->next;
    }
    link->store(node->next.load(std::memory_order_relaxed), std::memory_order_release);
    --root->count;
    if (root->minimize && std::max(root->count * 4, kShrinkFloor) < buckets->mask)
        resize(root, (buckets->mask + 1) / 2);
}

int chash_eval(const chash_root* root, char* buf, int n) noexcept {
    if (n <= 0)
        return 0;
    Load all;
    Load used;
    chash_buckets* buckets = root->list.load(std::memory_order_acquire);
    for (unsigned long i = 0; buckets != nullptr && i <= buckets->mask; ++i) {
        const unsigned long length = chainLength(buckets->bucket(i).load(std::memory_order_acquire));
        all.add(length);
        if (length > 0)
            used.add(length);
    }
    BoundedText text(buf, static_cast<std::size_t>(n));
    text.appendCut("%sfound=%d buckets=%d nzbuckets=%d minBucket=%d maxBucket=%d\n"
                   "     avg=%0.3f dev=%0.3f\n"
                   "     nzavg=%0.3f nzdev=%0.3f\n",
                   all.nodes != root->count ? "COUNT MISMATCH " : "", static_cast<int>(all.nodes),
                   static_cast<int>(all.buckets), static_cast<int>(used.buckets),
                   static_cast<int>(all.shortest), static_cast<int>(all.longest), all.average(),
                   all.deviation(), used.average(), used.deviation());
    return static_cast<int>(text.length());
}

void chash_iter_init(chash_iter* iter, const chash_root* root) noexcept {
    *iter = chash_iter{root, 0, nullptr};
}

chash_node* chash_iter_next(chash_iter* iter) noexcept {
    chash_buckets* buckets = iter->root->list.load(std::memory_order_acquire);
    if (iter->pos != nullptr)
        iter->pos = iter->pos->next.load(std::memory_order_acquire);
    while (iter->pos == nullptr && buckets != nullptr && iter->level <= buckets->mask)
        iter->pos = buckets->bucket(iter->level++).load(std::memory_order_acquire);
    return iter->pos;
}

} // namespace tp
