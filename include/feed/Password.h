#pragma once

#include <string>
#include <utility>

#include "TivraApi.h"

namespace tivra {

/// A password on its way from where it is kept to the hubs. It is never written to a log or into an error.
class TIVRA_API Password {
public:
    /// An empty one.
    Password() = default;
    // NOLINTBEGIN(google-explicit-constructor): a text may be given where a password is wanted
    /// The password itself; better than that are fromEnvironment() and fromFile().
    Password(std::string text) : m_text(std::move(text)) {}
    /// The same for a literal, which mustn't be null.
    Password(const char* text) : m_text(text) {}
    // NOLINTEND(google-explicit-constructor)

    /// The value of an environment variable. @throws Error (InvalidOption) when it isn't set
    static Password fromEnvironment(const char* name = "TIVRA_PASSWORD");
    /// The first line of a file. @throws Error (InvalidOption) when it can't be read
    static Password fromFile(const std::string& path);

    /// The password in clear, for the login; it lives as long as this.
    const std::string& text() const noexcept { return m_text; }
    /// Whether it has no character.
    bool isEmpty() const noexcept { return m_text.empty(); }

private:
    std::string m_text;
};

} // namespace tivra
