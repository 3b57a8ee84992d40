#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <data/MessageReader.h>
#include <event/MessageEvent.h>
#include <session/MessageEventHandler.h>

#include "dictionary/DictionaryCache.h"
#include "dictionary/MetaTokenMap.h"
#include "kvnparse/Message.h"
#include "receive/ReadHandlerHub.h"
#include "receive/ReadHandlerSession.h"
#include "request/AltIndexInfo.h"
#include "request/CommandClasses.h"
#include "support/Frame.h"

namespace tivra_internal {

/// Fills a dictionary with the fields that these tests speak of, the way that a hub's rows take.
inline void loadTestDictionary(MetaTokenMap& map) {
    struct Row {
        int number;
        const char* name;
        const char* type;
    };
    static constexpr Row kRows[] = {
        {8, "TRADE.PRICE", "FLOAT"},    {9, "TRADE.SIZE", "INTEGER"},
        {16, "TRADE.TIME", "DATETIME"}, {17, "TRADE.DATE", "DATE"},
        {18, "EXPIRY.YEAR", "YEAR"},    {19, "EXPIRY.MONTH", "MONTHYEAR"},
        {24, "REFRESH", "BOOL"},        {30, "NAME", "STRING"},
        {60, "BLOB.FIELD", "BLOB"},     {3101, "CUSIP", "STRING"},
        {3102, "ISIN", "STRING"},       {3130, "INTERNAL.ID", "INTEGER"},
        {3131, "STRIKE", "FLOAT"},      {5098, "RECORD.DEL", "INTEGER"},
        {5100, "PART.CODE", "STRING"},  {45027, "KVN.TOKEN.UNKNOWN.NUM", "STRING"},
    };
    TokenRows rows;
    for (const Row& row : kRows)
        static_cast<void>(rows.add(row.number, [&](TmpToken& token) {
            token.setTokenName(row.name, std::string_view(row.name).size());
            token.setKVNType(row.type, std::string_view(row.type).size());
            token.setTokenLength(20);
        }));
    DictionaryCache().loadDic("test", rows, map, "test hub");
}

using support::frameOf;

/// An event as one line: type, symbol@source, status, tag, pairs and alternate indexes.
inline std::string describe(const tivra::MessageEvent& event) {
    static constexpr const char* kTypes[] = {"IMAGE_PART", "IMAGE_COMPLETE", "UPDATE", "REFRESH", "STATUS"};
    std::string text = kTypes[event.getType()];
    text.append(1, ' ').append(event.getSymbolView()) += '@' + std::to_string(event.getSource());
    text += " rc=" + std::to_string(event.getStatusCode()) + " tag=" + std::to_string(event.getTag()) + " [";
    tivra::MessageReader& reader = event.getReader();
    for (int token = reader.next(); token != tivra::MessageReader::END_OF_MESSAGE; token = reader.next())
        text.append(std::to_string(token) + '=').append(reader.getValueAsStringView()) += '|';
    text += "] {";
    for (std::size_t i = 0; i < event.getNumberofAlternateIndexes(); ++i)
        text.append(std::to_string(event.getAlternateIndexTokenNumber(i)) + '=')
            .append(event.getAlternateIndexValueView(i)) += '|';
    return text + '}';
}

/// An application that writes down what it gets.
struct RecordingApplication : tivra::MessageEventHandler {
    void onMessageEvent(const tivra::MessageEvent& event) override {
        lastEvent = &event;
        if (onEvent)
            onEvent(event);
        else
            lines.push_back(describe(event));
    }
    std::vector<std::string> lines;
    std::function<void(const tivra::MessageEvent&)> onEvent;
    const tivra::MessageEvent* lastEvent = nullptr;
};

/// A hub as a read handler sees it.
struct FakeHub : ReadHandlerHub {
    FakeHub() : FakeHub(true) {}
    explicit FakeHub(bool withTestDictionary) {
        if (withTestDictionary)
            loadTestDictionary(dictionary);
    }

    HubClient* client() override { return reinterpret_cast<HubClient*>(&identity); }
    bool isDummy() const override { return dummy; }
    std::string getHubAddr() const override { return "10.0.0.1:9000"; }
    MetaTokenMap& getDicMetaMap() override { return dictionary; }
    void setHBSeen(bool seen) override { hbSeen = seen; }
    bool handleWatchlistResponse(int64_t tag, int64_t status) override {
        watchlistCalls.emplace_back(tag, status);
        return watchlistConsumes;
    }

    MetaTokenMap dictionary;
    bool dummy = false;
    bool hbSeen = false;
    bool watchlistConsumes = false;
    std::vector<std::pair<int64_t, int64_t>> watchlistCalls;
    alignas(16) char identity[16] = {};
};

/// A session as a read handler sees it.
struct FakeSession : ReadHandlerSession {
    tivra::Session& getSession() override { return *reinterpret_cast<tivra::Session*>(&identity); }
    tivra::MessageEventHandler* getMsgEventHandler() const override { return handler; }
    const char* getRetCodeDesc(int code) const override { return code == -12 ? "NOT.FOUND" : "Unknown code"; }
    bool isQueryCommand(int64_t tag, HubClient*, tivra::Commands& command) override {
        const auto entry = commands.find(tag);
        command = entry != commands.end() ? entry->second : tivra::SUBSCRIBE;
        return tivra_internal::isQueryCommand(command);
    }
    std::shared_ptr<const std::vector<AltIndexInfo>> getAlternateIndexForSubscription(int64_t tag) override {
        const auto entry = altIndexes.find(tag);
        return entry == altIndexes.end() ? nullptr
                                         : std::make_shared<const std::vector<AltIndexInfo>>(entry->second);
    }
    bool suppressResponse(int64_t tag, KVNAPI::Message& msg, KVNAPI::Token* statusTok, KVNAPI::TVPair* rcPair,
                          MetaTokenMap*, HubClient*) override {
        merged.emplace_back(tag, rcPair != nullptr ? rcPair->i : -999);
        return merge && merge(msg, statusTok, rcPair);
    }
    bool takeLostRequest(HubClient*, bool, LostRequest&) override { return false; }
    bool isHBSubscribed() const override { return hbSubscribed; }
    bool isCMconnection() const override { return cmConnection; }
    bool isTagAwaitingXrefHubs(int64_t tag) override { return tag == tagAwaitingXrefHubs; }
    void addJitCount(int delta) override { jitCount += delta; }
    bool isFirstHub(const HubClient*) const override { return firstHub; }
    void addNewEntitlement(int src, HubClient*) override {
        entitlements.push_back("add " + std::to_string(src));
    }
    void deleteEntitlement(int src, HubClient*) override {
        entitlements.push_back("delete " + std::to_string(src));
    }
    void beginAddNewEntitlement(int src) override { entitlements.push_back("begin " + std::to_string(src)); }

    tivra::MessageEventHandler* handler = nullptr;
    std::map<int64_t, tivra::Commands> commands;
    std::map<int64_t, std::vector<AltIndexInfo>> altIndexes;
    std::vector<std::pair<int64_t, int64_t>> merged;
    std::function<bool(KVNAPI::Message&, KVNAPI::Token*, KVNAPI::TVPair*)> merge;
    bool hbSubscribed = false;
    bool cmConnection = false;
    bool firstHub = true;
    int64_t tagAwaitingXrefHubs = 0;
    int jitCount = 0;
    std::vector<std::string> entitlements;
    alignas(16) char identity[16] = {};
};

} // namespace tivra_internal
