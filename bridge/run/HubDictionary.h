#pragma once

#include <feed/Feed.h>

#include <optional>
#include <string>

namespace tivra_bus {

/// The fields of the hubs by name, each with its type, as a JSON object; asked for again each time that the
/// hubs are back, since they may have another dictionary then.
/// @thread one at a time
class HubDictionary {
public:
    explicit HubDictionary(tivra::Feed& feed) : m_feed(feed) {}

    /// Waits for the hubs. @throws tivra::Error as Answer::get of their list
    [[nodiscard]] std::string get();
    /// Never waits. @return the text, when it was asked for and has come
    [[nodiscard]] std::optional<std::string> poll();

private:
    tivra::Feed& m_feed;
    tivra::FeedState m_state = tivra::FeedState::Established;
    std::optional<tivra::Answer> m_answer;
};

} // namespace tivra_bus
