#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <tp/Clock.h>

/// Lets the library's clock run about fifty times as fast, so that its ticks of a second come at once.
class FastTime {
public:
    FastTime() : m_thread([this] { run(); }) {}
    ~FastTime() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_mustEnd = true;
        }
        m_changed.notify_all();
        m_thread.join();
        tp::Clock::setReal();
    }
    FastTime(const FastTime&) = delete;
    FastTime& operator=(const FastTime&) = delete;

private:
    void run() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_changed.wait_for(lock, std::chrono::milliseconds(2), [this] { return m_mustEnd; }))
            tp::Clock::advance(0.1);
    }

    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_mustEnd = false;
    std::thread m_thread;
};
