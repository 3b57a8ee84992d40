#include "ValueText.h"

#include <fmt/format.h>

#include <cmath>
#include <iterator>

namespace tivra_cat {

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F)
            out.push_back(c);
        else
            fmt::format_to(std::back_inserter(out), "\\x{:02x}", byte);
    }
    return out;
}

std::string timeText(double seconds) {
    const tivra::DateTime moment(seconds);
    const tivra::Time& time = moment.time();
    return fmt::format("{:02}:{:02}:{:02}.{:03}", time.hour(), time.minute(), time.second(),
                       time.millisecond());
}

std::string dateTimeText(double seconds, char separator) {
    const tivra::DateTime moment(seconds);
    const tivra::Date& date = moment.date();
    return fmt::format("{:04}-{:02}-{:02}{}{}", date.year(), date.month(), date.day(), separator,
                       timeText(seconds));
}

std::string readableValue(const Field& field) {
    if (field.type != tivra::DATETIME)
        return printable(field.text);
    // A whole day stands for a date without a time.
    if (std::fmod(field.number, 86400.0) == 0.0)
        return dateTimeText(field.number, ' ').substr(0, 10);
    return dateTimeText(field.number, ' ');
}

const char* typeName(tivra::MessageEvent::Types type) {
    switch (type) {
    case tivra::MessageEvent::IMAGE_PART:
        return "image-part";
    case tivra::MessageEvent::IMAGE_COMPLETE:
        return "image-complete";
    case tivra::MessageEvent::UPDATE:
        return "update";
    case tivra::MessageEvent::REFRESH:
        return "refresh";
    case tivra::MessageEvent::STATUS:
        return "status";
    }
    return "unknown";
}

} // namespace tivra_cat
