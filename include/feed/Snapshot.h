#pragma once

#include <optional>
#include <utility>
#include <vector>

#include "TivraApi.h"
#include "feed/Error.h"
#include "feed/Field.h"
#include "feed/Record.h"
#include "feed/Value.h"

namespace tivra {

/// The whole answer to a request: as many records as the hub has sent, in its order. The snapshot of one
/// symbol has one as a rule, an order book one for each line, a pattern one for each symbol, a list one for
/// each entry.
/// @thread any; a value that may be kept
class Snapshot {
public:
    /// No record, no failure.
    Snapshot() = default;
    /// For tests of an application, which can make answers of their own.
    explicit Snapshot(std::vector<Record> records, std::vector<Error> failures = {})
        : m_records(std::move(records)), m_failures(std::move(failures)) {}

    /// All of them, in the hub's order; they live as long as the snapshot, and copies of them longer.
    const std::vector<Record>& records() const noexcept { return m_records; }
    /// Whether no record has come: the hubs have nothing, unless failures() says more.
    bool isEmpty() const noexcept { return m_records.empty(); }

    /// Whether all hubs that were asked have given what they have. Of several hubs some may fail, for a
    /// pattern for example, while others answer.
    bool isComplete() const noexcept { return m_failures.empty(); }
    /// Which hubs have failed, and why; Error::hub() names them. Where all fail there is no Snapshot but an
    /// Error.
    const std::vector<Error>& failures() const noexcept { return m_failures; }

    /// The value of a field in the first record that has it. A text lives as long as the snapshot.
    /// @throws Error (WrongType) when the field holds another type
    template<class T>
    std::optional<T> get(const Field& field) const {
        for (const Record& record : m_records)
            if (const std::optional<Value> value = record.get(field))
                return value->template as<T>();
        return std::nullopt;
    }

private:
    std::vector<Record> m_records;
    std::vector<Error> m_failures;
};

} // namespace tivra
