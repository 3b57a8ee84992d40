#include "kafka/KafkaLastValues.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"
#include "bus/SubjectNames.h"
#include "kafka/KafkaNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace tivra_bus {

namespace {

using std::chrono::milliseconds;

/// For which a search goes on that has been begun before.
constexpr milliseconds kGoOnFor{500};
/// More than whoever is still interested lets pass.
constexpr std::chrono::minutes kUnaskedFor{1};

std::string keyOf(const tivra::Instrument& instrument) {
    return fmt::format("{}:{}", instrument.source, instrument.symbol);
}

} // namespace

std::vector<std::optional<std::string>>
KafkaLastValues::find(const std::vector<tivra::Instrument>& instruments, unsigned partitions,
                      const std::map<unsigned, std::uint64_t>& epochs, Clock::time_point now) {
    const auto epochOf = [&epochs](unsigned partition) {
        const auto known = epochs.find(partition);
        return known != epochs.end() ? known->second : 0;
    };
    forget(now);
    std::map<unsigned, Search> wanted;
    bool isGoingOn = true;
    for (const tivra::Instrument& instrument : instruments) {
        const std::string key = keyOf(instrument);
        const auto [known, isNew] = m_known.try_emplace(key);
        known->second.asked = now;
        known->second.isFound = false;
        isGoingOn = isGoingOn && !isNew;
        const unsigned partition = partitionOf(instrument.source, instrument.symbol, partitions);
        wanted[partition].wanted[key] = &known->second;
    }
    std::vector<Search> searches;
    for (auto& [partition, search] : wanted) {
        search.partition = partition;
        search.epoch = epochOf(partition);
        search.step = m_step;
        searches.push_back(std::move(search));
    }
    run(searches, isGoingOn ? std::min(m_patience, kGoOnFor) : m_patience);
    std::vector<std::optional<std::string>> found;
    found.reserve(instruments.size());
    for (const tivra::Instrument& instrument : instruments) {
        const Known& known = m_known[keyOf(instrument)];
        const unsigned partition = partitionOf(instrument.source, instrument.symbol, partitions);
        found.push_back(known.isFound && known.isOf(epochOf(partition)) ? known.message : std::nullopt);
    }
    return found;
}

void KafkaLastValues::forget(Clock::time_point now) {
    std::erase_if(m_known, [now](const auto& each) { return now - each.second.asked > kUnaskedFor; });
}

void KafkaLastValues::run(std::vector<Search>& searches, milliseconds patience) {
    const Clock::time_point deadline = Clock::now() + patience;
    // In turn, so that one that searches all of its partition holds up no other.
    std::rotate(searches.begin(),
                std::find_if(searches.begin(), searches.end(),
                             [this](const Search& each) { return each.partition >= m_next; }),
                searches.end());
    while (!searches.empty()) {
        for (Search& search : searches) {
            if (!search.extent)
                begin(search);
            if (!search.wanted.empty())
                step(search);
            m_next = search.partition + 1;
            if (Clock::now() >= deadline)
                return;
        }
        std::erase_if(searches, [](const Search& each) { return each.wanted.empty(); });
    }
}

void KafkaLastValues::begin(Search& search) {
    const KafkaReader::Extent extent = m_reader.extentOf(kLastTopic, search.partition);
    search.extent = extent;
    for (const auto& [key, known] : search.wanted) {
        if (known->to > extent.end || known->to < extent.first) { // the topic was made anew
            known->message.reset();
            known->to = 0;
        }
        if (known->to == 0)
            known->from = known->to = extent.end;
    }
    dropFound(search);
}

void KafkaLastValues::dropFound(Search& search) {
    std::erase_if(search.wanted, [&extent = *search.extent](const auto& each) {
        Known& known = *each.second;
        known.isFound = known.from <= extent.first && known.to >= extent.end;
        return known.isFound;
    });
}

void KafkaLastValues::step(Search& search) {
    const Clock::time_point begun = Clock::now();
    std::int64_t from = search.extent->end;
    std::int64_t end = search.extent->first;
    for (const auto& [key, known] : search.wanted) {
        from = std::min(from, known->to);
        end = std::max(end, known->from);
    }
    if (end > search.extent->first)
        from = std::max(search.extent->first, end - search.step);
    else
        end = std::min(search.extent->end, from + search.step);
    std::set<Known*> found;
    m_reader.read(kLastTopic, search.partition, from, end, [&](const rd_kafka_message_t& message) {
        const auto place = search.wanted.find({static_cast<const char*>(message.key), message.key_len});
        if (place == search.wanted.end() || place->second->knows(message.offset))
            return;
        take(*place->second, message);
        found.insert(place->second);
    });
    for (const auto& [key, known] : search.wanted)
        known->add(from, end);
    for (Known* const known : found)
        if (known->isOf(search.epoch))
            known->from = 0;                   // before that there is nothing new of it
    if (Clock::now() - begun < m_patience / 4) // the next takes twice as long
        search.step *= 2;
    dropFound(search);
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
