#include <feed/Error.h>

#include <array>
#include <utility>

namespace tivra {
namespace {

constexpr std::array<const char*, 12> kCodeNames{
    "InvalidArgument", "InvalidOption", "UnknownField", "WrongType",      "Closed",     "InCallback",
    "TimedOut",        "Cancelled",     "Refused",      "ConnectionLost", "OpenFailed", "QueueFull"};
constexpr const char* kSystemName = "System";

constexpr std::array<const char*, 8> kPhaseNames{"None",  "Options",    "Resolve", "Connect",
                                                 "Login", "Dictionary", "Request", "Answer"};
constexpr const char* kSubscriptionName = "Subscription";

/// The names stand in the order of the enumerators; the last one is given apart.
template<std::size_t Count>
[[nodiscard]] const char* nameAt(const std::array<const char*, Count>& names, std::size_t index,
                                 const char* last) noexcept {
    return index < Count ? names[index] : last;
}

[[nodiscard]] std::string lineOf(const Error::Details& details, const char* code) {
    std::string line = code;
    line += ": ";
    if (!details.hub.empty()) {
        line += details.hub;
        line += ": ";
    }
    line += details.cause;
    if (details.status != 0) {
        line += " (status ";
        line += std::to_string(details.status);
        if (!details.statusName.empty()) {
            line += ", ";
            line += details.statusName;
        }
        line += ')';
    }
    if (!details.advice.empty()) {
        line += "; ";
        line += details.advice;
    }
    return line;
}

} // namespace

Error::Error(Details details)
    : std::runtime_error(
          lineOf(details, nameAt(kCodeNames, static_cast<std::size_t>(details.code), kSystemName)))
    , m_details(std::move(details)) {}

// The base shares its text between copies, by a count that a sanitizer can't see when they are on two
// threads.
Error::Error(const Error& other) : std::runtime_error(other.what()), m_details(other.m_details) {}

Error& Error::operator=(const Error& other) {
    if (this != &other) {
        std::runtime_error::operator=(std::runtime_error(other.what()));
        m_details = other.m_details;
    }
    return *this;
}

Error::~Error() = default;

const char* Error::name() const noexcept {
    return nameAt(kCodeNames, static_cast<std::size_t>(m_details.code), kSystemName);
}

const char* Error::phaseName() const noexcept {
    return nameAt(kPhaseNames, static_cast<std::size_t>(m_details.phase), kSubscriptionName);
}

bool Error::isRetryable() const noexcept {
    switch (m_details.code) {
    case Code::TimedOut:
    case Code::ConnectionLost:
    case Code::QueueFull:
        return true;
    case Code::OpenFailed:
        return m_details.phase != Phase::Login && m_details.phase != Phase::Options;
    default:
        return false;
    }
}

} // namespace tivra
