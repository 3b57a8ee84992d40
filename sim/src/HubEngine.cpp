#include "HubEngine.h"

#include "WrongAnswers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

namespace tivra_sim {

namespace {

std::pair<std::string, std::uint16_t> addressText(const sockaddr_in& address) {
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address.sin_addr, text.data(), static_cast<socklen_t>(text.size()));
    return {text.data(), ntohs(address.sin_port)};
}

void watchDescriptor(int epoll, int fd, void* owner) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = owner;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0)
        failed("cannot watch a descriptor");
}

/// An earlier stop's unread bytes would turn a close into a reset, so they are read away first.
void discardInput(int fd) {
    std::array<char, 4096> bytes;
    while (::recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
    }
}

} // namespace

HubEngine::HubEngine(HubConfig config, std::shared_ptr<GroupDirectory> group, std::size_t member)
    : m_config(std::move(config))
    , m_journal(m_config.requestLogLimit)
    , m_port(m_config.port)
    , m_group(std::move(group))
    , m_state(m_config, m_group.get(), member)
    , m_responder(m_state)
    , m_playback(m_state, m_config.playback) {
    m_state.model.onNewSymbol([this](SymbolEntry& entry) {
        for (const auto& connection : m_state.connections) {
            if (m_state.sourceStatus(*connection, entry.source) == status::SUCCESS && m_state.holds(entry))
                connection->cover(entry);
        }
    });
    announcePlace();
    announceBox();
}

HubEngine::~HubEngine() {
    stop();
}

bool HubEngine::isRunning() const {
    const std::lock_guard<std::mutex> lock(m_taskMutex);
    return m_isServing;
}

void HubEngine::start() {
    const std::lock_guard<std::mutex> lifecycle(m_lifecycleMutex);
    if (m_thread.joinable())
        return;
    std::shared_ptr<const PlaybackTape> tape;
    if (m_config.playback.isWanted() && !m_playback.isLoaded())
        tape = std::make_shared<PlaybackTape>(m_config.playback);
    std::unique_ptr<TlsServer> tls;
    if (!m_config.tls.certificateFile.empty())
        tls = TlsServer::make(m_config.tls);
    const std::lock_guard<std::mutex> lock(m_taskMutex);
    m_tls = std::move(tls);
    if (tape)
        m_playback.load(std::move(tape));
    listen();
    const Clock::time_point now = Clock::now();
    m_nextHeartbeat = now + m_config.heartbeat.interval;
    m_nextHubStatus = now + m_config.hubStatus.interval;
    m_mustStop = false;
    m_isServing = true;
    m_thread = std::thread([this] { loop(); });
}

void HubEngine::listen() {
    std::uint16_t port = m_port;
    if (m_place.get() < 0)
        m_place = holdPort(m_config.bindAddress, port);
    Descriptor listener = listenOn(m_config.bindAddress, port);
    Descriptor epoll = checked(::epoll_create1(EPOLL_CLOEXEC), "cannot make an epoll descriptor");
    Descriptor wake = checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an event descriptor");
    Descriptor timer =
        checked(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "cannot make a timer");
    watchDescriptor(epoll.get(), listener.get(), &m_listener);
    watchDescriptor(epoll.get(), wake.get(), &m_wake);
    watchDescriptor(epoll.get(), timer.get(), &m_timer);
    m_port = port;
    m_state.port = m_port;
    announcePlace();
    m_listener = std::move(listener);
    m_epoll = std::move(epoll);
    m_wake = std::move(wake);
    m_timer = std::move(timer);
}

void HubEngine::announcePlace() {
    if (m_group == nullptr)
        return;
    const bool isAnyAddress = m_config.bindAddress == "0.0.0.0";
    const std::string own = isAnyAddress ? std::string() : m_config.bindAddress;
    m_group->setPlace(m_state.member,
                      {m_config.advertisedHost.empty() ? own : m_config.advertisedHost, m_port});
}

void HubEngine::stop() {
    const std::lock_guard<std::mutex> lifecycle(m_lifecycleMutex);
    if (!m_thread.joinable())
        return;
    run([this] { m_mustStop = true; });
    m_thread.join();
}

void HubEngine::run(const std::function<void()>& task) {
    std::future<void> done;
    {
        const std::lock_guard<std::mutex> lock(m_taskMutex);
        if (m_isServing && m_threadId != std::this_thread::get_id()) {
            Task& entry = m_tasks.emplace_back();
            entry.work = &task;
            done = entry.done.get_future();
            const std::uint64_t one = 1;
            static_cast<void>(!::write(m_wake.get(), &one, sizeof one));
        } else if (!m_isServing) {
            task();
            return;
        }
    }
    if (done.valid())
        done.get();
    else
        task();
}

void HubEngine::loop() {
    pthread_setname_np(pthread_self(), "tivra-sim-hub");
    {
        const std::lock_guard<std::mutex> lock(m_taskMutex);
        m_threadId = std::this_thread::get_id();
    }
    publish();
    while (!m_mustStop) {
        waitForEvents();
        runTasks();
        const Clock::time_point now = Clock::now();
        runTimers(now);
        m_playback.startIfWanted(subscriptions(), now);
        m_playbackNext = m_playback.step(now);
        publish();
        flushAll(now);
        removeClosed();
        publish();
        armTimer(now);
    }
    leave();
}

void HubEngine::leave() {
    for (const auto& connection : m_state.connections)
        m_closing.emplace_back(connection.get(), Hub::Close::Orderly);
    removeClosed();
    m_playback.stop();
    m_listener.reset();
    publish();
    const std::lock_guard<std::mutex> lock(m_taskMutex);
    for (Task& task : m_tasks)
        runTask(task);
    m_tasks.clear();
    m_isServing = false;
    m_threadId = {};
    m_wake.reset();
    m_timer.reset();
    m_epoll.reset();
}

void HubEngine::waitForEvents() {
    std::array<epoll_event, 64> events;
    const bool goesOn = m_playbackNext == PlaybackEngine::Next::Now ||
                        (m_playbackNext == PlaybackEngine::Next::WhenDrained && m_playback.hasRoom());
    const int timeout = goesOn ? 0 : -1;
    const int count = ::epoll_wait(m_epoll.get(), events.data(), static_cast<int>(events.size()), timeout);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        std::uint64_t drained = 0;
        if (event.data.ptr == &m_listener) {
            acceptAll();
        } else if (event.data.ptr == &m_wake) {
            static_cast<void>(!::read(m_wake.get(), &drained, sizeof drained));
        } else if (event.data.ptr == &m_timer) {
            static_cast<void>(!::read(m_timer.get(), &drained, sizeof drained));
        } else {
            auto& connection = *static_cast<Connection*>(event.data.ptr);
            if ((event.events & EPOLLOUT) != 0)
                connection.isBlocked = false;
            if ((event.events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0)
                readFrom(connection);
        }
    }
}

void HubEngine::runTasks() {
    std::deque<Task> tasks;
    {
        const std::lock_guard<std::mutex> lock(m_taskMutex);
        tasks.swap(m_tasks);
    }
    for (Task& task : tasks)
        runTask(task);
}

void HubEngine::runTask(Task& task) {
    try {
        (*task.work)();
        // What a task has queued goes out, and what it has changed can be read, before its caller goes on.
        flushAll(Clock::now());
        removeClosed();
        publish();
        task.done.set_value();
    } catch (...) {
        task.done.set_exception(std::current_exception());
    }
}

void HubEngine::acceptAll() {
    for (;;) {
        Descriptor socket(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket.get() < 0)
            return;
        ++m_accepted;
        if (m_misbehaviour.isAccepting)
            admit(std::move(socket));
    }
}

void HubEngine::admit(Descriptor socket) {
    const int yes = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    sockaddr_in local{};
    sockaddr_in peer{};
    socklen_t length = sizeof local;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&local), &length);
    length = sizeof peer;
    ::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&peer), &length);
    auto [peerAddress, peerPort] = addressText(peer);
    const int fd = socket.get();
    auto connection = std::make_unique<Connection>(
        m_nextConnection++, std::move(socket), addressText(local).first, std::move(peerAddress), peerPort);
    if (m_tls)
        connection->encrypt(m_tls->accept(fd));
    connection->output().setShape(m_misbehaviour.shape);
    if (m_config.conflation)
        connection->conflator().emplace();
    watchDescriptor(m_epoll.get(), fd, connection.get());
    m_state.connections.push_back(std::move(connection));
    if (m_misbehaviour.isDeaf)
        watch(*m_state.connections.back());
}

void HubEngine::readFrom(Connection& connection) {
    std::array<char, 65536> bytes;
    const ssize_t count = connection.receive(bytes.data(), bytes.size());
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return;
    if (count <= 0) {
        closeConnection(connection, Hub::Close::Orderly);
        return;
    }
    FrameReader& reader = connection.reader();
    reader.push({bytes.data(), static_cast<std::size_t>(count)});
    std::string_view text;
    while (!connection.isClosing) {
        const FrameReader::Result result = reader.next(text);
        if (result == FrameReader::Result::Incomplete)
            return;
        if (result == FrameReader::Result::Invalid) {
            m_journal.recordError(reader.error());
            closeConnection(connection, Hub::Close::Orderly);
            return;
        }
        serve(connection, text);
    }
}

void HubEngine::serve(Connection& connection, std::string_view text) {
    Request request;
    request.time = std::chrono::system_clock::now();
    request.connection = connection.id();
    request.text = text;
    request.tag = request.number(token::TAG);
    request.command = request.value(token::COMMAND);
    m_journal.record(request);
    Clock::time_point due{};
    if (m_misbehaviour.answerDelay.count() > 0)
        due = Clock::now() + m_misbehaviour.answerDelay;
    // A refusal is a part of the compressed stream too.
    if (m_config.compression && request.command == "LoginUser" && Responder::wantsCompression(request))
        connection.output().startCompression(m_config.compressionLevel, m_config.compressionFlush);
    for (std::string& frame : framesFor(connection, request))
        connection.answer(std::move(frame), due);
    m_playback.startIfWanted(subscriptions(), Clock::now());
}

Hub::Frames HubEngine::framesFor(Connection& connection, const Request& request) {
    if (m_misbehaviour.script) {
        // A copy, since the script may replace itself while it runs.
        const Hub::Script script = m_misbehaviour.script;
        std::optional<Hub::Frames> scripted = script(request);
        if (scripted)
            return *std::move(scripted);
    }
    const std::optional<Misbehaviour::Refusal> refusal = takeRefusal(request.command);
    if (refusal && std::holds_alternative<std::monostate>(refusal->answer))
        return {};
    if (const int* status = refusal ? std::get_if<int>(&refusal->answer) : nullptr)
        return {encodeFrame(Responder::statusBody(request.tag, *status))};
    Responder::Bodies bodies = m_responder.answer(connection, request);
    if (refusal)
        bodies = spoilt(bodies, std::get<Hub::Wrong>(refusal->answer));
    Hub::Frames frames;
    for (const std::string& body : bodies)
        frames.push_back(encodeFrame(body));
    return frames;
}

std::optional<Misbehaviour::Refusal> HubEngine::takeRefusal(std::string_view command) {
    std::vector<Misbehaviour::Refusal>& refusals = m_misbehaviour.refusals;
    const auto found = std::find_if(refusals.begin(), refusals.end(), [command](const auto& refusal) {
        return refusal.command == command || (refusal.command == Hub::ANY_COMMAND && command != "LoginUser");
    });
    if (found == refusals.end())
        return std::nullopt;
    Misbehaviour::Refusal taken = *found;
    if (found->timesLeft > 0 && --found->timesLeft == 0)
        refusals.erase(found);
    return taken;
}

void HubEngine::runTimers(Clock::time_point now) {
    for (const auto& connection : m_state.connections) {
        connection->releaseAnswers(now);
        if (connection->conflator())
            connection->conflator()->release(connection->output(), now);
    }
    if (m_config.heartbeat.enabled && now >= m_nextHeartbeat) {
        m_nextHeartbeat = now + m_config.heartbeat.interval;
        if (!m_misbehaviour.isSilent)
            pushHeartbeat();
    }
    if (m_config.hubStatus.enabled && now >= m_nextHubStatus) {
        m_nextHubStatus = now + m_config.hubStatus.interval;
        if (!m_misbehaviour.isSilent)
            pushHubStatus();
    }
}

void HubEngine::flushAll(Clock::time_point now) {
    for (const auto& connection : m_state.connections)
        flush(*connection, now);
}

void HubEngine::flush(Connection& connection, Clock::time_point now) {
    if (connection.isHalfClosed) {
        connection.output() = OutputQueue(); // or a playback would wait for it
        connection.isBlocked = false;
    }
    if (connection.isBlocked || connection.isClosing)
        return;
    OutputQueue::Result result = OutputQueue::Result::Empty;
    if (!m_misbehaviour.isSilent && !connection.isHalfClosed)
        result = connection.output().flush(connection.fd(), connection.tls(), now);
    m_sent += connection.output().takeCounters();
    if (result == OutputQueue::Result::Finished)
        closeConnection(connection, connection.output().mustFinish() ? m_dropHow : Hub::Close::Orderly);
    connection.isBlocked = result == OutputQueue::Result::Blocked;
    if (connection.isWatchedForRoom != connection.isBlocked)
        watch(connection);
}

void HubEngine::watch(Connection& connection) {
    epoll_event event{};
    event.events = (m_misbehaviour.isDeaf ? 0U : static_cast<unsigned>(EPOLLIN)) |
                   (connection.isBlocked ? static_cast<unsigned>(EPOLLOUT) : 0U);
    event.data.ptr = &connection;
    connection.isWatchedForRoom = connection.isBlocked;
    ::epoll_ctl(m_epoll.get(), EPOLL_CTL_MOD, connection.fd(), &event);
}

void HubEngine::closeConnection(Connection& connection, Hub::Close how) {
    connection.isClosing = true;
    m_closing.emplace_back(&connection, how);
}

void HubEngine::removeClosed() {
    for (const auto& [closing, how] : m_closing) {
        const auto found =
            std::find_if(m_state.connections.begin(), m_state.connections.end(),
                         [target = closing](const auto& candidate) { return candidate.get() == target; });
        if (found == m_state.connections.end())
            continue;
        const int fd = (*found)->fd();
        if (how == Hub::Close::Reset) {
            const linger now{1, 0};
            ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        } else {
            if (TlsSession* const tls = (*found)->tls(); tls != nullptr && how == Hub::Close::Orderly)
                tls->end();
            discardInput(fd);
        }
        // Closing alone doesn't do it while a child that was just forked still holds the socket, and the
        // events to come would find the connection gone.
        ::epoll_ctl(m_epoll.get(), EPOLL_CTL_DEL, fd, nullptr);
        m_sent += (*found)->output().takeCounters();
        m_state.connections.erase(found);
    }
    m_closing.clear();
}

std::size_t HubEngine::subscriptions() const {
    std::size_t count = 0;
    for (const auto& connection : m_state.connections)
        count += connection->subscriptionCount();
    return count;
}

void HubEngine::publish() {
    HubStatistics statistics;
    bool drained = true;
    for (const auto& connection : m_state.connections) {
        statistics.loggedIn += connection->client().isLoggedIn ? 1U : 0U;
        drained = drained && connection->output().playbackPending() == 0 &&
                  !(connection->conflator() && connection->conflator()->holdsPlayback());
    }
    statistics.connections = m_state.connections.size();
    statistics.subscriptions = subscriptions();
    statistics.accepted = m_accepted;
    statistics.framesSent = m_sent.frames;
    statistics.bytesSent = m_sent.bytes;
    statistics.updatesSent = m_sent.updates;
    statistics.playbackEvents = m_playback.eventsPlayed();
    statistics.playbackSent = m_sent.playback;
    statistics.playbackLeftOut = m_playback.leftOut();
    statistics.playbackDropped = m_playback.dropped().messages;
    statistics.playbackDroppedBytes = m_playback.dropped().bytes;
    statistics.slowClients = m_playback.dropped().clients;
    statistics.playbackSeconds = m_playback.secondsPlayed(Clock::now());
    statistics.playbackLateness = m_playback.lateness();
    statistics.playbackFinished = m_playback.isPlayedOut() && drained;
    statistics.playbackRunning = m_playback.isRunning() || (m_playback.isPlayedOut() && !drained);
    if (m_published == statistics)
        return;
    m_published = statistics;
    m_journal.publish(statistics);
}

void HubEngine::armTimer(Clock::time_point now) {
    Clock::time_point next = Clock::time_point::max();
    if (m_config.heartbeat.enabled)
        next = std::min(next, m_nextHeartbeat);
    if (m_config.hubStatus.enabled)
        next = std::min(next, m_nextHubStatus);
    if (m_playbackNext == PlaybackEngine::Next::AtTime)
        next = std::min(next, m_playback.resumeAt());
    for (const auto& connection : m_state.connections) {
        if (connection->hasWaitingAnswer())
            next = std::min(next, connection->nextAnswerAt());
        if (connection->conflator() && connection->conflator()->hasWaiting())
            next = std::min(next, connection->conflator()->dueAt());
        if (connection->output().resumeAt() > now && connection->output().pending() > 0)
            next = std::min(next, connection->output().resumeAt());
    }
    itimerspec spec{};
    if (next != Clock::time_point::max()) {
        const auto wait = std::max<std::int64_t>(
            1, std::chrono::duration_cast<std::chrono::nanoseconds>(next - Clock::now()).count());
        spec.it_value.tv_sec = static_cast<time_t>(wait / 1000000000);
        spec.it_value.tv_nsec = static_cast<long>(wait % 1000000000);
    }
    ::timerfd_settime(m_timer.get(), 0, &spec, nullptr);
}

} // namespace tivra_sim
