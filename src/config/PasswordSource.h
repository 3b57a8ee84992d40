#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <feed/Password.h>
#include <tp/Mutex.h>
#include <tp/Thread.h>

namespace tivra {
class PasswordHandler;
} // namespace tivra

namespace tivra_internal {

class PasswordQuestion;

/// Where a user's password comes from: it is kept here, or the application is asked for it at each login, on
/// a thread that begins with the first question. @thread any
class PasswordSource {
public:
    explicit PasswordSource(tivra::Password kept);
    /// @param handler  borrowed
    explicit PasswordSource(tivra::PasswordHandler& handler);
    /// Waits for the application's answer, if it is being asked.
    ~PasswordSource();
    PasswordSource(const PasswordSource&) = delete;
    PasswordSource& operator=(const PasswordSource&) = delete;

    /// Null when the application is asked.
    [[nodiscard]] const tivra::Password* kept() const noexcept { return m_kept ? &*m_kept : nullptr; }
    /// Has the application asked, after those who came before. See PasswordQuestion for the arguments.
    [[nodiscard]] std::shared_ptr<PasswordQuestion> ask(std::string hub, std::function<void()> wake)
        TP_EXCLUDES(m_mutex);

private:
    void enter(const std::shared_ptr<PasswordQuestion>& question) TP_EXCLUDES(m_mutex);
    void answerAll() TP_EXCLUDES(m_mutex);
    void answer(PasswordQuestion& question);

    const std::optional<tivra::Password> m_kept;
    tivra::PasswordHandler* const m_handler = nullptr;

    tp::Mutex m_mutex; ///< guards what follows
    tp::ConditionVariable m_changed;
    std::deque<std::shared_ptr<PasswordQuestion>> m_questions TP_GUARDED_BY(m_mutex);
    bool m_isEnding TP_GUARDED_BY(m_mutex) = false;
    bool m_isStarted TP_GUARDED_BY(m_mutex) = false;
    tp::Thread m_thread; ///< made under the mutex; the last member: it uses the others
};

} // namespace tivra_internal
