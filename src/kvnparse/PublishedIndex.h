#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace KVNAPI {

/// A hash index that any thread reads without a lock while one writer at a time inserts. Entries and bucket
/// arrays never change once they are published, but for the heads of the buckets; an array that has been
/// replaced lives as long as the index, since a reader may still be in it. It does not own the objects.
template<class Object>
class PublishedIndex {
public:
    PublishedIndex() { clear(); }
    PublishedIndex(const PublishedIndex&) = delete;
    PublishedIndex& operator=(const PublishedIndex&) = delete;

    /// The first object with that hash for which `matches` holds, or null.
    template<class Predicate>
    [[nodiscard]] Object* find(std::uint64_t hash, Predicate matches) const noexcept {
        const Table* table = m_current.load(std::memory_order_acquire);
        const Entry* entry = table->bucket(hash).load(std::memory_order_acquire);
        for (; entry != nullptr; entry = entry->next)
            if (entry->hash == hash && matches(*entry->object))
                return entry->object;
        return nullptr;
    }

    /// For hashes that are one-to-one with the key.
    [[nodiscard]] Object* find(std::uint64_t hash) const noexcept {
        return find(hash, [](const Object&) { return true; });
    }

    /// One writer at a time.
    void insert(std::uint64_t hash, Object* object) {
        Table* table = m_tables.back().get();
        if (table->entries.size() > table->mask)
            table = grow(*table);
        table->insert(hash, object);
    }

    [[nodiscard]] std::size_t size() const noexcept { return m_tables.back()->entries.size(); }

    /// Forgets everything. No reader may be about.
    void clear() {
        auto table = std::make_unique<Table>(FIRST_BUCKETS);
        m_current.store(table.get(), std::memory_order_release);
        m_tables.clear();
        m_tables.push_back(std::move(table));
    }

private:
    static constexpr std::size_t FIRST_BUCKETS = 64;

    struct Entry {
        std::uint64_t hash;
        Object* object;
        const Entry* next;
    };

    struct Table {
        explicit Table(std::size_t buckets)
            : mask(buckets - 1), heads(std::make_unique<std::atomic<const Entry*>[]>(buckets)) {}

        [[nodiscard]] std::atomic<const Entry*>& bucket(std::uint64_t hash) const noexcept {
            return heads[hash & mask];
        }

        void insert(std::uint64_t hash, Object* object) {
            std::atomic<const Entry*>& head = bucket(hash);
            entries.push_back({hash, object, head.load(std::memory_order_relaxed)});
            head.store(&entries.back(), std::memory_order_release);
        }

        const std::size_t mask;
        const std::unique_ptr<std::atomic<const Entry*>[]> heads;
        std::deque<Entry> entries;
    };

    Table* grow(const Table& full) {
        auto table = std::make_unique<Table>(2 * (full.mask + 1));
        for (const Entry& entry : full.entries)
            table->insert(entry.hash, entry.object);
        m_tables.push_back(std::move(table));
        m_current.store(m_tables.back().get(), std::memory_order_release);
        return m_tables.back().get();
    }

    std::atomic<const Table*> m_current{nullptr};
    std::vector<std::unique_ptr<Table>> m_tables;
};

} // namespace KVNAPI
