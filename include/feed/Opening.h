#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#if __has_include(<coroutine>) && defined(__cpp_impl_coroutine)
#    include <coroutine>
#endif

#include "TivraApi.h"
#include "feed/Feed.h"
#include "feed/Result.h"

namespace tivra_internal {
class OpeningState;
} // namespace tivra_internal

namespace tivra {

/// A feed that is being opened on a thread of its own, made by Feed::openAsync. Its result can be waited for
/// (get, wait), handed to a callback (then) or awaited in a coroutine, once in all.
///
/// An object that goes before that gives the opening up and waits until its thread has ended, which takes
/// milliseconds unless a callback of the feed runs. On a thread of the library, and inside its own callback,
/// it doesn't wait.
///
/// @thread any, one at a time
class TIVRA_API Opening {
public:
    /// What then() calls: with the feed, or with the Error that the opening has ended with.
    using Callback = std::function<void(Result<Feed>)>;

    /// Opens nothing, as one that was moved from: it is never ready, and asking for its result throws Error
    /// (Closed).
    Opening() = default;
    /// Takes the opening over.
    Opening(Opening&&) noexcept;
    /// The same; the opening that was here is given up as in the destructor.
    Opening& operator=(Opening&&) noexcept;
    /// Gives the opening up unless its result was taken, as cancel() does.
    ~Opening();

    /// Waits for the feed and takes it. @throws Error as Feed::open
    Feed get();
    /// As get(), for so long at most. The opening goes on: get() or cancel() may follow.
    /// @throws Error (TimedOut) when that time has passed
    Feed get(std::chrono::nanoseconds timeout);
    /// As get(timeout), without exceptions.
    Result<Feed> wait(std::chrono::nanoseconds timeout);

    /// Whether the feed, or its failure, is there.
    bool isReady() const;

    /// Has the callback called with the feed, once, on the thread that opens, or at once if it is there. The
    /// object has to stay until then. An exception out of the callback goes to FeedOptions::onError.
    void then(Callback callback);

    /// Gives the opening up. A feed that is there is closed unless it has been taken. When this returns no
    /// callback runs and none will come, but for the one that this is called in.
    void cancel();

#if defined(__cpp_impl_coroutine) && __has_include(<coroutine>)
    /// co_await gives the Feed or throws the Error. The coroutine goes on on the thread that opens.
    class Awaiter;
    /// Awaits the feed; the opening goes into the awaiter.
    Awaiter operator co_await() &&;
#endif

private:
    friend class tivra_internal::OpeningState;

    explicit Opening(std::shared_ptr<tivra_internal::OpeningState> state) noexcept;

    std::shared_ptr<tivra_internal::OpeningState> m_state;
};

#if defined(__cpp_impl_coroutine) && __has_include(<coroutine>)
/// What co_await makes of an Opening; the compiler alone calls it.
class Opening::Awaiter {
public:
    /// Takes the opening over.
    explicit Awaiter(Opening&& opening) noexcept : m_opening(std::move(opening)) {}

    /// The coroutine goes on on the thread that opens, whether the feed is there or not.
    bool await_ready() const noexcept { return false; }
    /// Resumes the coroutine on the thread that opens.
    void await_suspend(std::coroutine_handle<> waiting) {
        m_opening.then([this, waiting](Result<Feed> result) {
            m_result.emplace(std::move(result));
            waiting.resume();
        });
    }
    /// @throws Error as Feed::open
    Feed await_resume() { return std::move(*m_result).value(); }

private:
    Opening m_opening;
    std::optional<Result<Feed>> m_result;
};

inline Opening::Awaiter Opening::operator co_await() && {
    return Awaiter(std::move(*this));
}
#endif

} // namespace tivra
