#pragma once

#include "bus/LeaseTable.h"
#include "share/LeaseBook.h"
#include "share/PartitionShare.h"

#include <chrono>
#include <string>

namespace tivra_bus {

/// Shares partitions by leases in a table on the engine.
class LeaseShare : public PartitionShare {
public:
    /// A bridge whose entry hasn't changed for so long is taken for dead.
    static constexpr std::chrono::milliseconds kLease{3000};

    /// The table has to stay.
    /// @param name  of this bridge, which no other has
    LeaseShare(LeaseTable& table, const std::string& name, unsigned partitions,
               std::chrono::milliseconds lease = kLease);

    [[nodiscard]] LeaseDecision decide(const std::set<unsigned>& held, bool isReady) override;
    void renew(bool isReady) override;
    [[nodiscard]] Before before(unsigned partition) override;
    [[nodiscard]] bool claim(unsigned partition, std::uint64_t epoch) override;
    void giveBack(unsigned partition) override;
    void leave() override;
    [[nodiscard]] std::string end() const override;
    [[nodiscard]] std::size_t members() const override { return m_book.liveMembers(Clock::now()); }
    [[nodiscard]] Clock::time_point confirmed() const override { return m_confirmed; }

private:
    /// @return when that was
    Clock::time_point readTable();

    LeaseTable& m_table;
    LeaseBook m_book;
    Clock::time_point m_nextRenewal{};
    Clock::time_point m_confirmed = Clock::now();
};

} // namespace tivra_bus
