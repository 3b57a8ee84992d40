// What an application waits for on an idle session over loopback, and what that session costs meanwhile.
// usage: tivra_wait_bench [ROUNDS] [--quick] [--json FILE]; ROUNDS is for the starts, losses and refusals
#include "Wait.h"

#include "Clock.h"
#include "Report.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

namespace tivra_bench {

void pauseOutOfStep(int round, int leastMilliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(leastMilliseconds) +
                                std::chrono::microseconds(round * 377'111 % 1'000'000) * leastMilliseconds /
                                    1000);
}

namespace {

constexpr int kLeastRounds = 3;

double now() {
    return static_cast<double>(nowNanoseconds()) * 1e-9;
}

} // namespace

Rounds::Rounds(int most, double seconds) : m_most(most), m_end(now() + seconds) {}

bool Rounds::next() {
    ++m_index;
    return m_index < m_most && (m_index < kLeastRounds || now() < m_end);
}

} // namespace tivra_bench

int main(int argc, char** argv) {
    using namespace tivra_bench;
    try {
        const Options options(argc, argv, 30);
        measureAnswers(options);
        measureLife(options);
        measureIdle(options);
        Report::get().finish();
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "wait: %s\n", error.what());
        return 1;
    }
}
