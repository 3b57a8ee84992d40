#pragma once

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

class MetaTokenMap;

/// What a ResponseMerger asks of its session.
class MergerSession {
public:
    virtual ~MergerSession() = default;

    [[nodiscard]] virtual bool watchlistInUse() = 0;
    /// The application wants to see the end of what a lost connection leaves unanswered.
    [[nodiscard]] virtual bool isEndingLostRequests() = 0;
    /// A question that is unanswered when its hub is lost is asked again, if requests are remembered.
    [[nodiscard]] virtual bool repeatsQuestions() const { return true; }
    /// The answer to the library's own question for the hub of a granted source. @thread user
    virtual void finishAddNewEntitlement(int src, KVNAPI::Message& msg, MetaTokenMap& dictionary) = 0;
};

} // namespace tivra_internal
