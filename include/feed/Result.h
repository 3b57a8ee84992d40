#pragma once

#include <utility>
#include <variant>

#include "feed/Error.h"

namespace tivra {

/// A value, or why there is none, for callers that want no exceptions.
template<class T>
class Result {
public:
    // NOLINTBEGIN(google-explicit-constructor): a function returns the one or the other
    /// Success.
    Result(T value) : m_content(std::move(value)) {}
    /// Failure.
    Result(Error error) : m_content(std::move(error)) {}
    // NOLINTEND(google-explicit-constructor)

    /// Whether there is a value; if not, error() says why.
    bool hasValue() const noexcept { return m_content.index() == 0; }
    /// The same, for `if (result)`.
    explicit operator bool() const noexcept { return hasValue(); }

    /// The value. @throws Error when there is none
    T& value() & {
        throwIfError();
        return std::get<0>(m_content);
    }
    /// The same of a result that is const.
    const T& value() const& {
        throwIfError();
        return std::get<0>(m_content);
    }
    /// The value, moved out of a result that goes. @throws Error when there is none
    T value() && {
        throwIfError();
        return std::get<0>(std::move(m_content));
    }
    /// As value(): it throws where there is none.
    T& operator*() & { return value(); }
    /// As value(): it throws where there is none.
    const T& operator*() const& { return value(); }
    /// A member of value(): it throws where there is none.
    T* operator->() { return &value(); }
    /// A member of value(): it throws where there is none.
    const T* operator->() const { return &value(); }

    /// Why there is no value; only where hasValue() is false.
    const Error& error() const { return std::get<1>(m_content); }

private:
    void throwIfError() const {
        if (!hasValue())
            throw error();
    }

    std::variant<T, Error> m_content;
};

} // namespace tivra
