#include "nats/NatsAnswer.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"

#include <nlohmann/json.hpp>

#include <charconv>

namespace tivra_bus {

namespace {

using Json = nlohmann::json;
using Outcome = SendResult::Outcome;

/// The server's code for a last sequence that isn't the expected one, of a stream or a subject.
constexpr int kWrongLastSequence = 10071;
/// Its code for a message that is larger than the stream takes.
constexpr int kMessageTooBig = 10054;

SendResult refusalOf(const Json& error) {
    const auto code = error.find("err_code");
    const int number = code != error.end() && code->is_number_integer() ? code->get<int>() : 0;
    if (isConflict(number))
        return {Outcome::Conflict, 0, 0, {}};
    const auto cause = error.find("description");
    return {number == kMessageTooBig ? Outcome::TooBig : Outcome::Failed, 0, 0,
            cause != error.end() && cause->is_string() ? cause->get<std::string>() : "refused"};
}

/// The number after `name` in the usual form of an acknowledgement, which no object is built for.
bool readPlain(std::string_view text, std::string_view name, std::uint64_t& number) {
    const std::size_t at = text.find(name);
    if (at == std::string_view::npos || text.find("\"error\"") != std::string_view::npos ||
        text.front() != '{')
        return false;
    const char* const end = text.data() + text.size();
    const auto [next, fault] = std::from_chars(text.data() + at + name.size(), end, number);
    return fault == std::errc{} && next != end && (*next == ',' || *next == '}');
}

} // namespace

bool isConflict(int code) {
    return code == kWrongLastSequence;
}

SendResult acknowledgementOf(std::string_view text) {
    SendResult result{Outcome::Stored, 0, 0, {}};
    if (readPlain(text, "\"seq\":", result.position))
        return result;
    const Json answer = Json::parse(text, nullptr, false);
    if (answer.is_object()) {
        if (const auto error = answer.find("error"); error != answer.end() && error->is_object())
            return refusalOf(*error);
        if (const auto position = answer.find("seq");
            position != answer.end() && position->is_number_unsigned()) {
            result.position = position->get<std::uint64_t>();
            return result;
        }
    }
    return {Outcome::Failed, 0, 0, "the engine's answer can't be read; see that JetStream is on"};
}

std::uint64_t epochOfLast(std::string_view message) {
    try {
        return readLastValues(message).epoch;
    } catch (const BatchError&) {
        return 0;
    }
}

} // namespace tivra_bus
