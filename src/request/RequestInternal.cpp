#include "request/RequestInternal.h"

#include <string_view>

#include <tp/eprintf.h>

namespace tivra_internal {

namespace {

constexpr std::string_view kCommandPair = "5022=";
constexpr std::string_view kTagPair = "5026=";

/// The position of a whole pair in a request text, npos when it isn't there. A pair starts the text or
/// follows a separator, and ends at a separator or with the text.
std::size_t findPair(const std::string& text, const std::string& pair) {
    for (std::size_t at = text.find(pair); at != std::string::npos; at = text.find(pair, at + 1)) {
        const std::size_t end = at + pair.size();
        if ((at == 0 || text[at - 1] == '|') && (end == text.size() || text[end] == '|'))
            return at;
    }
    return std::string::npos;
}

std::string tagPair(int64_t tag) {
    return std::string(kTagPair).append(std::to_string(tag));
}

} // namespace

RequestInternal::RequestInternal(const RequestImpl* builder) {
    setContent(builder->getContent());
}

RequestInternal::RequestInternal(const RequestInternal* other)
    : resubHB(other->resubHB)
    , resubHubStatus(other->resubHubStatus)
    , reach(other->reach)
    , isWLRetry(other->isWLRetry)
    , isRepeated(other->isRepeated)
    , age(other->age)
    , outstandingResponses(other->outstandingResponses)
    , tag(other->tag) {
    setContent(other->getContent());
}

RequestInternal::RequestInternal(const RequestContent& content, int64_t stampedTag) : tag(stampedTag) {
    setContent(content);
}

std::unique_ptr<RequestInternal> RequestInternal::copyWithAltIndex() const {
    auto copy = std::make_unique<RequestInternal>(this);
    copy->altIndex = altIndex;
    return copy;
}

void RequestInternal::setTag(int64_t newTag) {
    if (isTagSetInString) {
        eprintf(EPF_CRIT, "setTag called more than once for this object (%p)", static_cast<void*>(this));
        return;
    }
    request += tagPair(newTag);
    isTagSetInString = true;
    tag = newTag;
}

void RequestInternal::setNullCmd() {
    request.append(kCommandPair).append("|");
}

void RequestInternal::makePortQuestion(int64_t newTag, int source) {
    setTag(newTag);
    request = "5026=" + std::to_string(newTag) + "|5022=GetPort|4=" + std::to_string(source);
    command = tivra::QUERYSNAP;
    isCmdSet = true;
}

void RequestInternal::cloneRequest(const RequestInternal* other) {
    setContent(other->getContent());
    tokValSet.clear();
    resubHB = other->resubHB;
    resubHubStatus = other->resubHubStatus;
    isWLRetry = other->isWLRetry;
    tag = other->tag;
    outstandingResponses = other->outstandingResponses;
}

void RequestInternal::modifyCommand(tivra::Commands newCommand) {
    const char* newWord = getCommandString(newCommand);
    if (newWord == nullptr)
        return;
    const char* word = getCommandString(command);
    const std::string pair = std::string(kCommandPair).append(word != nullptr ? word : "");
    const std::string newPair = std::string(kCommandPair).append(newWord);
    const std::size_t at = word != nullptr ? request.find(pair) : std::string::npos;
    if (at != std::string::npos) {
        request.replace(at, pair.size(), newPair);
    } else {
        eprintf(EPF_DBUG,
                "RequestInternal::modifyCommand: command string (%s) not found in request string (%s)",
                pair.c_str(), request.c_str());
        request.insert(0, newPair + "|");
    }
    command = newCommand;
    isCmdSet = true;
}

void RequestInternal::modifyTag(int64_t newTag, bool saveOrigTag) {
    const std::string pair = tagPair(tag);
    const std::size_t at = findPair(request, pair);
    if (at != std::string::npos) {
        request.replace(at, pair.size(), tagPair(newTag));
    } else {
        eprintf(EPF_DBUG, "RequestInternal::modifyTag: tag string (%s) not found in request string (%s)",
                pair.c_str(), request.c_str());
        request.insert(0, tagPair(newTag) + "|");
    }
    if (saveOrigTag)
        origTag = tag;
    tag = newTag;
}

std::size_t RequestInternal::convertSubscribeToSnap() {
    const std::string pair = std::string(kCommandPair).append(getCommandString(tivra::SUBSCRIBE));
    const std::size_t at = command == tivra::SUBSCRIBE ? findPair(request, pair) : std::string::npos;
    if (at != std::string::npos) {
        request.replace(at + kCommandPair.size(), pair.size() - kCommandPair.size(),
                        getCommandString(tivra::QUERYSNAPANDSUBSCRIBE));
        command = tivra::QUERYSNAPANDSUBSCRIBE;
    }
    return at;
}

} // namespace tivra_internal
