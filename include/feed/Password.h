#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra {

/// A password on its way from where it is kept to the hubs. It is never written to a log or into an error,
/// and its memory is overwritten when it goes, is moved on or gets another value.
class TIVRA_API Password {
public:
    /// An empty one.
    Password() noexcept;
    // NOLINTBEGIN(google-explicit-constructor): a text may be given where a password is wanted
    /// The password itself; better than that are fromEnvironment() and fromFile(). The text given stays as it
    /// is.
    Password(const std::string& text);
    /// The same; the text given is overwritten.
    Password(std::string&& text) noexcept;
    /// The same for a literal, which mustn't be null.
    Password(const char* text);
    // NOLINTEND(google-explicit-constructor)
    ~Password();
    /// Of its own memory, which is overwritten when it goes.
    Password(const Password& other);
    /// The other is empty afterwards.
    Password(Password&& other) noexcept;
    /// The text before is overwritten.
    Password& operator=(const Password& other);
    /// The other is empty afterwards.
    Password& operator=(Password&& other) noexcept;

    /// The value of an environment variable. @throws Error (InvalidOption) when it isn't set
    static Password fromEnvironment(const char* name = "TIVRA_PASSWORD");
    /// The first line of a file.
    /// @throws Error (InvalidOption) when it can't be read, or when others can read it too: everybody, or the
    /// group of a file that is this process's own user's
    static Password fromFile(const std::string& path);

    /// The password in clear, for the login; it lives as long as this.
    const std::string& text() const noexcept { return m_text; }
    /// Whether it has no character.
    bool isEmpty() const noexcept { return m_text.empty(); }

private:
    std::string m_text;
};

} // namespace tivra
