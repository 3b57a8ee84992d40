#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <cxxabi.h>

#include <feed/Error.h>

#include "feed/CallbackWatch.h"

namespace tivra_internal {

/// Calls the application's functions and survives what they throw: an exception is counted, logged and handed
/// to FeedOptions::onError. @thread any
class Callbacks {
public:
    explicit Callbacks(std::function<void(const tivra::Error&)> onError) : m_onError(std::move(onError)) {}
    Callbacks(const Callbacks&) = delete;
    Callbacks& operator=(const Callbacks&) = delete;

    /// @param name     what is called, for the log
    /// @param context  whom it is about: a text, and the call is watched; or something with a symbol(), and a
    ///                 slot of the watch shows it
    template<class Context, class Call>
    void run(const char* name, const Context& context, Call&& call) {
        if constexpr (std::is_convertible_v<const Context&, std::string_view>) {
            const CallbackWatch::Scope watched(m_watch, name, context);
            guard(name, context, std::forward<Call>(call));
        } else {
            guard(name, context, std::forward<Call>(call));
        }
    }

    [[nodiscard]] CallbackWatch& watch() noexcept { return m_watch; }
    [[nodiscard]] std::uint64_t failures() const noexcept {
        return m_failures.load(std::memory_order_relaxed);
    }

private:
    template<class Context, class Call>
    void guard(const char* name, const Context& context, Call&& call) {
        try {
            std::forward<Call>(call)();
        } catch (const abi::__forced_unwind&) {
            throw;
        } catch (const tivra::Error& error) {
            report(name, textOf(context), &error, error.what());
        } catch (const std::exception& exception) {
            report(name, textOf(context), nullptr, exception.what());
        } catch (...) {
            report(name, textOf(context), nullptr, "one that is no std::exception");
        }
    }

    template<class Context>
    [[nodiscard]] static std::string_view textOf(const Context& context) {
        if constexpr (std::is_convertible_v<const Context&, std::string_view>)
            return context;
        else
            return context.symbol();
    }
    void report(const char* name, std::string_view context, const tivra::Error* error, const char* text);

    const std::function<void(const tivra::Error&)> m_onError;
    std::atomic<std::uint64_t> m_failures{0};
    CallbackWatch m_watch;
};

} // namespace tivra_internal
