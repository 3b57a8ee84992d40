#include "captures/MessageBatches.h"

#include "captures/FileFault.h"

#include <algorithm>
#include <utility>

namespace tivra_python {

using tivra_internal::MetaToken;

namespace {

/// What the numbers of a batch may take.
constexpr std::size_t kMaxNumberBytes = std::size_t{256} << 20;
/// And the messages that its rows are made of, whose texts it has.
constexpr std::size_t kMaxMessageBytes = std::size_t{64} << 20;

std::vector<const MetaToken*> findFields(FieldDictionary& dictionary, const std::vector<std::string>& names) {
    std::vector<const MetaToken*> fields;
    for (const std::string& name : names) {
        const MetaToken* const field = dictionary.find(name);
        if (field == nullptr)
            throw FileFault("the dictionary has no field \"" + name + "\"");
        if (std::find(fields.begin(), fields.end(), field) == fields.end())
            fields.push_back(field);
    }
    return fields;
}

/// Notes of one batch.
constexpr std::size_t kMaxNotes = 100'000;

bool isLoss(const tivra_capture::Note& note) {
    return note.kind != "restored" && note.kind != "source-back";
}

std::vector<ColumnSpec> specsOf(const std::vector<const MetaToken*>& fields) {
    std::vector<ColumnSpec> specs;
    for (const MetaToken* field : fields)
        specs.push_back({field->name, columnTypeOf(*field)});
    return specs;
}

} // namespace

MessageBatches::MessageBatches(std::unique_ptr<MessageSource> source,
                               std::unique_ptr<FieldDictionary> dictionary,
                               const std::vector<std::string>& fields, RowFilter filter, std::size_t maxRows)
    : m_source(std::move(source))
    , m_dictionary(std::move(dictionary))
    , m_fields(findFields(*m_dictionary, fields))
    , m_filter(std::move(filter))
    , m_rows(specsOf(m_fields))
    , m_decoder(*m_dictionary, m_fields)
    , m_maxRows(std::max<std::size_t>(
          1, std::min(maxRows, kMaxNumberBytes / ((m_fields.size() + 1) * sizeof(std::int64_t))))) {}

std::shared_ptr<RowBatch> MessageBatches::next(const Pause& pause) {
    if (!m_isAtEnd)
        fill(pause);
    if (m_rows.rows() > 0)
        return m_rows.finish();
    if (!m_fault.empty())
        throw FileFault(m_fault);
    return nullptr;
}

void MessageBatches::fill(const Pause& pause) {
    m_batchBytes = 0;
    while (!m_isAtEnd && m_rows.rows() < m_maxRows && m_batchBytes < kMaxMessageBytes && !m_rows.isFull()) {
        if (++m_read % kPauseEvery == 0)
            pause();
        try {
            m_isAtEnd = !addMessage();
        } catch (const FileFault& fault) {
            passDamage(fault.what());
        }
    }
}

/// False behind the last.
bool MessageBatches::addMessage() {
    SourceMessage message;
    if (!m_source->next(message))
        return false;
    m_received = message.received;
    if (tivra_capture::isNote(message.body)) {
        addNote(message.received, tivra_capture::noteOf(message.body));
        return true;
    }
    ++m_messages;
    const std::size_t rows = m_rows.rows();
    if (m_decoder.decode(message, m_filter, m_isAfterGap, m_rows) == BodyDecoder::Outcome::Unreadable)
        noteUnreadable();
    if (m_rows.rows() != rows) {
        m_batchBytes += message.body.size();
        m_isAfterGap = false;
    }
    return true;
}

std::vector<RecordedNote> MessageBatches::takeNotes() {
    return std::exchange(m_notes, {});
}

/// Notes are few; what a hostile file has beyond a bound only marks the rows.
void MessageBatches::addNote(std::int64_t received, tivra_capture::Note note) {
    if (!m_filter.takes(received))
        return;
    m_isAfterGap = m_isAfterGap || isLoss(note);
    if (m_notes.size() < kMaxNotes)
        m_notes.push_back({received, m_rows.rows(), std::move(note)});
}

void MessageBatches::passDamage(const char* what) {
    if (!m_source->goOn()) {
        m_isAtEnd = true;
        m_fault = what;
        return;
    }
    if (m_damages++ == 0)
        m_firstDamage = what;
    addNote(m_received, {"damaged", {{"text", what}}});
}

void MessageBatches::noteUnreadable() {
    if (m_unreadable++ == 0)
        m_firstUnreadable = "message " + std::to_string(m_messages) + ": " + BodyDecoder::reason();
}

} // namespace tivra_python
