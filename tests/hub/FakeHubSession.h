#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <user/UserEventHandler.h>

#include "config/RetCodeTexts.h"
#include "config/UserInfoImpl.h"
#include "dictionary/DictionaryCache.h"
#include "hub/ConnectionManagers.h"
#include "hub/HubClient.h"
#include "hub/HubSession.h"
#include "hub/HubWatcher.h"
#include "request/RequestInternal.h"
#include "request/RequestSender.h"
#include "request/Watchlist.h"

namespace tivra_internal {

/// A session as a hub connection sees it: tables of plain values, and a list of what it was told.
class FakeHubSession : public HubSession, public RetCodeTexts, public RequestSender {
public:
    // --- what a test sets ---
    tivra::Session::States state = tivra::Session::TIVRA_SESSION_UNAVAILABLE;
    bool established = false;
    bool stopping = false;
    std::function<void()> onStopTest; ///< called whenever a wait asks whether to go on
    HubClient* first = nullptr;       ///< the hub that loads the enumeration
    bool everyHubIsFirst = true;      ///< the hub under test is the newest first hub
    bool takesRequests = false;       ///< what its watchlist sends again is kept in `takenBack`
    std::set<std::string> knownHosts;
    std::set<std::string> othersAddresses; ///< no client may move there
    ConnectionManagers managers;
    bool started = false;
    bool xrefHubsComing = true;

    FakeHubSession() { managers.m_CMcheckDone = true; } // no test asks a manager unless it says so

    // --- what a test reads ---
    std::vector<std::string> told;
    std::vector<HubReport> reports;
    std::map<int, HubClient*> routes;
    std::map<int, std::string> codes;
    std::vector<std::unique_ptr<RequestInternal>> takenBack;
    bool enumLoaded = false;
    int losses = 0;
    int down = 0;

    tivra::Session::States getState() const override { return state; }
    bool isCMconnection() const override { return managers.m_isCMconnection; }
    bool getisStarted() const override { return started; }
    ConnectionManagers& getConnectionManagers() override { return managers; }
    void disableFailover() override { told.push_back("no failover"); }
    int updateCMPortPairLst() override { return managers.updateCMPortPairLst({}, {}); }
    void renameHost(const std::string& from, const std::string& to) override {
        told.push_back("rename " + from + " to " + to);
    }
    bool moveHost(HostConfigImpl&, const std::string& to) override { return othersAddresses.count(to) == 0; }
    void setXRefPort(uint16_t port) override { told.push_back("xref " + std::to_string(port)); }
    void removeXRefPort(uint16_t port) override { told.push_back("no xref " + std::to_string(port)); }
    bool areXrefHubsComing() const override { return xrefHubsComing; }
    void dropFirstHubLater(HubClient*) override { told.push_back("drop"); }
    bool isStopping() const override {
        if (onStopTest)
            onStopTest();
        return stopping;
    }
    bool isInitiallyEstablished() const override { return established; }
    int getQueueDepthThreshold() const override { return 70; }
    std::string getLanguage() const override { return "C++"; }
    // Events carry a session by its address alone.
    tivra::Session& getSession() override { return *reinterpret_cast<tivra::Session*>(&m_session); }
    const RetCodeTexts& getRetCodeTexts() const override { return *this; }
    void claimFirstHubClient(HubClient* client) override {
        if (first == nullptr)
            first = client;
    }
    bool isFirstHubClient(const HubClient* client) const override { return client == first; }
    bool isNewestFirstHub(const HubClient*) const override { return everyHubIsFirst; }
    bool isLateFirstHub(const HubClient*) const override { return false; }
    void reportHub(const HubReport& report) override { reports.push_back(report); }
    void noteHubDown(HubClient*) override { ++down; }
    void noteQueueDepth(int) override {}
    void hubHasChanged() override {}
    void countHubLoss(HubClient*) override { ++losses; }
    void enterReadyHub(HubClient* client) override {
        told.push_back(client->markReady() ? "ready, wants a handler" : "ready");
    }
    bool haveEnum() const override { return enumLoaded; }
    void setHaveEnum() override { enumLoaded = true; }
    const char* getRetCodeDesc(int code) const override {
        const auto found = codes.find(code);
        return found != codes.end() ? found->second.c_str() : "Unknown code";
    }
    void setRetCodeDesc(int code, const char* text, long length) override {
        codes[code].assign(text, static_cast<std::size_t>(length));
    }
    DictionaryCache& getDictionaryCache() override { return m_dictionaries; }
    void startDicReload() override { told.push_back("reload"); }
    void insertSessionEvent(tivra::SessionEvent::Types type, const std::string& version, int, int) override {
        told.push_back("event " + std::to_string(type) + ' ' + version);
    }
    void addBoxSource(int src, HubClient* client) override {
        told.push_back("box " + std::to_string(src));
        routes.emplace(src, client);
    }
    bool addUserSource(int src, HubClient* entHub) override {
        told.push_back("user " + std::to_string(src) + (entHub != nullptr ? " here" : ""));
        return !routes.emplace(src, entHub).second;
    }
    void assignSource(int src, HubClient* client) override {
        told.push_back("assign " + std::to_string(src));
        routes[src] = client;
    }
    PortCursor nextSourceWithoutHub(int after, HubClient*) override {
        PortCursor cursor{-1, true};
        for (const auto& [src, client] : routes) {
            if (src <= after || client != nullptr)
                continue;
            if (cursor.source >= 0) {
                cursor.last = false;
                break;
            }
            cursor.source = src;
        }
        return cursor;
    }
    HubLookup assignSourceToHost(int src, const std::string& hostInfo) override {
        if (knownHosts.count(hostInfo) == 0)
            return HubLookup::NoHostConfig;
        told.push_back("assign " + std::to_string(src) + " to " + hostInfo);
        return HubLookup::Found;
    }
    bool createHubForHost(const std::string& hostInfo, HostConfigImpl&, const char*) override {
        told.push_back("create " + hostInfo);
        return true;
    }
    void addSplitExchange(int src, HubClient*) override { told.push_back("split " + std::to_string(src)); }
    void addSplitSymbol(int src, const std::string& pattern, HubClient*) override {
        told.push_back("split " + std::to_string(src) + " by " + pattern);
    }
    Watchlist& getWatchlist() override { return m_watchlist; }
    RequestSender& getRequestSender() override { return *this; }
    void noteReplay(const RequestInternal& request, HubClient*) override {
        told.push_back("replay " + std::to_string(request.getTag()));
    }
    void noteWritten(int64_t, HubClient*) override {}
    void loseRequest(int64_t tag, HubClient*) override { told.push_back("lost " + std::to_string(tag)); }
    void endOutstanding(HubClient*) override {}
    void takeBackRequest(std::unique_ptr<RequestInternal> request, HubClient*) override {
        takenBack.push_back(std::move(request));
    }
    bool sendToHub(std::unique_ptr<RequestInternal>& request, HubClient* client, bool, int) override {
        request->setHUB(client);
        if (takesRequests)
            takenBack.push_back(std::move(request));
        return takesRequests;
    }

private:
    void* m_session = nullptr;
    DictionaryCache m_dictionaries;
    Watchlist m_watchlist;
};

} // namespace tivra_internal
