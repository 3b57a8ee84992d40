#pragma once

#include "Counters.h"
#include "FieldCatalog.h"
#include "Incidents.h"
#include "MessageCount.h"
#include "RecordQueue.h"
#include "Recordings.h"
#include "RequestBook.h"
#include "SequenceCheck.h"
#include "Wakeup.h"

#include <tivra.h>

#include <cstdint>

namespace tivra_cat {

/// The receiver of messages: counts each, copies it for the writer and notes the answers to requests. Its
/// callbacks run on the user threads of the library and never wait.
class Receiver : public tivra::MessageEventHandler {
public:
    struct Settings {
        bool copiesMessages = true; ///< false only counts
        bool splitsHeader = true;   ///< source, symbol and permission head a message; else they are fields
        std::uint64_t limit = 0;    ///< messages to take, 0 for no limit
    };

    Receiver(const Settings& settings, FieldCatalog& catalog, SequenceCheck& sequence, RecordQueue& queue,
             RequestBook& book, Counters& counters, Incidents& incidents, const Wakeup& wakeup,
             Recordings& recordings)
        : m_settings(settings)
        , m_catalog(catalog)
        , m_sequence(sequence)
        , m_queue(queue)
        , m_book(book)
        , m_counters(counters)
        , m_incidents(incidents)
        , m_wakeup(wakeup)
        , m_recordings(recordings)
        , m_count(settings.limit, counters, wakeup) {}

    void onMessageEvent(const tivra::MessageEvent& event) override;

    [[nodiscard]] bool isLimitReached() const { return m_count.isLimitReached(); }

private:
    void onData(const tivra::MessageEvent& event, tivra::MessageEvent::Types type);
    void onAnswer(const tivra::MessageEvent& event, tivra::MessageEvent::Types type);
    /// Copies the header and all selected fields but tag and status. The reader stands behind the last field
    /// afterwards.
    Record copy(const tivra::MessageEvent& event, tivra::MessageEvent::Types type);
    void addHeader(Record& record, const tivra::MessageEvent& event) const;
    void checkSequence(const tivra::MessageEvent& event);
    void noteSequence(int source, std::int64_t number);
    void push(Record&& record);

    const Settings m_settings;
    FieldCatalog& m_catalog;
    SequenceCheck& m_sequence;
    RecordQueue& m_queue;
    RequestBook& m_book;
    Counters& m_counters;
    Incidents& m_incidents;
    const Wakeup& m_wakeup;
    Recordings& m_recordings;
    MessageCount m_count;
};

} // namespace tivra_cat
