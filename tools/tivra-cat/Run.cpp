#include "Run.h"

#include "CommandTable.h"
#include "ErrorText.h"
#include "Formats.h"
#include "Subscriber.h"
#include "Summary.h"
#include "Writer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace tivra_cat {

namespace {

constexpr std::chrono::milliseconds kLook{100};
constexpr std::chrono::milliseconds kProgressInterval{500};
/// A little longer than from one statistics event to the next.
constexpr std::chrono::milliseconds kStatisticsPatience{1300};
/// Further refusals are only counted.
constexpr std::size_t kMaxRefusalsShown = 20;
constexpr std::size_t kMaxOpenNamed = 5;

SessionWatch::Settings watchSettings(const Options& options) {
    SessionWatch::Settings settings;
    settings.forMachines = options.statsForm != StatisticsForm::Text || !options.statsListen.empty();
    settings.labels = options.statsLabels;
    settings.losesHubsWhenFull = options.compression.value_or(true) && !options.holdReads.value_or(false);
    return settings;
}

} // namespace

Run::Run(const Options& options, std::string logFile)
    : m_options(options)
    , m_logFile(std::move(logFile))
    , m_isStream(traitsOf(options.command).isStream)
    , m_signals(m_wakeup)
    , m_console(wantsProgress(options))
    , m_selection(options.fields)
    , m_sequence(options.sequenceField)
    , m_catalog(m_selection, m_sequence)
    , m_queue(options.bufferSize)
    , m_recordings(options.recordFile, options.recordWireFile, options.bufferSize, m_wakeup)
    , m_incidents(m_wakeup, m_recordings)
    , m_watch(m_wakeup, m_incidents, watchSettings(options))
    , m_statisticsFile(options.statsFile)
    , m_statisticsServer(
          options.statsListen.empty()
              ? nullptr
              : std::make_unique<StatisticsServer>(options.statsListen, options.statsProtection, m_watch))
    , m_receiver({!options.isQuiet, traitsOf(options.command).carriesSymbol, options.count}, m_catalog,
                 m_sequence, m_queue, m_book, m_counters, m_incidents, m_wakeup, m_recordings)
    , m_begin(Clock::now()) {}

Run::~Run() = default;

ExitCode Run::execute(const std::string& password) {
    if (m_statisticsServer != nullptr)
        m_console.line(fmt::format("statistics on {}://{}/metrics", m_options.statsProtection.scheme(),
                                   m_statisticsServer->address()));
    Writer writer(m_queue, makeFormat(m_options, m_selection), STDOUT_FILENO, m_wakeup);
    Subscriber subscriber(m_options, password, m_logFile, m_watch, m_receiver);
    start(subscriber);
    m_begin = Clock::now();
    m_lastStatistics = m_begin;
    subscriber.send(m_book);
    const End end = follow(writer);
    waitForStatistics();
    m_incidents.endCounting();
    subscriber.stop();
    waitForOutput(writer);
    return conclude(end, writer);
}

void Run::start(Subscriber& subscriber) {
    std::string reason;
    bool isStarted = false;
    std::atomic<bool> isDone{false};
    std::thread starter([&] {
        isStarted = subscriber.start(reason);
        isDone = true;
        m_wakeup.notify();
    });
    while (!isDone) {
        m_signals.wait(kLook);
        // Once more at each look: a stop that comes before the start has begun finds nothing to end.
        if (m_signals.count() > 0 && !isDone)
            subscriber.stop();
        if (m_signals.count() > 1)
            std::_Exit(static_cast<int>(ExitCode::Interrupted));
        if (m_console.showsProgress() && Clock::now() - m_lastProgress >= kProgressInterval) {
            m_lastProgress = Clock::now();
            m_console.progress(
                fmt::format("connecting to {}, {:.0f} s", join(m_options.hosts), secondsSince(m_begin)));
        }
    }
    starter.join();
    if (m_signals.count() > 0)
        throw Failure(
            ExitCode::Interrupted,
            fmt::format("interrupted after {:.1f} s, before the session stood", secondsSince(m_begin)));
    if (!isStarted)
        throw startFailure(m_options, reason, m_watch.loginRefusal(), secondsSince(m_begin), m_logFile);
}

Run::End Run::follow(const Writer& writer) {
    End end = End::Signal;
    while (!isOver(writer, end)) {
        report();
        showProgress();
        showStatistics();
        m_signals.wait(kLook);
    }
    report();
    return end;
}

bool Run::isOver(const Writer& writer, End& end) {
    const RequestBook::Totals requests = m_book.totals();
    const double seconds = secondsSince(m_begin);
    const bool isLate = m_options.timeoutSeconds > 0.0 && seconds >= m_options.timeoutSeconds;
    if (m_signals.count() > 0)
        end = End::Signal;
    else if (writer.error() != 0 || m_recordings.hasFailed())
        end = End::Output;
    else if (m_options.isStrict && isIncomplete())
        end = End::Strict;
    else if (m_receiver.isLimitReached())
        end = End::Count;
    else if (requests.refused == requests.sent)
        end = End::AllRefused;
    else if (!m_isStream && requests.open() == 0)
        end = End::AllAnswered;
    else if (m_options.durationSeconds > 0.0 && seconds >= m_options.durationSeconds)
        end = End::Duration;
    else if (isLate && requests.open() > 0 && (!m_isStream || requests.answered == 0))
        end = End::Timeout;
    else
        return false;
    return true;
}

bool Run::isIncomplete() const {
    return m_counters.outputDropped > 0 || m_recordings.hasDropped() || m_incidents.totals().isIncomplete();
}

/// The library counts once a second: what was dropped after that belongs into the summary too.
void Run::waitForStatistics() {
    const auto deadline = Clock::now() + kStatisticsPatience;
    const int before = m_signals.count();
    while (m_isStream && m_watch.mayLackDrops() && Clock::now() < deadline && m_signals.count() == before)
        m_signals.wait(kLook);
}

void Run::waitForOutput(const Writer& writer) {
    m_queue.close();
    m_recordings.close();
    const int before = m_signals.count();
    while (!writer.isFinished() || !m_recordings.isFinished()) {
        m_signals.wait(kLook);
        // The writer may hang in a write that nobody reads, so there is nothing to wait for in order.
        if (m_signals.count() > before)
            std::_Exit(static_cast<int>(ExitCode::Interrupted));
    }
}

void Run::report() {
    for (const std::string& notice : m_watch.takeNotices())
        m_console.line(notice);
    reportRefusals();
    const bool isLate = m_options.timeoutSeconds > 0.0 && secondsSince(m_begin) >= m_options.timeoutSeconds;
    if (isLate && !m_saidTimeout && m_book.totals().open() > 0) {
        m_saidTimeout = true;
        m_console.line(
            fmt::format("no answer within {} s from {} to {} requests: {}. --timeout gives them longer",
                        m_options.timeoutSeconds, join(m_options.hosts), m_book.totals().open(),
                        join(m_book.openTargets(kMaxOpenNamed))));
    }
}

void Run::reportRefusals() {
    for (const Refusal& refusal : m_book.takeRefusals()) {
        if (m_refusalsShown < kMaxRefusalsShown)
            m_console.line(describe(refusal));
        else if (m_refusalsShown == kMaxRefusalsShown)
            m_console.line("further refusals are only counted");
        ++m_refusalsShown;
    }
}

void Run::showProgress() {
    if (!m_console.showsProgress() || Clock::now() - m_lastProgress < kProgressInterval)
        return;
    m_lastProgress = Clock::now();
    m_console.progress(fmt::format("{} messages, {:.0f}/s, {} dropped, {:.0f} s", m_counters.received.load(),
                                   ratePerSecond(m_counters), m_counters.outputDropped.load(),
                                   secondsSince(m_begin)));
}

void Run::showStatistics() {
    if (m_options.statsSeconds <= 0.0 || secondsSince(m_lastStatistics) < m_options.statsSeconds)
        return;
    const bool isText = m_options.statsForm == StatisticsForm::Text;
    const std::string text =
        isText ? statisticsText(m_watch.statistics()) : m_watch.machineStatistics(m_options.statsForm);
    if (text.empty()) // the library has given none yet
        return;
    m_lastStatistics = Clock::now();
    if (m_statisticsFile.isWanted())
        writeStatistics(isText ? text + "\n" : text);
    else if (isText)
        m_console.line(text);
    else
        m_console.block(text);
}

/// A failure is told once, and again only after it has gone well in between.
void Run::writeStatistics(const std::string& text) {
    const bool isWritten = m_statisticsFile.replace(text);
    if (!isWritten && !m_saidFileError)
        m_console.line(m_statisticsFile.error());
    m_saidFileError = !isWritten;
}

ExitCode Run::conclude(End end, const Writer& writer) {
    const RequestBook::Totals requests = m_book.totals();
    reportSummary();
    if (writer.error() != 0) {
        if (writer.error() != EPIPE) // a reader that has seen enough is no news
            m_console.line(fmt::format("cannot write the output: {}", std::strerror(writer.error())));
        return ExitCode::OutputFailed;
    }
    if (m_saidFileError || m_recordings.hasFailed())
        return ExitCode::OutputFailed;
    if (end == End::Strict) {
        const std::string first = m_incidents.first();
        m_console.line(fmt::format("ended by --strict: {}",
                                   first.empty() ? "the output, or the disk, was too slow" : first));
        return ExitCode::Lost;
    }
    if (end == End::Signal && !m_isStream)
        return ExitCode::Interrupted;
    if (end == End::Timeout || m_saidTimeout)
        return ExitCode::NoAnswer;
    if (requests.refused > 0)
        return ExitCode::RequestRefused;
    return isIncomplete() ? ExitCode::Lost : ExitCode::Ended;
}

void Run::reportSummary() {
    const std::vector<std::string> unseen = m_catalog.unseen();
    if (!unseen.empty() && !m_options.isQuiet && m_counters.received > 0)
        m_console.line(fmt::format("no message had the field {}", join(unseen)));
    if (m_options.showsSummary) {
        const Incidents::Totals incidents = m_incidents.totals();
        m_console.line(receivedText(m_counters));
        m_console.line(outcomeText(m_counters, m_book.totals(), incidents));
        m_console.line(incidentsText(incidents));
    }
    for (const std::string& line : m_recordings.report(m_options.showsSummary))
        m_console.line(line);
}

double Run::secondsSince(Clock::time_point then) const {
    return std::chrono::duration<double>(Clock::now() - then).count();
}

} // namespace tivra_cat
