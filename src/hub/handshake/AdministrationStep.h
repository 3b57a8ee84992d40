#pragma once

#include <atomic>
#include <string>

#include "hub/HubVersion.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class DictionaryStep;
class HandshakeContext;

/// The administration data: the versions of hub and dictionary, of which the latter decides on a download.
class AdministrationStep {
public:
    AdministrationStep(HandshakeContext& context, DictionaryStep& dictionary)
        : m_context(context), m_dictionary(dictionary) {}

    int ask();
    /// False when the session starts all hubs again.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

    /// @thread any
    [[nodiscard]] HubVersion hubVersion() const {
        return {m_hubMajorVersion.load(std::memory_order_relaxed),
                m_hubMinorVersion.load(std::memory_order_relaxed)};
    }

private:
    [[nodiscard]] bool takeDicVersion(const std::string& newVersion);
    void setHubVersion(const std::string& text);

    HandshakeContext& m_context;
    DictionaryStep& m_dictionary;
    std::atomic<int> m_hubMajorVersion{0};
    std::atomic<int> m_hubMinorVersion{0};
};

} // namespace tivra_internal
