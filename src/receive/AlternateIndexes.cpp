// How a read handler recognises, remembers and delivers alternate identifiers.
#include "receive/QueueReadHandler.h"

#include <algorithm>
#include <string_view>

#include <tp/eprintf.h>

#include "LogLimits.h"
#include "dictionary/MetaTokenMap.h"
#include "receive/MessageEventImpl.h"
#include "receive/PairValue.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"

namespace tivra_internal {

/// False when the application asked not to see this answer.
bool QueueReadHandler::applyAlternateIndexes(Incoming& in) {
    const auto list = m_session.getAlternateIndexForSubscription(in.tag);
    if (list == nullptr || list->empty())
        return true;
    if (list->front().command == tivra::ADDALTERNATEINDEX) {
        takeIndexesOfSource(in, *list);
        return true;
    }
    return applyRequestedIndexes(in, *list);
}

void QueueReadHandler::takeIndexesOfSource(const Incoming& in, const AltIndexList& list) {
    const auto tagForLog = static_cast<long long>(in.tag);
    if (!in.hasStatus)
        return;
    if (in.status != 0) {
        eprintf(EPF_WARN, "ADDALTERNATEINDEX failed with rc=%ld for tag=%lld", static_cast<long>(in.status),
                tagForLog);
        return;
    }
    std::vector<const KVNAPI::Token*> tokens;
    tokens.reserve(list.size());
    for (const AltIndexInfo& info : list) {
        const KVNAPI::Token* const token = MetaMap.lookupTokenViaNum(info.kvnid);
        if (token == nullptr) {
            eprintf(EPF_WARN, "tag %lld: AltIndex token %d not defined in DIC", tagForLog, info.kvnid);
            continue;
        }
        tokens.push_back(token);
        eprintf(EPF_DBUG, "Adding altIndex token %d from tag=%lld", info.kvnid, tagForLog);
    }
    const int source = list.front().srcid;
    SrcIdAltIdMap[source] = std::move(tokens);
    eprintf(EPF_DBUG, "Added above altIndex token(s) for src %d from tag=%lld", source, tagForLog);
}

bool QueueReadHandler::applyRequestedIndexes(Incoming& in, const AltIndexList& list) {
    if (in.msg.symbol.len == 0 || in.msg.exchange == nullptr || in.hasStatus) {
        if (list.front().command == tivra::UNSUBSCRIBE)
            m_altIndexes.unsetAltIndexForTicker(list, m_hubClient.getHubAddr());
    } else if (answerMatches(in, list)) {
        rememberIndexes(in, list);
    }
    return in.hasStatus || !list.front().suppressQuerySnapOutput;
}

/// Whether the answer is about what the request named: each identifier must be in it, with its value.
bool QueueReadHandler::answerMatches(const Incoming& in, const AltIndexList& list) const {
    const auto tagForLog = static_cast<long long>(in.tag);
    for (const AltIndexInfo& info : list) {
        const KVNAPI::Token* const token = MetaMap.lookupTokenViaNum(info.kvnid);
        if (token == nullptr) {
            eprintf(EPF_WARN, "tag %lld: AltIndex token %d not defined in DIC", tagForLog, info.kvnid);
            return false;
        }
        const KVNAPI::TVPair* const pair = in.msg.findPair(token);
        if (pair == nullptr) {
            eprintf(EPF_WARN, "tag %lld: AltIndex token %d not present in response", tagForLog, info.kvnid);
            return false;
        }
        NumberText room;
        const std::string_view value = textOf(*pair, room);
        if (value != info.value) {
            eprintf(EPF_WARN, "tag %lld: %d=%s does not match returned value %s ", tagForLog, info.kvnid,
                    info.value.c_str(), std::string(value.substr(0, kMaxLoggedText)).c_str());
            return false;
        }
        if (isIndexOfSource(in.msg.exchange->id, token)) {
            eprintf(EPF_DBUG, "src=%d; token=%d already handled by AddAlternateIndex", in.msg.exchange->id,
                    info.kvnid);
            return false;
        }
    }
    return true;
}

bool QueueReadHandler::isIndexOfSource(int source, const KVNAPI::Token* token) const {
    const auto entry = SrcIdAltIdMap.find(source);
    return entry != SrcIdAltIdMap.end() &&
           std::find(entry->second.begin(), entry->second.end(), token) != entry->second.end();
}

void QueueReadHandler::rememberIndexes(Incoming& in, const AltIndexList& list) {
    eprintf(EPF_DBUG, "AltIndex found for tag %lld; command=%d", static_cast<long long>(in.tag),
            static_cast<int>(list.front().command));
    KVNAPI::Message& msg = in.msg;
    for (const AltIndexInfo& info : list) {
        const int position = msg.findPosition(MetaMap.lookupTokenViaNum(info.kvnid));
        if (position < 0)
            continue;
        // A full table delivers the identifier with this message alone, as a plain query does.
        if (info.command == tivra::QUERYSNAP ||
            !m_altIndexes.setAltIndexForTicker(msg.exchange->id, msg.symbol.view(), info)) {
            eprintf(EPF_DBUG, "adding AltIndex for tok=%d to altids", info.kvnid);
            m_altids.push_back(info);
        }
        // The application sees the identifier once, as an alternate index.
        if (!info.suppressQuerySnapOutput) {
            msg.removePair(position);
            m_body = {};
        }
    }
}

void QueueReadHandler::liftIndexesOfSource(KVNAPI::Message& msg) {
    const auto entry = SrcIdAltIdMap.find(msg.exchange->id);
    if (entry == SrcIdAltIdMap.end())
        return;
    const auto& tokens = entry->second;
    for (auto token = tokens.rbegin(); token != tokens.rend(); ++token) {
        const int position = msg.rFindPosition(*token);
        if (position < 0)
            continue;
        NumberText room;
        AltIndexInfo& info = m_altids.emplace_back();
        info.kvnid = (*token)->kvnid;
        info.srcid = msg.exchange->id;
        info.value = textOf(*msg.pair(position), room);
        msg.removePair(position);
    }
}

void QueueReadHandler::attachIndexes(Incoming& in) {
    KVNAPI::Message& msg = in.msg;
    if (msg.exchange != nullptr && !SrcIdAltIdMap.empty())
        liftIndexesOfSource(msg);
    if (!m_altids.empty()) {
        m_event->setAlternateIndex(&m_altids);
        return;
    }
    if (!m_altIndexes.inUse() || msg.symbol.len == 0 || msg.exchange == nullptr)
        return;
    const AltIndexList* const known = m_altIndexes.getAltIndexForTicker(msg.exchange->id, msg.symbol.view());
    if (known == nullptr)
        return;
    m_event->setAlternateIndex(known);
    if (!in.hasTag && msg.isAltIndexPresent)
        removeKnownIndexes(msg, *known);
}

void QueueReadHandler::removeKnownIndexes(KVNAPI::Message& msg, const AltIndexList& known) const {
    for (const AltIndexInfo& info : known) {
        const KVNAPI::Token* const token = MetaMap.lookupTokenViaNum(info.kvnid);
        const int position = token != nullptr ? msg.findPosition(token) : -1;
        if (position < 0)
            continue;
        eprintf(EPF_DBUG, "removing dup alt index");
        msg.removePair(position);
    }
}

} // namespace tivra_internal
