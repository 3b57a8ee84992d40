#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <feed/Answer.h>
#include <feed/Record.h>
#include <feed/Result.h>
#include <tp/Mutex.h>

#include "feed/LaterThread.h"

namespace tivra_internal {

class FeedRegistry;

/// A request of the application and the answer to it: what has come so far, and who is told of its end.
class AnswerState : public std::enable_shared_from_this<AnswerState> {
public:
    using Result = tivra::Result<tivra::Snapshot>;

    /// A hub may answer without end: what it has sent by then is given up.
    static constexpr std::size_t kMaxBytes = std::size_t{4} << 30;

    /// @param what  the request for error texts, `query of IBM at source 100` for example
    AnswerState(std::shared_ptr<FeedRegistry> registry, int64_t tag, std::string what,
                std::size_t maxBytes = kMaxBytes);
    AnswerState(const AnswerState&) = delete;
    AnswerState& operator=(const AnswerState&) = delete;

    [[nodiscard]] int64_t tag() const noexcept { return m_tag; }
    [[nodiscard]] const std::string& what() const noexcept { return m_what; }
    [[nodiscard]] tivra::Answer handle() { return tivra::Answer(shared_from_this()); }

    /// What ends it in time. Before it is sent.
    void setTimeOut(const LaterThread::Ticket& timeOut) TP_EXCLUDES(m_mutex);

    // --- what the library brings; @thread any ---
    void addRecord(tivra::Record record) TP_EXCLUDES(m_mutex);
    /// One of the hubs that were asked gives nothing.
    void addFailure(tivra::Error failure) TP_EXCLUDES(m_mutex);
    /// The end: with what has come, or with an error. Nothing when it has ended before.
    void complete() TP_EXCLUDES(m_mutex);
    /// The end, with a refusal: that of all hubs, or of some while others have given records.
    void refuse(const tivra::Error& error) TP_EXCLUDES(m_mutex);
    void fail(const tivra::Error& error) TP_EXCLUDES(m_mutex);

    // --- what the application does; see Answer ---
    [[nodiscard]] Result wait(const std::chrono::steady_clock::time_point* deadline) TP_EXCLUDES(m_mutex);
    [[nodiscard]] bool isReady() TP_EXCLUDES(m_mutex);
    void then(tivra::Answer::Callback callback) TP_EXCLUDES(m_mutex);
    void cancel() TP_EXCLUDES(m_mutex);
    /// The Answer goes.
    void abandon() TP_EXCLUDES(m_mutex);

private:
    void forget() TP_EXCLUDES(m_mutex);
    /// The hub has said the last of it.
    void measure() TP_EXCLUDES(m_mutex);
    /// In a child of the process that has asked, where a thread that isn't there may hold the mutex.
    [[nodiscard]] bool isForeign() const noexcept;
    [[nodiscard]] static tivra::Error foreignError();
    void end(Result result) TP_EXCLUDES(m_mutex);
    void runCallback(tivra::Answer::Callback callback, Result result) TP_EXCLUDES(m_mutex);

    const std::shared_ptr<FeedRegistry> m_registry;
    const int64_t m_tag;
    const std::string m_what;
    const std::size_t m_maxBytes; ///< of the records
    const double m_askedAt;       ///< by the monotonic clock

    tp::Mutex m_mutex; ///< guards what follows
    tp::ConditionVariable m_changed;
    LaterThread::Ticket m_timeOut TP_GUARDED_BY(m_mutex);
    std::vector<tivra::Record> m_records TP_GUARDED_BY(m_mutex);
    std::size_t m_bytes TP_GUARDED_BY(m_mutex) = 0;
    std::vector<tivra::Error> m_failures TP_GUARDED_BY(m_mutex);
    bool m_hasEnded TP_GUARDED_BY(m_mutex) = false;
    bool m_isTaken TP_GUARDED_BY(m_mutex) =
        false; ///< somebody has got the result, or has asked for it to be handed over
    std::optional<Result> m_result TP_GUARDED_BY(m_mutex);
    tivra::Answer::Callback m_callback TP_GUARDED_BY(m_mutex);
    std::thread::id m_caller TP_GUARDED_BY(m_mutex); ///< the thread that runs the callback
};

} // namespace tivra_internal
