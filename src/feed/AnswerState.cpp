#include "feed/AnswerState.h"

#include <algorithm>
#include <utility>

#include <tp/Clock.h>
#include <tp/Thread.h>
#include <tp/eprintf.h>

#include "feed/Callbacks.h"
#include "feed/FeedRegistry.h"
#include "feed/RecordData.h"

namespace tivra_internal {

using tivra::Answer;
using tivra::Error;
using tivra::Snapshot;

namespace {

[[nodiscard]] Error answerError(Error::Code code, std::string cause, std::string advice = {}) {
    return Error({code, Error::Phase::Answer, std::move(cause), std::move(advice), "", 0, "", 0});
}

} // namespace

AnswerState::AnswerState(std::shared_ptr<FeedRegistry> registry, int64_t tag, std::string what,
                         std::size_t maxBytes)
    : m_registry(std::move(registry))
    , m_tag(tag)
    , m_what(std::move(what))
    , m_maxBytes(maxBytes)
    , m_askedAt(tp::Clock::monotonic()) {}

void AnswerState::setTimeOut(const LaterThread::Ticket& timeOut) {
    const tp::MutexLock lock(m_mutex);
    m_timeOut = timeOut;
}

void AnswerState::addRecord(tivra::Record record) {
    {
        const tp::MutexLock lock(m_mutex);
        if (m_hasEnded)
            return;
        m_bytes += sizeof record + RecordData::bytesOf(record);
        if (m_bytes <= m_maxBytes) {
            m_records.push_back(std::move(record));
            return;
        }
    }
    eprintf(EPF_WARN, "The answer to the %s takes more than %zu bytes; it is given up", m_what.c_str(),
            m_maxBytes);
    end(answerError(Error::Code::Refused,
                    "the answer to the " + m_what + " takes more than " + std::to_string(m_maxBytes) +
                        " bytes",
                    "ask for less at a time"));
}

void AnswerState::addFailure(Error failure) {
    const tp::MutexLock lock(m_mutex);
    // A hub that goes on refusing is named once.
    const bool isKnown = std::any_of(m_failures.begin(), m_failures.end(),
                                     [&failure](const Error& known) { return known.hub() == failure.hub(); });
    if (!m_hasEnded && !isKnown)
        m_failures.push_back(std::move(failure));
}

void AnswerState::complete() {
    measure();
    std::vector<tivra::Record> records;
    {
        const tp::MutexLock lock(m_mutex);
        records.swap(m_records);
    }
    end(Snapshot(std::move(records)));
}

void AnswerState::refuse(const Error& error) {
    std::vector<tivra::Record> records;
    std::vector<Error> failures;
    {
        const tp::MutexLock lock(m_mutex);
        records.swap(m_records);
        failures.swap(m_failures);
    }
    // The status of several hubs is the worst, and comes with whichever answers last.
    const auto worst = std::find_if(failures.begin(), failures.end(), [&error](const Error& failure) {
        return failure.status() == error.status();
    });
    if (records.empty())
        end(worst != failures.end() ? *worst : error);
    else
        end(Snapshot(std::move(records), std::move(failures)));
}

void AnswerState::fail(const Error& error) {
    if (error.code() == Error::Code::Refused)
        measure();
    end(error);
}

void AnswerState::measure() {
    {
        const tp::MutexLock lock(m_mutex);
        if (m_hasEnded)
            return;
    }
    m_registry->measures().addAnswer(tp::Clock::monotonic() - m_askedAt);
}

void AnswerState::forget() {
    LaterThread::Ticket timeOut;
    {
        const tp::MutexLock lock(m_mutex);
        timeOut = m_timeOut;
    }
    m_registry->forgetAnswer(m_tag, timeOut);
}

void AnswerState::end(Result result) {
    forget();
    Answer::Callback callback;
    {
        const tp::MutexLock lock(m_mutex);
        if (std::exchange(m_hasEnded, true))
            return;
        m_records.clear();
        callback = std::exchange(m_callback, nullptr);
        if (!callback) {
            m_result = std::move(result);
            m_changed.notifyAll();
            return;
        }
        m_caller = std::this_thread::get_id();
    }
    runCallback(std::move(callback), std::move(result));
}

/// What the callback holds goes before anybody who waits for its end is told.
void AnswerState::runCallback(Answer::Callback callback, Result result) {
    const std::shared_ptr<AnswerState> keep = shared_from_this();
    m_registry->callbacks().run("an answer's callback", m_what, [&] { callback(std::move(result)); });
    callback = nullptr;
    const tp::MutexLock lock(m_mutex);
    m_caller = {};
    m_changed.notifyAll();
}

bool AnswerState::isForeign() const noexcept {
    return m_registry->process().isForeign();
}

Error AnswerState::foreignError() {
    return answerError(Error::Code::Closed, "the answer belongs to the parent of this process",
                       "open a feed in the child");
}

AnswerState::Result AnswerState::wait(const std::chrono::steady_clock::time_point* deadline) {
    if (isForeign())
        return foreignError();
    tp::MutexLock lock(m_mutex);
    if (m_isTaken)
        return answerError(Error::Code::InvalidArgument, "the answer to the " + m_what + " has been taken");
    if (!m_hasEnded && tp::onLibraryThread())
        return answerError(Error::Code::InCallback,
                           "the answer to the " + m_what + " can't be waited for on a thread of the library",
                           "use then()");
    while (!m_hasEnded) {
        if (deadline == nullptr) {
            m_changed.wait(m_mutex);
        } else if (!m_changed.waitUntil(m_mutex, *deadline) && !m_hasEnded) {
            return answerError(Error::Code::TimedOut, "the answer to the " + m_what + " hasn't come yet");
        }
    }
    if (std::exchange(m_isTaken, true) || !m_result)
        return answerError(Error::Code::InvalidArgument, "the answer to the " + m_what + " has been taken");
    Result result = std::move(*m_result);
    m_result.reset();
    return result;
}

bool AnswerState::isReady() {
    if (isForeign())
        return true; // with an error
    const tp::MutexLock lock(m_mutex);
    return m_hasEnded;
}

void AnswerState::then(Answer::Callback callback) {
    if (isForeign())
        throw foreignError();
    std::optional<Result> result;
    {
        const tp::MutexLock lock(m_mutex);
        if (std::exchange(m_isTaken, true))
            throw answerError(Error::Code::InvalidArgument,
                              "the answer to the " + m_what + " has been taken, or promised to a callback");
        if (!m_hasEnded) {
            m_callback = std::move(callback);
            return;
        }
        result = std::exchange(m_result, std::nullopt);
        m_caller = std::this_thread::get_id();
    }
    runCallback(std::move(callback), std::move(*result));
}

void AnswerState::cancel() {
    if (isForeign())
        return;
    Answer::Callback dropped; // goes without the mutex
    forget();
    tp::MutexLock lock(m_mutex);
    dropped.swap(m_callback);
    m_records.clear();
    if (!std::exchange(m_hasEnded, true)) {
        if (!m_isTaken)
            m_result = answerError(Error::Code::Cancelled, "the " + m_what + " has been cancelled");
        m_changed.notifyAll();
    }
    // Two callbacks that cancel each other's requests must not wait for each other.
    if (tp::onLibraryThread())
        return;
    while (m_caller != std::thread::id() && m_caller != std::this_thread::get_id())
        m_changed.wait(m_mutex);
}

void AnswerState::abandon() {
    if (isForeign())
        return;
    {
        const tp::MutexLock lock(m_mutex);
        if (m_hasEnded || m_isTaken)
            return;
        // Nobody is left to ask why it has ended: no text is made, for which there may be no memory.
        m_isTaken = true;
    }
    cancel();
}

} // namespace tivra_internal

namespace tivra {
namespace {

[[noreturn]] void refuseEmpty() {
    throw Error({Error::Code::InvalidArgument, Error::Phase::Answer, "there is no answer in this object",
                 "it was moved from, or never came from a feed", "", 0, "", 0});
}

} // namespace

Answer::Answer(std::shared_ptr<tivra_internal::AnswerState> state) noexcept : m_state(std::move(state)) {}

Answer::Answer(Answer&&) noexcept = default;

Answer& Answer::operator=(Answer&& other) noexcept {
    if (this != &other) {
        if (m_state != nullptr)
            m_state->abandon();
        m_state = std::move(other.m_state);
    }
    return *this;
}

Answer::~Answer() {
    if (m_state != nullptr)
        m_state->abandon();
}

Snapshot Answer::get() {
    if (m_state == nullptr)
        refuseEmpty();
    return m_state->wait(nullptr).value();
}

Snapshot Answer::get(std::chrono::nanoseconds timeout) {
    return wait(timeout).value();
}

Result<Snapshot> Answer::wait(std::chrono::nanoseconds timeout) {
    if (m_state == nullptr)
        refuseEmpty();
    const auto now = std::chrono::steady_clock::now();
    constexpr auto kLongest = std::chrono::hours(24 * 365);
    const auto deadline = now + std::min<std::chrono::nanoseconds>(timeout, kLongest);
    return m_state->wait(&deadline);
}

bool Answer::isReady() const {
    return m_state != nullptr && m_state->isReady();
}

void Answer::then(Callback callback) {
    if (m_state == nullptr)
        refuseEmpty();
    // The callback may end this object.
    const std::shared_ptr<tivra_internal::AnswerState> keep = m_state;
    keep->then(std::move(callback));
}

void Answer::cancel() {
    if (m_state != nullptr)
        m_state->cancel();
}

} // namespace tivra
