#pragma once

#include <atomic>
#include <chrono>
#include <thread>

#include <tivra_sim/Hub.h>
#include <tivra_sim/Tokens.h>

namespace tivra_testkit {

/// Keeps numbered data of one symbol flowing to its subscribers, several thousand records a second, until it
/// is destroyed.
class Pump {
public:
    explicit Pump(tivra_sim::Hub& hub)
        : m_thread([this, &hub] {
            for (int sequence = 0; !m_mustStop; ++sequence) {
                hub.pushRecord(tivra_sim::Record(100, "IBM").add(tivra_sim::token::SEQUENCE, sequence));
                std::this_thread::sleep_for(std::chrono::microseconds(100)); // the pace of the data
            }
        }) {}
    ~Pump() {
        m_mustStop = true;
        m_thread.join();
    }
    Pump(const Pump&) = delete;
    Pump& operator=(const Pump&) = delete;

private:
    std::atomic<bool> m_mustStop{false};
    std::thread m_thread;
};

} // namespace tivra_testkit
