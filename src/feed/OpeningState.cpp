#include "feed/OpeningState.h"

#include <algorithm>
#include <string>
#include <system_error>

#include <tp/SignalsBlocked.h>
#include <tp/Thread.h>

#include "feed/FeedImpl.h"
#include "feed/LeaveAlive.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::Feed;
using tivra::Result;

/// More than that is as good as for ever, and has room in a clock.
constexpr std::chrono::nanoseconds kLongestTimeout = std::chrono::hours(24 * 365);

[[nodiscard]] Error openingError(Error::Code code, std::string cause, std::string advice = {}) {
    return Error({code, Error::Phase::None, std::move(cause), std::move(advice), "", 0, "", 0});
}

} // namespace

tivra::Opening OpeningState::begin(tivra::FeedOptions options) {
    auto state = std::make_shared<OpeningState>(FeedImpl::make(std::move(options)));
    try {
        const tp::SignalsBlocked inherited;
        state->m_thread = std::thread([state] { state->run(); });
    } catch (const std::system_error& error) {
        state->m_feed->close(std::chrono::milliseconds(0));
        throw Error({Error::Code::System, Error::Phase::Options,
                     std::string("a thread couldn't be made: ") + error.what(), "", "", 0, "",
                     error.code().value()});
    }
    return tivra::Opening(std::move(state));
}

void OpeningState::run() {
    tp::setThreadName("tivra-open");
    std::optional<Result<Feed>> result;
    try {
        result.emplace(FeedImpl::bringUp(m_feed));
    } catch (const Error& error) {
        result.emplace(error);
    }
    tivra::Opening::Callback callback;
    {
        const tp::MutexLock lock(m_mutex);
        m_changed.notifyAll();
        if (!m_isTaken && m_callback == nullptr) {
            m_result = std::move(result);
            return;
        }
        if (!m_isTaken)
            callback = std::move(m_callback);
        m_isTaken = true;
    }
    if (callback)
        hand(callback, std::move(*result));
}

void OpeningState::hand(const tivra::Opening::Callback& callback, Result<Feed> result) {
    m_feed->registry().callbacks().run("the callback of an opening", m_feed->options().user,
                                       [&] { callback(std::move(result)); });
}

Result<Feed> OpeningState::wait(std::optional<std::chrono::nanoseconds> timeout) {
    if (tp::onLibraryThread())
        return openingError(Error::Code::InCallback,
                            "an opening can't be waited for on a thread of the library",
                            "use then() or co_await");
    const auto end =
        std::chrono::steady_clock::now() +
        std::clamp(timeout.value_or(kLongestTimeout), std::chrono::nanoseconds(0), kLongestTimeout);
    const tp::MutexLock lock(m_mutex);
    while (!m_result && !m_isTaken)
        if (!m_changed.waitUntil(m_mutex, end) && !m_result && !m_isTaken)
            return openingError(Error::Code::TimedOut, "the feed isn't open yet");
    if (m_isTaken)
        return openingError(Error::Code::InvalidArgument, "the result of the opening has been taken",
                            "take it once");
    m_isTaken = true;
    Result<Feed> result = std::move(*m_result);
    m_result.reset();
    return result;
}

bool OpeningState::isReady() {
    const tp::MutexLock lock(m_mutex);
    return m_result.has_value();
}

void OpeningState::then(tivra::Opening::Callback callback) {
    std::optional<Result<Feed>> result;
    {
        const tp::MutexLock lock(m_mutex);
        if (m_isTaken || m_callback != nullptr)
            throw openingError(Error::Code::InvalidArgument, "the result of the opening has been taken",
                               "take it once");
        if (!m_result) {
            m_callback = std::move(callback);
            return;
        }
        m_isTaken = true;
        result.swap(m_result);
    }
    hand(callback, std::move(*result));
}

void OpeningState::cancel() {
    std::optional<Result<Feed>> dropped; // goes without the mutex
    tivra::Opening::Callback callback;   // the same
    bool isUnderWay = false;
    {
        const tp::MutexLock lock(m_mutex);
        isUnderWay = !m_isTaken && !m_result;
        m_isTaken = true;
        dropped.swap(m_result);
        callback.swap(m_callback);
        m_changed.notifyAll();
    }
    if (isUnderWay)
        m_feed->cancelStart();
    if (!m_thread.joinable())
        return;
    if (tp::onLibraryThread() || m_thread.get_id() == std::this_thread::get_id())
        m_thread.detach();
    else
        m_thread.join();
}

bool OpeningState::isForeign() const {
    return m_feed->registry().process().isForeign();
}

} // namespace tivra_internal

namespace tivra {
namespace {

[[nodiscard]] tivra_internal::OpeningState&
stateOf(const std::shared_ptr<tivra_internal::OpeningState>& state) {
    if (state == nullptr || state->isForeign())
        throw Error({Error::Code::Closed, Error::Phase::None, "this object opens no feed",
                     "it was moved from, or belongs to the parent of this process", "", 0, "", 0});
    return *state;
}

} // namespace

Opening Feed::openAsync(FeedOptions options) {
    return tivra_internal::OpeningState::begin(std::move(options));
}

Opening::Opening(std::shared_ptr<tivra_internal::OpeningState> state) noexcept : m_state(std::move(state)) {}

Opening::Opening(Opening&&) noexcept = default;

Opening& Opening::operator=(Opening&& other) noexcept {
    const Opening old(std::exchange(m_state, std::exchange(other.m_state, nullptr)));
    return *this;
}

Opening::~Opening() {
    if (m_state == nullptr)
        return;
    // In a child of the process that opens there is no thread to wait for: what is inside stays.
    if (m_state->isForeign())
        tivra_internal::leaveAlive(m_state);
    else
        m_state->cancel();
}

Feed Opening::get() {
    return stateOf(m_state).wait(std::nullopt).value();
}

Feed Opening::get(std::chrono::nanoseconds timeout) {
    return wait(timeout).value();
}

Result<Feed> Opening::wait(std::chrono::nanoseconds timeout) {
    return stateOf(m_state).wait(timeout);
}

bool Opening::isReady() const {
    return m_state != nullptr && !m_state->isForeign() && m_state->isReady();
}

void Opening::then(Callback callback) {
    stateOf(m_state).then(std::move(callback));
}

void Opening::cancel() {
    if (m_state != nullptr && !m_state->isForeign())
        m_state->cancel();
}

} // namespace tivra
