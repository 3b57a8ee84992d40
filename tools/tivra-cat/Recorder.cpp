#include "Recorder.h"

#include "ExitCode.h"

#include <pthread.h>

#include <chrono>
#include <utility>

namespace tivra_cat {

namespace {

/// Bytes of bodies that may wait, however few messages they are.
constexpr std::size_t kMaxWaiting = std::size_t{64} << 20;
/// Notes that may wait beside them: a disk that takes nothing makes no more of them than that.
constexpr std::size_t kMaxWaitingNotes = 10000;
/// What a file that is cut off can lack at most.
constexpr std::chrono::seconds kFlushInterval{1};

std::int64_t presentNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::unique_ptr<RecordTarget> opened(const std::string& path, RecordTarget::Form form) {
    try {
        return RecordTarget::open(path, form);
    } catch (const tivra_capture::CaptureError& error) {
        throw Failure(ExitCode::OutputFailed, error.what());
    }
}

} // namespace

Recorder::Recorder(const std::string& path, RecordTarget::Form form, std::size_t capacity,
                   const Wakeup& wakeup)
    : m_form(form)
    , m_capacity(capacity)
    , m_wakeup(wakeup)
    , m_path(path)
    , m_target(opened(path, form))
    , m_thread([this] { run(); }) {
    pthread_setname_np(m_thread.native_handle(), "cat-recorder");
}

Recorder::~Recorder() {
    close();
    m_thread.join();
}

void Recorder::add(std::string_view body) {
    bool wasEmpty = false;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_isClosed || m_waiting.entries.size() >= m_capacity ||
            m_waiting.bodies.size() + body.size() > kMaxWaiting) {
            m_dropped.fetch_add(1);
            ++m_droppedSince;
            return;
        }
        wasEmpty = m_waiting.entries.empty();
        noteDropped();
        append(body);
    }
    if (wasEmpty)
        m_changed.notify_one();
}

void Recorder::add(const tivra_capture::Note& note) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isClosed || m_waitingNotes >= kMaxWaitingNotes)
        return;
    noteDropped();
    append(note.body());
    m_changed.notify_one();
}

// The time is read under the lock, so that the times stand in the order of the messages.
void Recorder::append(std::string_view body) {
    m_waiting.entries.push_back({presentNanoseconds(), body.size()});
    m_waiting.bodies += body;
    m_waitingNotes += tivra_capture::isNote(body) ? 1U : 0U;
}

void Recorder::noteDropped() {
    if (m_droppedSince > 0 && m_form == RecordTarget::Form::Capture)
        append(tivra_capture::Note{"dropped", {{"messages", std::to_string(m_droppedSince)}}}.body());
    m_droppedSince = 0;
}

void Recorder::close() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isClosed)
        noteDropped();
    m_isClosed = true;
    m_changed.notify_one();
}

void Recorder::run() {
    try {
        writeAll();
    } catch (const std::exception& error) {
        close();
        m_error = error.what();
        m_hasFailed = true;
    }
    m_isFinished = true;
    m_wakeup.notify();
}

void Recorder::writeAll() {
    Batch batch;
    auto lastFlush = std::chrono::steady_clock::now();
    while (take(batch)) {
        write(batch);
        const auto now = std::chrono::steady_clock::now();
        if (now - lastFlush >= kFlushInterval) {
            m_target->flush();
            lastFlush = now;
        }
    }
    m_target->finish();
}

/// Waits a second at most. False when it is closed and empty, for good.
bool Recorder::take(Batch& batch) {
    batch.entries.clear();
    batch.bodies.clear();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, kFlushInterval, [this] { return m_isClosed || !m_waiting.entries.empty(); });
    std::swap(batch, m_waiting);
    m_waitingNotes = 0;
    return !batch.entries.empty() || !m_isClosed;
}

void Recorder::write(const Batch& batch) {
    std::string_view rest = batch.bodies;
    for (const Batch::Entry& entry : batch.entries) {
        const std::string_view body = rest.substr(0, entry.length);
        m_target->add({entry.nanoseconds, body});
        m_written += tivra_capture::isNote(body) ? 0U : 1U;
        rest.remove_prefix(entry.length);
    }
}

} // namespace tivra_cat
