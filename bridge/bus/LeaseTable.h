#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tivra_bus {

/// An entry of the table of leases. One that was taken out has no value, and may still have a revision.
struct LeaseEntry {
    std::string key;
    std::string value;
    std::uint64_t revision = 0; ///< changes with each write
};

/// A small table on the engine that all bridges see, whose entries are changed one at a time by whoever knows
/// their present revision.
/// @thread one at a time
class LeaseTable {
public:
    virtual ~LeaseTable() = default;

    /// @throws BusError when the engine doesn't answer
    [[nodiscard]] virtual std::vector<LeaseEntry> entries() = 0;
    /// Writes an entry that has this revision, or with 0 one that isn't there.
    /// @return the new revision; nothing when somebody else was first. @throws BusError
    [[nodiscard]] virtual std::optional<std::uint64_t> write(const std::string& key, const std::string& value,
                                                             std::uint64_t revision) = 0;
    /// Takes an entry out; where the table can tell, one that has changed since it was read stays.
    /// @throws BusError
    virtual void remove(const std::string& key) = 0;
};

} // namespace tivra_bus
