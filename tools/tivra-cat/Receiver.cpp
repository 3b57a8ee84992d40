#include "Receiver.h"

#include <chrono>

namespace tivra_cat {

namespace {

// What every dictionary calls the two fields of a message's header that a list repeats.
const std::string kPermissionName = "PERMISSION";
const std::string kSourceName = "ENUM.SRC.ID";

double secondsSinceEpoch() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void increment(std::atomic<std::uint64_t>& counter) {
    counter.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void Receiver::onMessageEvent(const tivra::MessageEvent& event) {
    const tivra::MessageEvent::Types type = event.getType();
    if (type == tivra::MessageEvent::IMAGE_COMPLETE || type == tivra::MessageEvent::STATUS)
        onAnswer(event, type);
    else
        onData(event, type);
}

void Receiver::onData(const tivra::MessageEvent& event, tivra::MessageEvent::Types type) {
    if (!m_count.claim())
        return;
    m_count.count(type);
    if (type == tivra::MessageEvent::IMAGE_PART)
        m_recordings.addAnswer(event.getBody());
    else
        m_recordings.addUpdate(event.getBody());
    if (m_settings.copiesMessages)
        push(copy(event, type));
    else if (m_sequence.isOn())
        checkSequence(event);
}

void Receiver::onAnswer(const tivra::MessageEvent& event, tivra::MessageEvent::Types type) {
    m_recordings.addAnswer(event.getBody());
    Record record = copy(event, type);
    if (!record.fields.empty() && m_count.claim())
        m_count.count(type);
    increment(m_counters.answers);
    const std::int64_t tag = record.tag;
    const int code = record.statusCode;
    const std::string text = record.statusText;
    std::string target;
    if (const std::optional<Asked> asked = m_book.asked(tag)) {
        target = asked->target;
        record.command = asked->command;
        record.identifier = asked->identifier;
        if (record.symbol.empty())
            record.symbol = asked->symbol;
        if (record.source == 0 && m_settings.splitsHeader)
            record.source = asked->source;
    }
    // The record first: once the last answer is known the main thread may end the output.
    if (m_settings.copiesMessages)
        push(std::move(record));
    if (m_book.answer(tag, code, text))
        m_incidents.standingRequestEnded(target);
    m_wakeup.notify();
}

Record Receiver::copy(const tivra::MessageEvent& event, tivra::MessageEvent::Types type) {
    Record record;
    record.type = type;
    record.received = secondsSinceEpoch();
    record.tag = event.getTag();
    addHeader(record, event);
    if (record.isAnswer()) {
        record.statusCode = event.getStatusCode();
        record.statusText = event.getStatusString();
    }
    tivra::MessageReader& reader = event.getReader();
    for (int token = reader.next(); token != tivra::MessageReader::END_OF_MESSAGE; token = reader.next()) {
        if (token == kTagToken || (token == kStatusToken && record.isAnswer()))
            continue;
        const FieldCatalog::Entry& entry = m_catalog.entryOf(token, reader);
        if (entry.isSequence && !record.isAnswer())
            noteSequence(record.source, reader.getValueAsInteger());
        if (!entry.isSelected)
            continue;
        const tivra::ValueTypes valueType = reader.getValueType();
        const bool isNumber = valueType == tivra::DOUBLE || valueType == tivra::DATETIME;
        record.fields.push_back({token, &entry.name, valueType, reader.getValueAsString(),
                                 isNumber ? reader.getValueAsDouble() : 0.0});
    }
    for (std::size_t i = 0; i < event.getNumberofAlternateIndexes(); ++i)
        record.alternates.push_back({event.getAlternateIndexTokenNumber(i),
                                     event.getAlternateIndexTokenName(i), event.getAlternateIndexValue(i)});
    return record;
}

void Receiver::addHeader(Record& record, const tivra::MessageEvent& event) const {
    record.source = event.getSource();
    record.permission = event.getPermission();
    record.symbol = event.getSymbolView();
    if (m_settings.splitsHeader)
        return;
    // A list of sources or permissions has its first entry in the header and the others among the fields.
    const auto asField = [&record](int token, const std::string& name, const std::string& value) {
        record.fields.push_back({token, &name, tivra::INT64, value, 0.0});
    };
    if (record.permission != 0)
        asField(kPermissionToken, kPermissionName, std::to_string(record.permission));
    if (record.source != 0)
        asField(tivra::ENUM_SRC_ID, kSourceName, std::to_string(record.source));
    record.source = 0;
    record.permission = 0;
}

void Receiver::checkSequence(const tivra::MessageEvent& event) {
    tivra::MessageReader& reader = event.getReader();
    for (int token = reader.next(); token != tivra::MessageReader::END_OF_MESSAGE; token = reader.next()) {
        if (m_catalog.entryOf(token, reader).isSequence) {
            noteSequence(event.getSource(), reader.getValueAsInteger());
            return;
        }
    }
}

void Receiver::noteSequence(int source, std::int64_t number) {
    const std::optional<SequenceCheck::Break> found = m_sequence.look(source, number);
    if (!found)
        return;
    if (found->isRestart())
        m_incidents.restart(source, found->after, found->before);
    else
        m_incidents.hole(source, found->after, found->before, found->missing());
}

void Receiver::push(Record&& record) {
    if (!m_queue.push(std::move(record)))
        increment(m_counters.outputDropped);
}

} // namespace tivra_cat
