#pragma once

#include "FieldSelection.h"
#include "SequenceCheck.h"

#include <tivra.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace tivra_cat {

/// What is known of each field that has come by: its name and what it is wanted for. Asked on the threads
/// of the callbacks; names stay valid for its whole life.
class FieldCatalog {
public:
    struct Entry {
        std::string name;
        bool isSelected = false;
        bool isSequence = false;
    };

    FieldCatalog(const FieldSelection& selection, const SequenceCheck& sequence)
        : m_selection(selection), m_sequence(sequence) {}

    /// The entry of the field that the reader stands on.
    [[nodiscard]] const Entry& entryOf(int token, const tivra::MessageReader& reader);

    /// Labels of the selected fields of which nothing has come so far.
    [[nodiscard]] std::vector<std::string> unseen() const;

private:
    const FieldSelection& m_selection;
    const SequenceCheck& m_sequence;
    mutable std::mutex m_mutex; ///< guards m_entries
    std::unordered_map<int, std::unique_ptr<const Entry>> m_entries;
};

} // namespace tivra_cat
