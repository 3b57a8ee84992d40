#include "BusRun.h"

#include "BusReceiver.h"
#include "CommandTable.h"
#include "Console.h"
#include "ErrorText.h"
#include "Formats.h"
#include "SignalWatch.h"
#include "Summary.h"
#include "Writer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace tivra_cat {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLook{100};
constexpr std::chrono::milliseconds kProgressInterval{500};
constexpr std::size_t kMaxOpenNamed = 5;

/// Options that mean something at a hub alone.
void checkOptions(const Options& options) {
    const auto refuse = [](bool isGiven, const char* what) {
        if (isGiven)
            throw Failure(ExitCode::Usage, fmt::format("{} doesn't go with --from", what));
    };
    const CommandTraits& traits = traitsOf(options.command);
    const bool isKnown = options.command == tivra::QUERYSNAP || options.command == tivra::SUBSCRIBE ||
                         options.command == tivra::QUERYSNAPANDSUBSCRIBE;
    refuse(!isKnown, traits.name);
    refuse(!options.hosts.empty() || !options.backups.empty(), "a hub");
    refuse(options.output == OutputKind::RawPairs, "--output raw");
    refuse(!options.recordFile.empty() || !options.recordWireFile.empty(), "recording");
    refuse(options.statsSeconds > 0.0 || !options.statsListen.empty(), "a statistics option");
    refuse(!options.sequenceField.empty(), "--sequence-field");
    refuse(!options.tls.serverName.empty() || !options.tls.pin.empty(), "--tls-name or --tls-pin");
    for (const Target& target : options.targets)
        if (target.source < 1 || target.symbol.empty() || target.kind != tivra::SYMBOL_TICKER)
            throw Failure(ExitCode::Usage,
                          fmt::format("{}: from the bus, SYMBOL with --source or SOURCE:SYMBOL is wanted",
                                      target.name()));
}

tivra::BusOptions busOptions(const Options& options, BusReceiver& receiver) {
    tivra::BusOptions bus;
    bus.url = options.from;
    bus.name = "tivra-cat";
    bus.credentialsFile = options.credentialsFile;
    bus.caFile = options.tls.caFile;
    bus.certificateFile = options.tls.certificate;
    bus.keyFile = options.tls.key.empty() && !options.tls.certificate.empty() ? options.tls.certificate
                                                                              : options.tls.key;
    bus.onState = [&receiver](const tivra::FeedStateChange& change) { receiver.onState(change); };
    bus.onProblem = [&receiver](const tivra::BusProblem& problem) { receiver.onProblem(problem); };
    return bus;
}

std::vector<tivra::Instrument> instrumentsOf(const Options& options) {
    std::set<tivra::Instrument> instruments;
    for (const Target& target : options.targets)
        instruments.emplace(target.source, target.symbol);
    return {instruments.begin(), instruments.end()};
}

/// One run, on the main thread.
class BusRun {
public:
    explicit BusRun(const Options& options)
        : m_options(options)
        , m_isStream(traitsOf(options.command).isStream)
        , m_instruments(instrumentsOf(options))
        , m_signals(m_wakeup)
        , m_console(wantsProgress(options))
        , m_selection(options.fields)
        , m_queue(options.bufferSize)
        , m_receiver({!options.isQuiet, options.command != tivra::SUBSCRIBE, m_isStream, options.count},
                     m_selection, m_queue, m_counters, m_wakeup) {}

    [[nodiscard]] ExitCode execute() {
        Writer writer(m_queue, makeFormat(m_options, m_selection), STDOUT_FILENO, m_wakeup);
        tivra::BusReader reader = open();
        m_begin = Clock::now();
        tivra::BusSubscription subscription = reader.subscribe(m_instruments, m_receiver.handlers());
        const End end = follow(writer);
        m_reader = reader.statistics();
        m_subscription = subscription.statistics();
        subscription.close();
        reader.close();
        finishOutput(writer);
        return conclude(end, writer);
    }

private:
    enum class End { Answered, Count, Duration, Signal, Timeout, Output, Strict };

    [[nodiscard]] tivra::BusReader open() {
        try {
            return tivra::BusReader::open(busOptions(m_options, m_receiver));
        } catch (const tivra::Error& error) {
            const bool isUsage = error.code() == tivra::Error::Code::InvalidOption;
            throw Failure(isUsage ? ExitCode::Usage : ExitCode::Unreachable,
                          fmt::format("--from {}: {}", m_options.from, error.what()));
        }
    }

    [[nodiscard]] double seconds() const {
        return std::chrono::duration<double>(Clock::now() - m_begin).count();
    }
    [[nodiscard]] std::size_t openRequests() const { return m_instruments.size() - m_receiver.answered(); }
    [[nodiscard]] bool isIncomplete() const {
        return m_counters.outputDropped > 0 || !m_receiver.firstIncident().empty();
    }

    [[nodiscard]] End follow(const Writer& writer) {
        End end = End::Signal;
        while (!isOver(writer, end)) {
            report();
            m_signals.wait(kLook);
        }
        report();
        return end;
    }

    [[nodiscard]] bool isOver(const Writer& writer, End& end) {
        const bool isLate = m_options.timeoutSeconds > 0.0 && seconds() >= m_options.timeoutSeconds;
        const std::size_t open = openRequests();
        if (m_signals.count() > 0)
            end = End::Signal;
        else if (writer.error() != 0)
            end = End::Output;
        else if (m_options.isStrict && isIncomplete())
            end = End::Strict;
        else if (m_receiver.isLimitReached())
            end = End::Count;
        else if (!m_isStream && open == 0)
            end = End::Answered;
        else if (m_options.durationSeconds > 0.0 && seconds() >= m_options.durationSeconds)
            end = End::Duration;
        else if (isLate && open > 0 && (!m_isStream || open == m_instruments.size()))
            end = End::Timeout;
        else
            return false;
        return true;
    }

    void report() {
        for (const std::string& notice : m_receiver.takeNotices())
            m_console.line(notice);
        const bool isLate = m_options.timeoutSeconds > 0.0 && seconds() >= m_options.timeoutSeconds;
        if (isLate && !m_saidTimeout && openRequests() > 0) {
            m_saidTimeout = true;
            m_console.line(
                fmt::format("no last values within {} s of {} symbols: {}. See that a bridge publishes them",
                            m_options.timeoutSeconds, openRequests(),
                            join(m_receiver.open(m_instruments, kMaxOpenNamed))));
        }
        if (!m_console.showsProgress() || Clock::now() - m_lastProgress < kProgressInterval)
            return;
        m_lastProgress = Clock::now();
        m_console.progress(fmt::format("{} messages, {:.0f}/s, {} dropped, {:.0f} s",
                                       m_counters.received.load(), ratePerSecond(m_counters),
                                       m_counters.outputDropped.load(), seconds()));
    }

    void finishOutput(const Writer& writer) {
        m_queue.close();
        const int before = m_signals.count();
        while (!writer.isFinished()) {
            m_signals.wait(kLook);
            // The writer may hang in a write that nobody reads, so there is nothing to wait for in order.
            if (m_signals.count() > before)
                std::_Exit(static_cast<int>(ExitCode::Interrupted));
        }
    }

    [[nodiscard]] ExitCode conclude(End end, const Writer& writer) {
        summarise();
        if (writer.error() != 0) {
            if (writer.error() != EPIPE) // a reader that has seen enough is no news
                m_console.line(fmt::format("cannot write the output: {}", std::strerror(writer.error())));
            return ExitCode::OutputFailed;
        }
        if (end == End::Strict) {
            const std::string first = m_receiver.firstIncident();
            m_console.line(
                fmt::format("ended by --strict: {}", first.empty() ? "the output was too slow" : first));
            return ExitCode::Lost;
        }
        if (end == End::Signal && !m_isStream)
            return ExitCode::Interrupted;
        if (end == End::Timeout || m_saidTimeout)
            return ExitCode::NoAnswer;
        return isIncomplete() ? ExitCode::Lost : ExitCode::Ended;
    }

    void summarise() {
        const std::vector<std::string> unseen = m_receiver.unseen();
        if (!unseen.empty() && !m_options.isQuiet && m_counters.received > 0)
            m_console.line(fmt::format("no message had the field {}", join(unseen)));
        if (!m_options.showsSummary)
            return;
        m_console.line(receivedText(m_counters));
        m_console.line(fmt::format("{} symbols: {} answered, {} open; lost {} (output {}, gaps {})",
                                   m_instruments.size(), m_receiver.answered(), openRequests(),
                                   m_counters.outputDropped + m_subscription.missing,
                                   m_counters.outputDropped.load(), m_subscription.missing));
        m_console.line(fmt::format("{} gaps, {} problems; {} partitions, {} batches, {} doubled",
                                   m_subscription.gaps, m_reader.problems, m_reader.partitions,
                                   m_reader.batches, m_reader.duplicates));
    }

    const Options& m_options;
    const bool m_isStream;
    const std::vector<tivra::Instrument> m_instruments;
    Wakeup m_wakeup;
    SignalWatch m_signals;
    Console m_console;
    FieldSelection m_selection;
    RecordQueue m_queue;
    Counters m_counters;
    BusReceiver m_receiver;
    Clock::time_point m_begin{Clock::now()};
    Clock::time_point m_lastProgress{};
    tivra::BusStatistics m_reader;
    tivra::BusSubscriptionStatistics m_subscription;
    bool m_saidTimeout = false;
};

} // namespace

ExitCode runFromBus(const Options& options) {
    checkOptions(options);
    return BusRun(options).execute();
}

} // namespace tivra_cat
