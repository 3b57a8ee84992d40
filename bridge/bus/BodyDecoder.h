#pragma once

#include "bus/BusRecord.h"

#include <memory>
#include <string>
#include <string_view>

namespace tivra_bus {

/// Reads the bodies of hub messages as the library itself does, by the numbers that each batch brings with
/// it. It keeps what it has learned for the next batch. @thread one at a time
class BodyDecoder {
public:
    BodyDecoder();
    ~BodyDecoder();
    BodyDecoder(BodyDecoder&&) noexcept;
    BodyDecoder& operator=(BodyDecoder&&) noexcept;

    /// The fields of the batch whose bodies come, as BatchFields writes them.
    /// @throws BatchError where they aren't fields, or contradict each other
    void begin(std::string_view line);
    /// The values, as the other payload has them.
    /// @throws BodyError where it isn't fields of that batch
    [[nodiscard]] BusFields decode(std::string_view body);

private:
    class Dictionary;

    std::string m_line;
    std::unique_ptr<Dictionary> m_dictionary;
};

} // namespace tivra_bus
