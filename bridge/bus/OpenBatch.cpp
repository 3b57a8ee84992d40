#include "bus/OpenBatch.h"

#include "bus/ArrowBatch.h"
#include "bus/BatchWriter.h"
#include "bus/BodyRecords.h"
#include "bus/JsonRecords.h"

namespace tivra_bus {

std::unique_ptr<OpenBatch> openBatch(Payload payload, std::size_t bytes) {
    switch (payload) {
    case Payload::Arrow:
        return std::make_unique<ArrowBatch>(bytes);
    case Payload::Body:
        return std::make_unique<BatchWriter>(std::make_unique<BodyRecords>(), bytes);
    case Payload::Json:
        break;
    }
    return std::make_unique<BatchWriter>(std::make_unique<JsonRecords>(), bytes);
}

} // namespace tivra_bus
