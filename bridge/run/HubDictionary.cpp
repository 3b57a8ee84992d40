#include "run/HubDictionary.h"

#include "bus/TypeNames.h"

#include <feed/Record.h>
#include <feed/Snapshot.h>

#include <nlohmann/json.hpp>

#include <map>
#include <utility>

namespace tivra_bus {

namespace {

std::string textOf(const tivra::Feed& feed, const tivra::Snapshot& fields) {
    std::map<std::string, std::string> types; // in order, so that the same dictionary has the same text
    for (const tivra::Record& record : fields.records())
        for (const auto& [field, value] : record)
            if (field.name() == "KVN.TOKEN.NAME" && value.type() == tivra::Value::Type::Text)
                if (const auto name = value.as<std::string>(); const auto type = feed.typeOf(name))
                    types[name] = nameOf(*type);
    return nlohmann::json{{"tivra", 1}, {"fields", types}}.dump(-1, ' ', false,
                                                                nlohmann::json::error_handler_t::replace);
}

} // namespace

std::string HubDictionary::get() {
    return textOf(m_feed, m_feed.list(tivra::ListOf::Fields).get());
}

std::optional<std::string> HubDictionary::poll() {
    const tivra::FeedState before = std::exchange(m_state, m_feed.state());
    if (m_state == tivra::FeedState::Established && before != m_state)
        m_answer = m_feed.list(tivra::ListOf::Fields);
    if (!m_answer || !m_answer->isReady())
        return std::nullopt;
    try {
        std::string text = textOf(m_feed, m_answer->get());
        m_answer.reset();
        return text;
    } catch (const tivra::Error&) {
        // The hubs are lost again, and it is asked for when they are back.
        m_answer.reset();
        return std::nullopt;
    }
}

} // namespace tivra_bus
