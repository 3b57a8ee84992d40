#include "kafka/KafkaLastValues.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace tivra_bus {

namespace {

std::string keyOf(const tivra::Instrument& instrument) {
    return fmt::format("{}:{}", instrument.source, instrument.symbol);
}

} // namespace

std::vector<std::optional<std::string>>
KafkaLastValues::find(const std::vector<tivra::Instrument>& instruments, unsigned partitions) {
    std::map<unsigned, Wanted> wanted;
    for (const tivra::Instrument& instrument : instruments) {
        const std::string key = keyOf(instrument);
        wanted[partitionOf(instrument.source, instrument.symbol, partitions)][key] = &m_known[key];
    }
    for (auto& [partition, each] : wanted)
        look(partition, std::move(each));
    std::vector<std::optional<std::string>> found;
    found.reserve(instruments.size());
    for (const tivra::Instrument& instrument : instruments)
        found.push_back(m_known[keyOf(instrument)].message);
    return found;
}

void KafkaLastValues::look(unsigned partition, Wanted wanted) {
    const KafkaReader::Extent extent = m_reader.extentOf(kLastTopic, partition);
    std::int64_t lowest = extent.end;
    for (const auto& [key, known] : wanted) {
        if (known->readTo > extent.end)
            *known = {}; // the topic was made anew
        lowest = std::min(lowest, known->readTo);
    }
    lowest = std::max(lowest, extent.first);
    std::map<std::string, Known*> all = wanted;
    for (std::int64_t end = extent.end, step = m_step; end > lowest && !wanted.empty(); step *= 2) {
        const std::int64_t from = std::max(lowest, end - step);
        std::vector<std::string> found;
        m_reader.read(kLastTopic, partition, from, end, [&](const rd_kafka_message_t& message) {
            const std::string key(static_cast<const char*>(message.key), message.key_len);
            const auto place = wanted.find(key);
            if (place == wanted.end() || message.offset < place->second->readTo)
                return;
            take(*place->second, message);
            found.push_back(key);
        });
        for (const std::string& key : found)
            wanted.erase(key);
        // Before that there is nothing new of these.
        std::erase_if(wanted, [from](const auto& each) { return each.second->readTo >= from; });
        end = from;
    }
    for (const auto& [key, known] : all)
        known->readTo = extent.end;
}

void KafkaLastValues::take(Known& known, const rd_kafka_message_t& message) {
    if (message.payload == nullptr) {
        known.message.reset();
        return;
    }
    const std::string_view text(static_cast<const char*>(message.payload), message.len);
    std::uint64_t epoch = 0;
    std::uint64_t number = 0;
    try {
        const LastValues last = readLastValues(text);
        epoch = last.epoch;
        number = last.number;
    } catch (const BatchError&) {
        // It is handed out, so that whoever asks hears what is wrong with it.
    }
    if (known.message && std::pair(epoch, number) < std::pair(known.epoch, known.number))
        return;
    known.message = text;
    known.epoch = epoch;
    known.number = number;
}

} // namespace tivra_bus
