#pragma once

#include <functional>

#include "hub/handshake/HandshakeContext.h"
#include "hub/handshake/NextStep.h"
#include "hub/handshake/Steps.h"

namespace tivra_internal {

/// The exchange that brings a connection from the login to ready: one request at a time, each answer drives
/// the next. What it has learnt of the hub outlives the connection. @thread hub, but for the getters that say
/// otherwise.
class Handshake {
public:
    /// `chance` gives numbers from 0 up to 1, see LoginStep.
    Handshake(HandshakePort& port, HubSession& session, UserInfoImpl& user, const HubAddress& address,
              MetaTokenMap& dictionary, const HubClientOptions& options, std::function<double()> chance);
    Handshake(const Handshake&) = delete;
    Handshake& operator=(const Handshake&) = delete;

    /// The hub is connected.
    void begin();
    /// Result 1: the login request is out; -1: it isn't.
    int login() { return m_login.ask(); }
    /// Takes what the hub has sent and asks for what comes next.
    void take(const KVNAPI::Message& msg);
    /// Goes on when the wait for the password or for the siblings has ended.
    void tick();
    /// The application is asked for the password.
    [[nodiscard]] bool awaitsPassword() const { return m_login.awaitsPassword(); }
    /// Nobody waits for it any more: the connection goes for good.
    void dropLogin() { m_login.forget(); }
    /// The connection is closed.
    void forget();
    /// The address is another hub's, which a connection manager has handed out.
    void hubReplaced();
    /// Subscriptions that a request may ask to renew.
    int subscribeHeartbeat() { return m_subscriptions.askHeartbeat(); }
    int subscribeHubStatus() { return m_subscriptions.askHubStatus(); }

    /// Of the connection, later by what it has waited for siblings and for the password; monotonic.
    [[nodiscard]] double beginTime() const { return m_context.state.m_beginTime; }
    /// False while a hub that has refused the login is to be left alone.
    [[nodiscard]] bool mayDial() const { return m_login.mayDial(); }
    [[nodiscard]] double nextDial() const { return m_login.nextDial(); }
    /// The hub has refused the login, and isn't dialled before somebody asks for it.
    [[nodiscard]] bool isBarred() const { return m_login.isBarred(); }
    /// As if it had refused none.
    void lift() { m_login.lift(); }

    // --- @thread any ---
    [[nodiscard]] bool isLoggedIn() const { return m_login.isLoggedIn(); }
    [[nodiscard]] HubVersion hubVersion() const { return m_administration.hubVersion(); }
    [[nodiscard]] HubKind hubKind() const { return m_context.known.m_kind; }
    [[nodiscard]] bool waitsForSiblings() const { return m_entitlements.waitsForSiblings(); }
    void siblingsAreReady() { m_entitlements.siblingsAreReady(); }

private:
    [[nodiscard]] bool dispatch(int tag, const KVNAPI::Message& msg);
    [[nodiscard]] bool takeAllPorts(int tag, const KVNAPI::Message& msg);
    void noteUntagged(const KVNAPI::Message& msg);
    void takeNextStep(int tag);
    [[nodiscard]] HandshakeSituation situation() const;
    void run(HandshakeStep step, int tag);
    void sendDummyRequest();

    HandshakeContext m_context;
    LoginStep m_login;
    ReturnCodesStep m_returnCodes{m_context};
    DictionaryStep m_dictionary{m_context};
    AdministrationStep m_administration{m_context, m_dictionary};
    ConflationStep m_conflation{m_context};
    GroupStep m_group{m_context};
    AllPortsStep m_allPorts{m_context};
    SplitStep m_split{m_context};
    BoxEntitlementsStep m_boxEntitlements{m_context};
    EntitlementsStep m_entitlements{m_context};
    PortsStep m_ports{m_context};
    SubscriptionsStep m_subscriptions{m_context};
};

} // namespace tivra_internal
