#pragma once

#include "captures/BodyDecoder.h"
#include "captures/FieldDictionary.h"
#include "captures/MessageSource.h"
#include "captures/RowFilter.h"
#include "columns/RowBatch.h"
#include "columns/RowBuilder.h"

#include <capture/CaptureNote.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tivra_python {

/// A note of the recorder.
struct RecordedNote {
    std::int64_t received = 0; ///< nanoseconds since 1970-01-01 00:00 UTC
    std::size_t row = 0;       ///< the row of the batch that follows it
    tivra_capture::Note note;
};

/// The messages of a source as batches of rows. One thread at a time.
class MessageBatches {
public:
    /// @param fields   names or numbers of the columns; throws FileFault for one that the dictionary lacks
    /// @param maxRows  rows of a batch, at least 1; fewer where columns are many or messages long
    MessageBatches(std::unique_ptr<MessageSource> source, std::unique_ptr<FieldDictionary> dictionary,
                   const std::vector<std::string>& fields, RowFilter filter, std::size_t maxRows);

    /// The next rows; null behind the last. What is damaged in the file, and messages that can't be decoded,
    /// are left out and noted; where a source has no way on behind the damage, FileFault follows the rows.
    [[nodiscard]] std::shared_ptr<RowBatch> next(const Pause& pause);

    /// What the recorder noted among the rows of the last batch, and behind them.
    [[nodiscard]] std::vector<RecordedNote> takeNotes();

    /// Messages that were read so far.
    [[nodiscard]] std::uint64_t messages() const noexcept { return m_messages; }
    /// Messages that couldn't be decoded.
    [[nodiscard]] std::uint64_t unreadable() const noexcept { return m_unreadable; }
    /// Which was the first of them and why; empty without any.
    [[nodiscard]] const std::string& firstUnreadable() const noexcept { return m_firstUnreadable; }
    /// Places of the file that were passed over.
    [[nodiscard]] std::uint64_t damages() const noexcept { return m_damages; }
    /// Which was the first of them and what is wrong there; empty without any.
    [[nodiscard]] const std::string& firstDamage() const noexcept { return m_firstDamage; }

private:
    void fill(const Pause& pause);
    [[nodiscard]] bool addMessage();
    void noteUnreadable();
    void passDamage(const char* what);
    void addNote(std::int64_t received, tivra_capture::Note note);

    const std::unique_ptr<MessageSource> m_source;
    const std::unique_ptr<FieldDictionary> m_dictionary;
    std::vector<const tivra_internal::MetaToken*> m_fields;
    const RowFilter m_filter;
    RowBuilder m_rows;
    BodyDecoder m_decoder;
    std::size_t m_maxRows;
    std::size_t m_batchBytes = 0; ///< of the messages of this batch
    std::uint64_t m_read = 0;     ///< messages and notes
    std::uint64_t m_messages = 0;
    std::uint64_t m_unreadable = 0;
    std::string m_firstUnreadable;
    std::uint64_t m_damages = 0;
    std::string m_firstDamage;
    std::int64_t m_received = 0; ///< of the last message
    std::string m_fault;         ///< without a way on, once it has been met
    bool m_isAtEnd = false;
    bool m_isAfterGap = false; ///< since the last row
    std::vector<RecordedNote> m_notes;
};

} // namespace tivra_python
