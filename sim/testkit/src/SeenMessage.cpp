#include "tivra_testkit/SeenMessage.h"

#include <algorithm>

namespace tivra_testkit {

SeenMessage::SeenMessage(const tivra::MessageEvent& event)
    : type(event.getType())
    , tag(event.getTag())
    , status(event.getStatusCode())
    , statusText(event.getStatusString())
    , source(event.getSource())
    , permission(event.getPermission())
    , symbol(event.getSymbol())
    , conflatable(event.isConflatable())
    , partCode(event.getPartCode())
    , displayPrecision(event.getDisplayPrecision())
    , thread(std::this_thread::get_id()) {
    tivra::MessageReader& reader = event.getReader();
    for (int token = reader.next(); token != tivra::MessageReader::END_OF_MESSAGE; token = reader.next())
        fields.emplace_back(token, reader.getValueAsString());
    for (std::size_t i = 0; i < event.getNumberofAlternateIndexes(); ++i)
        alternates.emplace_back(event.getAlternateIndexTokenNumber(i), event.getAlternateIndexValue(i));
}

std::string SeenMessage::field(int token) const {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [token](const Field& field) { return field.first == token; });
    return found != fields.end() ? found->second : std::string();
}

} // namespace tivra_testkit
