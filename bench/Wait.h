#pragma once

namespace tivra_bench {

struct Options;

/// What an idle session takes to answer, one question at a time and many at once.
void measureAnswers(const Options& options);
/// What an application waits for in the life of a session: start, stop, a loss, a refusal.
void measureLife(const Options& options);
/// What a session costs in which nothing happens but heartbeats.
void measureIdle(const Options& options);

/// Sleeps for a time that is another one in each round, so that no round falls in step with a tick.
void pauseOutOfStep(int round, int leastMilliseconds);

/// Rounds until enough are done, or enough time is gone and a few are.
class Rounds {
public:
    Rounds(int most, double seconds);
    [[nodiscard]] bool next();
    [[nodiscard]] int index() const { return m_index; }

private:
    const int m_most;
    const double m_end;
    int m_index = -1;
};

} // namespace tivra_bench
