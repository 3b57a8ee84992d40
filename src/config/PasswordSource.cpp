#include "config/PasswordSource.h"

#include <system_error>
#include <utility>

#include <tp/callOut.h>
#include <user/PasswordHandler.h>

#include "config/PasswordQuestion.h"
#include "config/ValueFault.h"

namespace tivra_internal {

PasswordSource::PasswordSource(tivra::Password kept) : m_kept(std::move(kept)) {}

PasswordSource::PasswordSource(tivra::PasswordHandler& handler) : m_handler(&handler) {}

PasswordSource::~PasswordSource() {
    const tp::MutexLock lock(m_mutex);
    m_isEnding = true;
    m_changed.notifyAll();
}

std::shared_ptr<PasswordQuestion> PasswordSource::ask(std::string hub, std::function<void()> wake) {
    auto question = std::make_shared<PasswordQuestion>(std::move(hub), std::move(wake));
    try {
        enter(question);
    } catch (const std::system_error& error) {
        question->answer({}, std::string("a thread to ask for the password on couldn't be made: ") +
                                 error.what());
    }
    return question;
}

void PasswordSource::enter(const std::shared_ptr<PasswordQuestion>& question) {
    const tp::MutexLock lock(m_mutex);
    if (!m_isStarted)
        m_thread = tp::Thread("tivra-login", [this] { answerAll(); });
    m_isStarted = true;
    // While a call takes for ever, connections come and go.
    std::erase_if(m_questions, [](const auto& earlier) { return earlier->isDropped(); });
    m_questions.push_back(question);
    m_changed.notifyAll();
}

void PasswordSource::answerAll() {
    tp::MutexLock lock(m_mutex);
    while (!m_isEnding) {
        if (m_questions.empty()) {
            m_changed.wait(m_mutex);
            continue;
        }
        const std::shared_ptr<PasswordQuestion> question = std::move(m_questions.front());
        m_questions.pop_front();
        lock.unlock();
        if (!question->isDropped())
            answer(*question);
        lock.lock();
    }
}

void PasswordSource::answer(PasswordQuestion& question) {
    tivra::Password password;
    std::string fault = "the callback for the password has thrown an exception";
    tp::callOut("onPassword", [&] {
        password = m_handler->onPassword(question.hub());
        fault.clear();
    });
    if (fault.empty() && password.isEmpty())
        fault = "the callback for the password has returned none";
    if (const char* const why = valueFault(password.text()); fault.empty() && why != nullptr)
        fault = std::string("the password that the callback has returned can't be sent: ") + why;
    if (!fault.empty())
        password = tivra::Password();
    question.answer(std::move(password), std::move(fault));
}

} // namespace tivra_internal
