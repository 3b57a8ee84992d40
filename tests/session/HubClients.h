#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "hub/FakeHubSession.h"
#include "hub/HubAnswers.h"

namespace tivra_internal {

/// Hubs that are never dialled, at the ports from 1 on: for what a session decides of hubs.
class HubClients {
public:
    explicit HubClients(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            HubClientOptions options;
            options.index = i;
            options.port = i + 1;
            options.queueSize = 1;
            m_hubs.push_back(std::make_unique<HubClient>(HandleAccess::impl(*m_user), m_session, options));
        }
    }
    [[nodiscard]] HubClient* operator[](std::size_t index) const { return m_hubs.at(index).get(); }
    /// What events name as their session; by its address alone.
    [[nodiscard]] tivra::Session& session() { return m_session.getSession(); }
    [[nodiscard]] std::vector<HubClient*> all() const {
        std::vector<HubClient*> all;
        for (const auto& hub : m_hubs)
            all.push_back(hub.get());
        return all;
    }

private:
    QuietUser m_handler;
    FakeHubSession m_session;
    HandlePtr<tivra::UserInfo> m_user = HandleAccess::makeUserInfo("jane", "pa55word", m_handler);
    std::vector<std::unique_ptr<HubClient>> m_hubs;
};

} // namespace tivra_internal
