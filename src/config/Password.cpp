#include <feed/Password.h>

#include <utility>

#include <tp/wipe.h>

namespace tivra {

Password::Password() noexcept = default;

Password::Password(const std::string& text) : m_text(text) {}

// A short text stays in the one that it is moved from.
Password::Password(std::string&& text) noexcept : m_text(std::move(text)) {
    tp::wipe(text);
}

Password::Password(const char* text) : m_text(text) {}

Password::~Password() {
    tp::wipe(m_text);
}

Password::Password(const Password& other) = default;

Password::Password(Password&& other) noexcept : Password(std::move(other.m_text)) {}

Password& Password::operator=(const Password& other) {
    if (this != &other)
        *this = Password(other);
    return *this;
}

Password& Password::operator=(Password&& other) noexcept {
    if (this == &other)
        return *this;
    tp::wipe(m_text);
    m_text = std::move(other.m_text);
    tp::wipe(other.m_text);
    return *this;
}

} // namespace tivra
