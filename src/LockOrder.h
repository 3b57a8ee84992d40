#pragma once

#include <tp/Mutex.h>

/// The one order in which the engine's mutexes may be taken: a thread that holds a mutex may only take one of
/// a higher number. Debug builds check it at run time. docs/architecture.md explains the groups.
namespace tivra_internal {

inline constexpr tp::LockRank kLockStart{10, "m_start_mutex"};
inline constexpr tp::LockRank kLockStop{20, "m_stop_mutex"};
inline constexpr tp::LockRank kLockDisconnectHubClientLst{30, "disconnectHubClientLst_mutex"};
inline constexpr tp::LockRank kLockNewQRHQueue{40, "newQRHQueue_mutex"};
inline constexpr tp::LockRank kLockReadHandlerPointer{50, "HubClient::m_rqh_mutex"};
inline constexpr tp::LockRank kLockReqQ{60, "m_reqQ_mutex"};
inline constexpr tp::LockRank kLockRegisterHub{70, "m_registerHub_mutex"};
inline constexpr tp::LockRank kLockQueueReset{80, "Queue::m_reset_mutex"};
// Taken in callbacks, which run under the one before. Hubs are asked to dial under the first; requests are
// sent under that of the group, and under the one after it.
inline constexpr tp::LockRank kLockFeed{81, "FeedImpl::m_mutex"};
inline constexpr tp::LockRank kLockFeedGroup{82, "GroupState::m_mutex"};
inline constexpr tp::LockRank kLockFeedSend{84, "FeedRegistry::m_sendMutex"};
inline constexpr tp::LockRank kLockFeedRegistry{86, "FeedRegistry::m_mutex"};
inline constexpr tp::LockRank kLockXRefHubLst{90, "m_XRefHubLst_mutex"};
inline constexpr tp::LockRank kLockHubSourceStatus{100, "m_hubSourceStatus_mutex"};
inline constexpr tp::LockRank kLockHubClientsMap{110, "m_hubClientsMap_mutex"};
// Whoever waits for a password is woken under it.
inline constexpr tp::LockRank kLockPasswordQuestion{115, "PasswordQuestion::m_mutex"};
inline constexpr tp::LockRank kLockHubClient{120, "a mutex of HubClient"};
inline constexpr tp::LockRank kLockHubER{130, "m_hubER_mutex"};
inline constexpr tp::LockRank kLockSessionRequest{140, "RequestQueue::m_request_mutex"};
inline constexpr tp::LockRank kLockReactorRequest{150, "HubEventReactor::m_request_mutex"};
inline constexpr tp::LockRank kLockHubWatchlist{160, "HubWatchlist::m_watchlist_mutex"};
inline constexpr tp::LockRank kLockWatchlist{170, "Watchlist::m_watchlist_mutex"};
inline constexpr tp::LockRank kLockReqRespMap{180, "m_reqRespMap_mutex"};

// Leaf mutexes: held alone, but for the pairs that the numbers below allow.
// A dictionary is loaded under it, which takes the mutex of the data map.
inline constexpr tp::LockRank kLockDictionaryCache{990, "dicVersionTokenMap_mutex"};
// Names of fields are looked up under it.
inline constexpr tp::LockRank kLockUpdateQueue{995, "QueueState::m_mutex"};
// Events of the alarm are put into the queue of events under it.
inline constexpr tp::LockRank kLockQueueDepth{1000, "QueueDepthAlarm::m_depth_mutex"};
inline constexpr tp::LockRank kLockHostConfigMap{1000, "hostConfigMap_mutex"};
inline constexpr tp::LockRank kLockHost{1010, "m_host_mutex"};
inline constexpr tp::LockRank kLockParameters{1020, "HostConfigImpl's parameter mutex"};
// Of a value of a host, which hosts that inherit from each other share, and of those of all connections.
inline constexpr tp::LockRank kLockParameterTexts{1025, "the texts of parameters"};
inline constexpr tp::LockRank kLockSessionEvent{1010, "m_session_event_mutex"};
inline constexpr tp::LockRank kLockThreadVector{1010, "m_threadVector_mutex"};
inline constexpr tp::LockRank kLockAbort{1010, "m_abort_mutex"};
inline constexpr tp::LockRank kLockHubAuthStateMap{1000, "m_hubAuthStateMap_mutex"};
inline constexpr tp::LockRank kLockUser{1000, "m_user_mutex"};
// The texts of HubAddress and Suspension. Their getters may be called under any other mutex, for a log line.
inline constexpr tp::LockRank kLockHubTexts{1030, "the texts of a HubClient"};
inline constexpr tp::LockRank kLockHubReady{1040, "HubClient::m_ready_mutex"};
inline constexpr tp::LockRank kLockNatPairs{1040, "m_nat_mutex"};
// A thread is woken under any other mutex.
inline constexpr tp::LockRank kLockUserLoops{1050, "UserLoops::m_mutex"};
// Those of the process, which a fork takes together.
inline constexpr tp::LockRank kLockFactory{1060, "the factory's mutex"};
inline constexpr tp::LockRank kLockLiveObjects{1070, "LiveObjects::m_mutex"};
inline constexpr tp::LockRank kLockLanguage{1080, "the language word's mutex"};
inline constexpr tp::LockRank kLockStandIns{1085, "the mutex of the stand-ins"};

} // namespace tivra_internal
