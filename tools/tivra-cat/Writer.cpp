#include "Writer.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <vector>

namespace tivra_cat {

namespace {

constexpr std::size_t kFlushSize = 65536;
constexpr std::chrono::milliseconds kTick{100};

} // namespace

Writer::Writer(RecordQueue& queue, std::unique_ptr<OutputFormat> format, int fd, const Wakeup& wakeup)
    : m_queue(queue), m_format(std::move(format)), m_fd(fd), m_wakeup(wakeup), m_thread([this] { run(); }) {
    pthread_setname_np(m_thread.native_handle(), "cat-writer");
}

Writer::~Writer() {
    m_queue.close();
    m_thread.join();
}

void Writer::run() {
    std::vector<Record> records;
    std::string text;
    while (m_error == 0 && m_queue.take(records, std::chrono::steady_clock::now() + kTick)) {
        for (const Record& record : records) {
            m_format->add(record, text);
            if (text.size() >= kFlushSize)
                flush(text);
        }
        m_format->tick(std::chrono::steady_clock::now(), text);
        flush(text);
    }
    m_format->finish(text);
    flush(text);
    m_queue.close();
    m_isFinished = true;
    m_wakeup.notify();
}

void Writer::flush(std::string& text) {
    std::size_t written = 0;
    while (m_error == 0 && written < text.size()) {
        const ssize_t result = write(m_fd, text.data() + written, text.size() - written);
        if (result >= 0) {
            written += static_cast<std::size_t>(result);
        } else if (errno != EINTR) {
            m_error = errno;
            m_wakeup.notify();
        }
    }
    text.clear();
}

} // namespace tivra_cat
