#include "bus/BatchHeader.h"

#include "bus/JsonReading.h"
#include "bus/SubjectNames.h"

#include <climits>

namespace tivra_bus {

namespace {

/// The longest line that is looked at: ours have some 160 bytes.
constexpr std::size_t kMostHeader = 4096;
constexpr std::uint64_t kMostRecords = 1U << 24;
/// The writer's time, as text.
constexpr std::size_t kMostTime = 64;

} // namespace

const char* nameOf(Payload payload) {
    switch (payload) {
    case Payload::Json:
        return "json";
    case Payload::Body:
        return "body";
    case Payload::Arrow:
        return "arrow";
    }
    return "";
}

std::string headerText(const BatchHeader& header) {
    return fmt::format(R"({{"tivra":{},"payload":"{}","partition":{},"epoch":{},"batch":{},"records":{},)"
                       R"("dictionary":{},"writer":"{}","time":"{}"}})",
                       kLayoutVersion, header.payload, header.partition, header.epoch, header.batch,
                       header.records, header.dictionary, header.writer, header.time);
}

std::string headerLine(const BatchHeader& header) {
    return headerText(header) + '\n';
}

BatchHeader readHeader(std::string_view bytes, std::size_t& length) {
    const std::size_t end = bytes.substr(0, kMostHeader).find('\n');
    if (end == std::string_view::npos)
        throw BatchError(fmt::format("a batch: a first line of at most {} bytes was wanted", kMostHeader));
    length = end + 1;
    return headerIn(bytes.substr(0, end), "a batch, line 1");
}

BatchHeader headerIn(std::string_view object, const std::string& place) {
    if (object.size() > kMostHeader)
        throw BatchError(fmt::format("{}: a header of at most {} bytes was wanted", place, kMostHeader));
    const JsonReading line(object, place);
    if (const std::uint64_t version = line.number("tivra"); version != kLayoutVersion)
        throw BatchError(fmt::format("{}: this is layout {}, and this program reads {}: use the release "
                                     "of the bridge that has written it",
                                     place, version, kLayoutVersion));
    BatchHeader header;
    header.payload = line.text("payload");
    header.partition = static_cast<unsigned>(line.number("partition", UINT_MAX));
    header.epoch = line.number("epoch", kMostEpoch);
    header.batch = line.number("batch");
    header.records = line.number("records", kMostRecords);
    header.dictionary = line.number("dictionary");
    header.writer = line.textOr("writer", "");
    header.time = line.text("time");
    if (header.time.size() > kMostTime)
        line.fail("time", "a time");
    return header;
}

} // namespace tivra_bus
