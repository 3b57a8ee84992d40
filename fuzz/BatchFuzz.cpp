// Arbitrary bytes as a batch and as a message of last values: what can be read is read, everything else is an
// error that says where.
#include "FuzzCheck.h"

#include <bus/BatchReader.h>
#include <bus/BusError.h>
#include <bus/SubjectNames.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace {

using namespace tivra_bus;

template<class Call>
void expectPlace(const char* place, const Call& call) {
    try {
        call();
    } catch (const BatchError& error) {
        if (!std::string_view(error.what()).starts_with(place))
            fuzz::expectEqual("error", error.what(), std::string("one that begins with ") + place);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    expectPlace("a batch", [bytes] {
        BatchReader reader(bytes);
        BusRecord record;
        std::size_t count = 0;
        while (reader.next(record))
            ++count;
        if (count != reader.header().records)
            fuzz::expectEqual("records", std::to_string(count), std::to_string(reader.header().records));
    });
    expectPlace("last values", [bytes] { (void)readLastValues(bytes); });
    expectPlace("a symbol", [bytes] {
        if (const std::string symbol = unescapedSymbol(bytes);
            unescapedSymbol(escapedSymbol(symbol)) != symbol)
            fuzz::expectEqual("symbol", unescapedSymbol(escapedSymbol(symbol)), symbol);
    });
    return 0;
}
