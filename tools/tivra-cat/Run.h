#pragma once

#include "Console.h"
#include "Counters.h"
#include "ExitCode.h"
#include "FieldCatalog.h"
#include "FieldSelection.h"
#include "Incidents.h"
#include "Options.h"
#include "Receiver.h"
#include "RecordQueue.h"
#include "Recordings.h"
#include "RequestBook.h"
#include "SequenceCheck.h"
#include "SessionWatch.h"
#include "SignalWatch.h"
#include "StatisticsFile.h"
#include "StatisticsServer.h"
#include "Wakeup.h"

#include <chrono>
#include <memory>
#include <string>

namespace tivra_cat {

class Subscriber;
class Writer;

/// One run from the start of the session to the summary, on the main thread.
class Run {
public:
    Run(const Options& options, std::string logFile);
    ~Run();

    /// Throws Failure when the session cannot be started.
    [[nodiscard]] ExitCode execute(const std::string& password);

private:
    enum class End { AllAnswered, AllRefused, Count, Duration, Signal, Timeout, Output, Strict };
    using Clock = std::chrono::steady_clock;

    void start(Subscriber& subscriber);
    [[nodiscard]] End follow(const Writer& writer);
    [[nodiscard]] bool isOver(const Writer& writer, End& end);
    [[nodiscard]] bool isIncomplete() const;
    void waitForStatistics();
    void waitForOutput(const Writer& writer);
    void report();
    void reportSummary();
    void reportRefusals();
    void showProgress();
    void showStatistics();
    void writeStatistics(const std::string& text);
    [[nodiscard]] ExitCode conclude(End end, const Writer& writer);
    [[nodiscard]] double secondsSince(Clock::time_point then) const;

    const Options& m_options;
    const std::string m_logFile;
    const bool m_isStream;
    Wakeup m_wakeup;
    SignalWatch m_signals;
    Console m_console;
    FieldSelection m_selection;
    SequenceCheck m_sequence;
    FieldCatalog m_catalog;
    RecordQueue m_queue;
    RequestBook m_book;
    Counters m_counters;
    Recordings m_recordings;
    Incidents m_incidents;
    SessionWatch m_watch;
    StatisticsFile m_statisticsFile;
    const std::unique_ptr<StatisticsServer> m_statisticsServer; ///< null when nobody is served
    Receiver m_receiver;
    Clock::time_point m_begin; ///< of the phase that progress and limits count from
    Clock::time_point m_lastProgress{};
    Clock::time_point m_lastStatistics{};
    std::size_t m_refusalsShown = 0;
    bool m_saidTimeout = false;
    bool m_saidFileError = false;
};

} // namespace tivra_cat
