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
#include "feed/Result.h"
#include "feed/Snapshot.h"

namespace tivra_internal {
class AnswerState;
} // namespace tivra_internal

namespace tivra {

/// The answer to a request, which may still be to come. It can be waited for (get, wait), handed to a
/// callback (then) or awaited in a coroutine, once in all.
///
/// Every answer comes to an end: with what the hub has sent, with its refusal, with the loss of its
/// connection, or with the time-out of the request. One that is cancelled, or whose object goes before
/// anybody has asked for its result, gives nothing more; what the hub still sends for it is dropped.
///
/// @thread any, one at a time
class TIVRA_API Answer {
public:
    /// What then() calls: with the answer, or with the Error that the request has ended with.
    using Callback = std::function<void(Result<Snapshot>)>;

    /// An answer to nothing, as is one that was moved from: it is never ready, and asking for its result
    /// throws Error (InvalidArgument).
    Answer() = default;
    /// Takes the answer over; a wait or a callback goes on with it.
    Answer(Answer&&) noexcept;
    /// The same; the answer that was here before is dropped as in the destructor.
    Answer& operator=(Answer&&) noexcept;
    /// Never waits. The request is given up, unless then() has a callback waiting for it.
    ~Answer();

    /// Waits for the answer and takes it.
    /// @throws Error when the request has failed; (InCallback) on a thread of the library, which may be the
    /// one
    ///         that has to bring the answer
    Snapshot get();
    /// As get(), for so long at most. The request goes on: get() or cancel() may follow.
    /// @throws Error (TimedOut) when that time has passed
    Snapshot get(std::chrono::nanoseconds timeout);
    /// As get(timeout), without exceptions.
    Result<Snapshot> wait(std::chrono::nanoseconds timeout);

    /// Whether the answer, or its failure, is there.
    bool isReady() const;

    /// Has the callback called with the answer, once, on a thread of the library, or at once if it is there.
    /// The object may go then; keep it to be able to cancel. An exception out of the callback goes to
    /// FeedOptions::onError.
    void then(Callback callback);

    /// Gives the request up. When this returns no callback runs and none will come; one that runs on another
    /// thread is waited for. Inside the callback itself it does nothing, and inside any other it doesn't
    /// wait.
    void cancel();

#if defined(__cpp_impl_coroutine) && __has_include(<coroutine>)
    /// co_await gives the Snapshot or throws the Error. The coroutine goes on on a thread of the library.
    class Awaiter;
    /// Awaits the answer, which goes into the awaiter.
    Awaiter operator co_await() &&;
#endif

private:
    friend class tivra_internal::AnswerState;

    explicit Answer(std::shared_ptr<tivra_internal::AnswerState> state) noexcept;

    std::shared_ptr<tivra_internal::AnswerState> m_state;
};

#if defined(__cpp_impl_coroutine) && __has_include(<coroutine>)
/// What co_await makes of an Answer; the compiler alone calls it.
class Answer::Awaiter {
public:
    /// Takes the answer over.
    explicit Awaiter(Answer&& answer) noexcept : m_answer(std::move(answer)) {}

    /// One that is there is taken without a callback: the stack would grow with each in a row.
    bool await_ready() const { return m_answer.isReady(); }
    /// Resumes the coroutine on a thread of the library.
    void await_suspend(std::coroutine_handle<> waiting) {
        m_answer.then([this, waiting](Result<Snapshot> result) {
            m_result.emplace(std::move(result));
            waiting.resume();
        });
    }
    /// @throws Error when the request has failed
    Snapshot await_resume() { return m_result ? std::move(*m_result).value() : m_answer.get(); }

private:
    Answer m_answer;
    std::optional<Result<Snapshot>> m_result;
};

inline Answer::Awaiter Answer::operator co_await() && {
    return Awaiter(std::move(*this));
}
#endif

} // namespace tivra
