#include "kafka/KafkaTail.h"

#include "bus/BatchReader.h"
#include "bus/BusError.h"

#include <algorithm>

namespace tivra_bus {

void KafkaTail::take(std::string_view message, std::string_view writer) {
    BatchHeader header;
    try {
        header = headerOf(message);
    } catch (const BatchError&) {
        return; // whoever has written that, readers leave it out too
    }
    if (header.epoch < m_epoch)
        return;
    if (header.epoch > m_epoch) {
        m_epoch = header.epoch;
        m_batch = 0;
        m_time.clear();
        m_isOurs = m_isAnothers = false;
    }
    if (header.batch >= m_batch)
        m_batchWriter = header.writer;
    m_batch = std::max(m_batch, header.batch);
    m_time = std::max(m_time, header.time);
    (writer == m_writer ? m_isOurs : m_isAnothers) = true;
}

StreamEnd KafkaTail::end(std::uint64_t position) const {
    if (m_isOurs && m_isAnothers)
        return {position, m_epoch + 1, 0, {}, m_time};
    return {position, m_epoch, m_batch, m_batchWriter, m_time};
}

} // namespace tivra_bus
