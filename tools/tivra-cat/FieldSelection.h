#pragma once

#include <string>
#include <vector>

namespace tivra_cat {

/// One entry of --fields: a label and the fields of which the first that a message has is meant.
struct FieldChoice {
    std::string label;
    std::vector<std::string> alternatives; ///< names or numbers

    /// Whether it is no field but the time of receipt.
    [[nodiscard]] bool isReceived() const { return alternatives.front() == "received"; }
    /// Position of the field among the alternatives, -1 when it is none of them.
    [[nodiscard]] int rankOf(int token, const std::string& name) const;
};

/// The fields that the user asked for, in that order; empty for all.
class FieldSelection {
public:
    FieldSelection() = default;
    /// From entries of the form [LABEL=]NAME[/NAME...]. Throws Failure for an empty name.
    explicit FieldSelection(const std::vector<std::string>& entries);

    [[nodiscard]] bool selectsAll() const { return m_choices.empty(); }
    [[nodiscard]] bool contains(int token, const std::string& name) const;
    [[nodiscard]] const std::vector<FieldChoice>& choices() const { return m_choices; }

private:
    std::vector<FieldChoice> m_choices;
};

} // namespace tivra_cat
