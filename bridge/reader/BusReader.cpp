#include "reader/BusReader.h"

#include "bus/BusError.h"
#include "bus/startThread.h"
#include "reader/ReaderThread.h"
#include "reader/SourceOpener.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace tivra {

namespace {

using tivra_bus::ReaderThread;

constexpr std::size_t kLongestSymbol = 32;
constexpr std::chrono::hours kLongestLookBack{1};

Error errorOf(Error::Code code, Error::Phase phase, const std::string& cause, const char* advice = "") {
    Error::Details details;
    details.code = code;
    details.phase = phase;
    details.cause = cause;
    details.advice = advice;
    return Error(details);
}

void check(const Instrument& instrument) {
    const std::string& symbol = instrument.symbol;
    const bool isBad = std::any_of(symbol.begin(), symbol.end(), [](char c) {
        return c == '|' || c == '=' || static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    });
    if (instrument.source < 1 || symbol.empty() || symbol.size() > kLongestSymbol || isBad)
        throw errorOf(Error::Code::InvalidArgument, Error::Phase::Request,
                      fmt::format("source {} and a symbol of {} characters can't be subscribed",
                                  instrument.source, symbol.size()),
                      "a source is 1 or more, a symbol has 1 to 32 characters without \"|\" and \"=\"");
}

void checkLookBack(const BusOptions& options) {
    if (options.lookBack < std::chrono::milliseconds::zero() || options.lookBack > kLongestLookBack)
        throw errorOf(Error::Code::InvalidOption, Error::Phase::Options,
                      fmt::format("lookBack can't be {} ms", options.lookBack.count()),
                      "it is 0 to 3600000 ms, and more than the bridges' --last-every");
}

/// Runs it on a thread of its own and waits for that. What starts threads without blocking signals on them,
/// as client libraries of engines do, passes on the mask of that one, while the caller's signals still come.
template<class Work>
void runWithSignalsBlocked(const Work& work) {
    std::exception_ptr failure;
    std::thread thread = tivra_bus::startThread("tivra-bus-open", [&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    thread.join();
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace

BusReader::BusReader(std::shared_ptr<ReaderThread> thread) noexcept : m_thread(std::move(thread)) {}

BusReader BusReader::open(BusOptions options, std::unique_ptr<tivra_bus::BusSource> source) {
    checkLookBack(options);
    try {
        auto thread = std::make_shared<ReaderThread>(std::move(options), std::move(source));
        thread->begin();
        return BusReader(std::move(thread));
    } catch (const tivra_bus::BusError& error) {
        throw errorOf(Error::Code::OpenFailed, Error::Phase::Connect, error.what());
    }
}

BusReader BusReader::open(BusOptions options) {
    checkLookBack(options);
    tivra_bus::SourceOpener opener;
    try {
        opener = tivra_bus::openerOf(options);
    } catch (const tivra_bus::BusError& error) {
        throw errorOf(Error::Code::InvalidOption, Error::Phase::Options, error.what());
    }
    std::shared_ptr<ReaderThread> thread;
    try {
        runWithSignalsBlocked([&] { thread = std::make_shared<ReaderThread>(std::move(options), opener()); });
        thread->begin();
    } catch (const tivra_bus::BusError& error) {
        throw errorOf(Error::Code::OpenFailed, Error::Phase::Connect, error.what());
    }
    return BusReader(std::move(thread));
}

Result<BusReader> BusReader::tryOpen(BusOptions options) {
    try {
        return open(std::move(options));
    } catch (const Error& error) {
        return error;
    }
}

BusReader::BusReader(BusReader&&) noexcept = default;

BusReader& BusReader::operator=(BusReader&& other) noexcept {
    if (this != &other) {
        close();
        m_thread = std::move(other.m_thread);
    }
    return *this;
}

BusReader::~BusReader() {
    close();
}

ReaderThread& BusReader::thread() const {
    if (m_thread == nullptr)
        throw errorOf(Error::Code::Closed, Error::Phase::None, "this reader was moved from");
    return *m_thread;
}

BusSubscription BusReader::subscribe(const std::vector<Instrument>& instruments, BusHandlers handlers,
                                     std::vector<std::string> fields) {
    std::for_each(instruments.begin(), instruments.end(), check);
    return BusSubscription(thread().subscribe(instruments, std::move(handlers), std::move(fields)));
}

BusSubscription BusReader::subscribe(int source, const std::vector<std::string>& symbols,
                                     BusHandlers handlers, std::vector<std::string> fields) {
    std::vector<Instrument> instruments;
    instruments.reserve(symbols.size());
    for (const std::string& symbol : symbols)
        instruments.emplace_back(source, symbol);
    return subscribe(instruments, std::move(handlers), std::move(fields));
}

FeedState BusReader::state() const {
    return m_thread == nullptr ? FeedState::Closed : m_thread->state();
}

unsigned BusReader::partitions() const {
    return thread().partitions();
}

std::optional<Value::Type> BusReader::typeOf(const std::string& field) const {
    return thread().typeOf(field);
}

BusStatistics BusReader::statistics() const {
    return thread().statistics();
}

void BusReader::close() {
    if (m_thread != nullptr)
        m_thread->close();
}

} // namespace tivra
