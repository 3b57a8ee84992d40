#include "feed/InstrumentCheck.h"

#include <string>

#include <feed/Error.h>

namespace tivra_internal {
namespace {

constexpr std::size_t kMaxSymbol = 32;

[[nodiscard]] const char* faultOf(const std::string& symbol) noexcept {
    if (symbol.empty())
        return "is empty";
    if (symbol.size() > kMaxSymbol)
        return "is longer than 32 characters";
    for (const char c : symbol) {
        if (c == '|' || c == '=')
            return "has a '|' or '=' in it, which separate the fields of a request";
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            return "has a control character in it";
    }
    if (symbol.front() == ' ' || symbol.back() == ' ')
        return "begins or ends with a blank";
    return nullptr;
}

[[noreturn]] void refuse(std::string cause) {
    throw tivra::Error({tivra::Error::Code::InvalidArgument, tivra::Error::Phase::Request, std::move(cause),
                        "", "", 0, "", 0});
}

} // namespace

void checkInstrument(const tivra::Instrument& instrument, const char* what) {
    if (instrument.source < 1)
        refuse(std::string(what) + ": the source " + std::to_string(instrument.source) + " isn't above 0");
    if (const char* const fault = faultOf(instrument.symbol))
        refuse(std::string(what) + ": the symbol " + fault);
}

} // namespace tivra_internal
