#pragma once

#include <set>
#include <string_view>

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

struct MessageField;
class HandshakeContext;

/// The sources that a hub carries in part, with the patterns of the symbols that it has.
class SplitStep {
public:
    explicit SplitStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);

private:
    void addEntry(const KVNAPI::Message& msg, const MessageField& source, const MessageField& symbol);
    void addSymbol(std::string_view sym, const std::set<int>& exchanges);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
