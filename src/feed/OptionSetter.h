#pragma once

#include <set>
#include <string>
#include <string_view>

#include <feed/FeedOptions.h>

namespace tivra_internal {

struct FeedOptionInfo;

/// Sets options by their names, as one URL, one file or the environment gives them: each once, and only what
/// can be meant.
class OptionSetter {
public:
    /// How a source writes a value.
    enum class Form { Single, List };

    /// @param options  borrowed
    explicit OptionSetter(tivra::FeedOptions& options) : m_options(options) {}
    OptionSetter(const OptionSetter&) = delete;
    OptionSetter& operator=(const OptionSetter&) = delete;

    /// @param name   of an option, or of a parameter: READ_TIMEOUT_LONG or read_timeout
    /// @param text   the members of a list are divided by commas
    /// @param where  it stands, for the error
    /// @throws tivra::Error (InvalidOption) for a name that doesn't exist or has been set, and for a value
    ///         that can't be meant
    void set(std::string_view name, std::string_view text, std::string_view where, Form form = Form::Single);
    /// Whether the password itself has been set.
    [[nodiscard]] bool hasPassword() const;

private:
    void setByName(std::string_view name, std::string_view text, Form form);
    void setOption(const FeedOptionInfo& option, std::string_view text);
    void note(const std::string& name);

    tivra::FeedOptions& m_options;
    std::set<std::string> m_names; ///< what has been set, without the spellings that a parameter may have
};

/// As an error gives the place of an option: "PLACE: CAUSE".
[[noreturn]] void refuseOptionAt(std::string_view where, std::string_view cause, std::string advice = {});

} // namespace tivra_internal
