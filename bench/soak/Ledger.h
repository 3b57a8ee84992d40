#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <feed/Subscription.h>

namespace tivra_soak {

/// What a reader has been told of each symbol, held against what may be told: values count up by one, and
/// whatever is missing has been reported.
/// @thread any
class Ledger {
public:
    struct Entry {
        std::size_t symbol = 0;
        std::int32_t value = 0;
        bool isImage = false;
    };
    struct Counts {
        std::uint64_t updates = 0;
        std::uint64_t images = 0;
        std::uint64_t gaps = 0;
        std::uint64_t losses = 0; ///< changes to Stale
        std::uint64_t leftOut = 0;
        std::uint64_t faults = 0;
    };

    Ledger(std::string reader, std::size_t symbols) : m_reader(std::move(reader)), m_accounts(symbols) {}

    /// So many messages before the next value are known to have been dropped or merged.
    void leaveOut(std::size_t symbol, std::uint64_t messages);
    void value(const Entry& entry);
    void state(std::size_t symbol, const tivra::StateChange& change);
    void gap(std::size_t symbol);

    [[nodiscard]] const std::string& reader() const { return m_reader; }
    [[nodiscard]] Counts counts() const;
    /// The first of the faults, each one line.
    [[nodiscard]] std::vector<std::string> faults() const;
    /// How many symbols aren't live with this value.
    [[nodiscard]] std::size_t behind(const std::vector<std::int32_t>& newest) const;

private:
    struct Account {
        tivra::DataState state = tivra::DataState::Pending;
        std::int32_t last = -1;  ///< the newest value, if nothing may be missing since; else -1
        std::int32_t shown = -1; ///< the newest value
        std::uint64_t leftOut = 0;
        bool owesGap = false;
    };

    void fault(std::size_t symbol, const std::string& text);

    const std::string m_reader;
    mutable std::mutex m_mutex;
    std::vector<Account> m_accounts;
    std::vector<std::string> m_faults;
    Counts m_counts;
};

} // namespace tivra_soak
