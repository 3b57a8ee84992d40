#include "feed/FeedImpl.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <APIFactory.h>
#include <event/SessionEvent.h>
#include <event/UserEvent.h>
#include <session/Session.h>
#include <tp/Clock.h>
#include <tp/SignalsBlocked.h>
#include <tp/Thread.h>
#include <tp/eprintf.h>

#include "feed/AnswerState.h"
#include "feed/ClockTime.h"
#include "feed/FeedParameters.h"
#include "feed/FeedStream.h"
#include "feed/SubscriptionState.h"
#include "request/RequestImpl.h"
#include "session/SessionImpl.h"

namespace tivra_internal {
namespace {

using tivra::Error;
using tivra::FeedState;

constexpr const char* kApplication = "tivra-feed";
constexpr const char* kVersion = "1";
constexpr const char* kLoginRefused = "the hub has refused the login";
constexpr const char* kOpenCancelled = "the opening was given up";
constexpr const char* kOpenTimedOut = "the hubs weren't ready in time";
/// More than that is as good as for ever, and has room in a clock.
constexpr std::chrono::milliseconds kLongestWait = std::chrono::hours(24 * 365);
/// After so many seconds what has been in vain is tried again.
constexpr double kAgain = 0.05;
/// The session's first event is on its way; it isn't worth more.
constexpr std::chrono::seconds kFirstState(1);

[[nodiscard]] double secondsOf(std::chrono::milliseconds time) {
    return std::chrono::duration<double>(time).count();
}

[[nodiscard]] RetryPauses pausesOf(const tivra::RetryPauses& retry) {
    return {secondsOf(retry.first), secondsOf(retry.longest), retry.jitterPercent / 100.0};
}

/// What can be done about a hub that isn't reached.
[[nodiscard]] const char* adviceFor(Error::Phase phase) {
    switch (phase) {
    case Error::Phase::Resolve:
    case Error::Phase::Connect:
        return "see whether the hub is up and the address is right";
    case Error::Phase::Login:
        return "see user and password, and whether the user may log in";
    default:
        return "see the log";
    }
}

} // namespace

FeedImpl::FeedImpl(tivra::FeedOptions options)
    : m_options(std::move(options)), m_registry(std::make_shared<FeedRegistry>(*this, m_options.onError)) {}

FeedImpl::~FeedImpl() {
    m_registry->detach();
}

tivra::Feed FeedImpl::open(tivra::FeedOptions options) {
    return bringUp(make(std::move(options)));
}

std::shared_ptr<FeedImpl> FeedImpl::make(tivra::FeedOptions options) {
    const tp::ThreadStartHookScope hook(options.onThreadStart);
    std::shared_ptr<FeedImpl> feed;
    try {
        feed = std::make_shared<FeedImpl>(std::move(options));
    } catch (const std::system_error& error) {
        throw Error({Error::Code::System, Error::Phase::Options,
                     std::string("a thread couldn't be made: ") + error.what(), "", "", 0, "",
                     error.code().value()});
    }
    feed->m_registry->watchCallbacks(secondsOf(feed->m_options.slowCallback), feed->m_options.onSlowCallback);
    try {
        feed->configure();
    } catch (...) {
        feed->close(feed->m_options.closeTimeout);
        throw;
    }
    return feed;
}

tivra::Feed FeedImpl::bringUp(std::shared_ptr<FeedImpl> feed) {
    const tp::ThreadStartHookScope hook(feed->m_options.onThreadStart);
    try {
        feed->start();
    } catch (...) {
        feed->close(feed->m_options.closeTimeout);
        throw;
    }
    return tivra::Feed(std::move(feed));
}

void FeedImpl::configure() {
    if (m_options.logFile.empty())
        tp::eprintf_mute_until_init();
    else
        tivra::APIFactory::getInstance()->initialize(kApplication, kVersion, m_options.logDebug,
                                                     m_options.logFile);
    m_user = m_options.onPassword
                 ? HandleAccess::makeUserInfo(m_options.user, *this, *this)
                 : HandleAccess::makeUserInfo(m_options.user, m_options.password.text(), *this);
    m_session = HandleAccess::makeSession(*m_user, *this, true);
    HandleAccess::impl(*m_session).setStreams(*this);
    HandleAccess::impl(*m_session).setHubWatcher(m_hubs, pausesOf(m_options.retry));
    HandleAccess::impl(*m_session).setLeastHubs(m_options.minHubs);
    configureSession(m_options, *m_session);
}

void FeedImpl::start() {
    if (tp::onLibraryThread())
        throw Error({Error::Code::InCallback, Error::Phase::Options,
                     "a feed can't be opened on a thread of the library", "open it on a thread of your own",
                     "", 0, "", 0});
    m_registry->laterAt(tp::Clock::monotonic() + secondsOf(m_options.openTimeout), [this] { endStart(); });
    m_hubs.expect(configureHosts(m_options, *m_session)); // here, on the thread that may wait
    std::string reason;
    if (!m_session->start(reason))
        throw startFailure(reason);
    m_isOpen.store(true, std::memory_order_release);
    awaitFirstState();
}

/// The session says what it has come to soon after it has started.
void FeedImpl::awaitFirstState() {
    const auto end = std::chrono::steady_clock::now() + kFirstState;
    const tp::MutexLock lock(m_mutex);
    while (state() == FeedState::Connecting && m_changed.waitUntil(m_mutex, end)) {
    }
}

void FeedImpl::cancelStart() {
    m_isCancelled = true;
    m_registry->laterAt(0.0, [this] { endStart(); });
}

/// Too late, or not wanted any more. A session that hasn't got to its start forgets what it is told, so it is
/// told again.
void FeedImpl::endStart() {
    if (m_isOpen.load(std::memory_order_acquire))
        return;
    HandleAccess::impl(*m_session).abortStart(m_isCancelled ? kOpenCancelled : kOpenTimedOut);
    m_registry->laterAt(tp::Clock::monotonic() + kAgain, [this] { endStart(); });
}

/// The session gives its reason as a text; the hubs know which of them it was, and how far it had come.
Error FeedImpl::startFailure(const std::string& reason) const {
    Error::Details details = m_hubs.obstacle().value_or(Error::Details());
    const std::string last = std::exchange(details.cause, reason);
    details.advice = adviceFor(details.phase);
    if (reason == kOpenTimedOut) {
        details.code = Error::Code::TimedOut;
        details.cause += ", within " + std::to_string(m_options.openTimeout.count()) + " ms";
        if (!last.empty())
            details.cause += ", last: " + last;
        details.advice += ", or raise FeedOptions::openTimeout";
    } else if (reason == kOpenCancelled) {
        details.code = Error::Code::Cancelled;
        details.advice.clear();
    } else if (details.status != 0) {
        details.code = Error::Code::Refused;
        details.cause = kLoginRefused;
    } else {
        details.code = Error::Code::OpenFailed;
        if (!last.empty() && reason.find(last) == std::string::npos)
            details.cause += ", last: " + last;
    }
    return Error(std::move(details));
}

std::string FeedImpl::statusName(int status) const {
    return HandleAccess::impl(*m_session).getRetCodeDesc(status);
}

std::unique_ptr<MessageStream> FeedImpl::open(const MetaTokenMap& dictionary, const std::string& hub,
                                              const Queue& queue) {
    return std::make_unique<FeedStream>(m_registry, *this, dictionary, hub, queue);
}

int64_t FeedImpl::nextTag() {
    return HandleAccess::impl(*m_session).getNextTag();
}

bool FeedImpl::send(tivra::Commands command, const tivra::Instrument& instrument, int64_t tag,
                    int64_t origin) {
    SessionImpl& session = HandleAccess::impl(*m_session);
    RequestImpl request(&session);
    request.setCommand(command);
    if (instrument.source != 0)
        request.add(tivra::ENUM_SRC_ID, instrument.source);
    if (!instrument.symbol.empty())
        request.add(tivra::SYMBOL_TICKER, instrument.symbol);
    if (origin != 0)
        request.add(tivra::QUERY_REF_TAG, origin);
    request.useTag(tag);
    return session.send(request) != 0;
}

void FeedImpl::onSessionEvent(const tivra::SessionEvent& event) {
    switch (event.getType()) {
    case tivra::SessionEvent::TIVRA_SESSION_UNAVAILABLE:
        changeState(FeedState::Connecting, "all hubs are lost");
        break;
    case tivra::SessionEvent::TIVRA_SESSION_RECOVERY:
        changeState(FeedState::Recovering, "a hub is lost, others serve");
        break;
    case tivra::SessionEvent::TIVRA_SESSION_ESTABLISHED:
        changeState(FeedState::Established, "all hubs are ready");
        break;
    case tivra::SessionEvent::TIVRA_SESSION_SOURCE_REMOVED:
        m_registry->withdraw(event.getSourceID());
        break;
    case tivra::SessionEvent::TIVRA_SESSION_SOURCE_ADDED:
        m_registry->restore(event.getSourceID());
        break;
    default:
        break;
    }
}

void FeedImpl::onUserEvent(const tivra::UserEvent& event) {
    if (event.getType() != tivra::UserEvent::AUTHORIZATION_FAILURE)
        return;
    Error::Details details;
    if (const std::optional<Error::Details> obstacle = m_hubs.obstacle();
        obstacle && obstacle->status == event.getRetCode())
        details.hub = obstacle->hub;
    details.code = Error::Code::Refused;
    details.phase = Error::Phase::Login;
    details.cause = kLoginRefused;
    details.advice = adviceFor(details.phase);
    details.status = event.getRetCode();
    details.statusName = event.getRetCodeString();
    const Error refusal(std::move(details));
    if (m_isOpen.load(std::memory_order_acquire) && m_options.onError)
        m_registry->callbacks().run("onError", m_options.user, [&] { m_options.onError(refusal); });
}

tivra::Password FeedImpl::onPassword(const std::string& hub) {
    return m_options.onPassword(hub);
}

void FeedImpl::changeState(FeedState to, const char* cause) {
    FeedState from{};
    {
        const tp::MutexLock lock(m_mutex);
        from = m_state.exchange(to, std::memory_order_acq_rel);
        m_changed.notifyAll();
    }
    if (from != to && m_options.onState)
        m_registry->callbacks().run("onState", "", [&] { m_options.onState({from, to, cause, wallTime()}); });
}

/// On the feed's thread: a hub's own has its sockets to serve.
void FeedImpl::tell(const tivra::ConnectionEvent& event) {
    if (event.to == tivra::HubState::Ready && !m_registry->isDetached())
        m_registry->laterAt(0.0, [this] { m_registry->askWithdrawn(); });
    if (m_options.onConnection && !m_registry->isDetached())
        m_registry->laterAt(0.0, [this, event] {
            m_registry->callbacks().run("onConnection", event.hub, [&] { m_options.onConnection(event); });
        });
}

void FeedImpl::reconnectNow() {
    const tp::MutexLock lock(m_mutex); // the session stays meanwhile
    if (!m_isClosing)
        HandleAccess::impl(*m_session).dialNow();
}

bool FeedImpl::close(std::chrono::milliseconds deadline) {
    if (m_registry->process().isForeign())
        return true; // it is the parent's
    const auto end =
        std::chrono::steady_clock::now() + std::clamp(deadline, std::chrono::milliseconds(0), kLongestWait);
    tp::MutexLock lock(m_mutex);
    if (!std::exchange(m_isClosing, true)) {
        lock.unlock();
        m_registry->detach();
        startShutDown();
        lock.lock();
    }
    if (tp::onLibraryThread())
        return m_isClosed;
    while (!m_isClosed)
        if (!m_changed.waitUntil(m_mutex, end) && !m_isClosed) {
            eprintf(EPF_CRIT, "a feed isn't closed after %lld ms: a callback still runs",
                    static_cast<long long>(deadline.count()));
            return false;
        }
    return true;
}

/// On a thread of its own, which keeps the feed's inside until the callbacks that run have returned. It waits
/// for the library's threads, so it can't be one of them.
void FeedImpl::startShutDown() {
    try {
        const tp::SignalsBlocked inherited;
        std::thread([feed = shared_from_this()] {
            tp::setThreadName("tivra-close");
            feed->shutDown();
        }).detach();
    } catch (const std::system_error&) {
        if (tp::onLibraryThread())
            m_registry->laterAt(tp::Clock::monotonic() + kAgain,
                                [feed = shared_from_this()] { feed->startShutDown(); });
        else
            shutDown();
    }
}

void FeedImpl::shutDown() {
    if (m_session != nullptr)
        m_session->stop();
    {
        // Callbacks of answers that end here are told where they are.
        const tp::LibraryThreadMark mark;
        m_registry->close();
    }
    m_session.reset();
    m_user.reset();
    m_state.store(FeedState::Closed, std::memory_order_release);
    const tp::MutexLock lock(m_mutex);
    m_isClosed = true;
    m_changed.notifyAll();
}

} // namespace tivra_internal
