#pragma once

#include <atomic>
#include <memory>
#include <string>

#include <feed/Password.h>

namespace tivra_internal {

class ConnectionManagers;
class HostConfigImpl;
class HubAddress;
class PasswordQuestion;
class SessionManagers;
class SessionStanding;
class UserInfoImpl;
struct HubClientOptions;

/// Asks the connection managers for the hub that one client dials. @thread hub, but for the getters that say
/// otherwise.
class ManagerLookup {
public:
    enum class Outcome {
        NotAsked,  ///< the address stands, as does a dial that is under way
        NoManager, ///< the host that is configured is dialled itself
        Found,     ///< the address is that of the hub which the manager has handed out
        Again,     ///< the manager is asked, or asked again, at the next tick
        Failed
    };

    ManagerLookup(SessionManagers& managers, const SessionStanding& session, UserInfoImpl& user,
                  const HubClientOptions& options, HubAddress& address);
    ~ManagerLookup();
    ManagerLookup(const ManagerLookup&) = delete;
    ManagerLookup& operator=(const ManagerLookup&) = delete;

    /// What is to be dialled. `isComingXref`: when this hub fails it is left out.
    [[nodiscard]] Outcome ask(bool isComingXref);
    /// A dial that has timed out may go on with another hub.
    [[nodiscard]] bool mayReplaceHub(bool isComingXref) const;

    /// The next dial asks the manager for a hub.
    void wantHub(bool wanted) { m_requestHUBFromCM.store(wanted); }
    /// A manager replaces a hub that is lost or can't be reached by another.
    void noteLoss();
    /// The hub is ready: look-ups are counted anew.
    void noteReady();
    /// As after the construction, for a client that was taken out and comes back.
    void startAnew();

    /// @thread any
    [[nodiscard]] bool isPastRetryLimit() const { return m_CMconnectionRetries.load() >= m_retryLimit; }
    /// The manager's status of the last failed connect, 0 when that failed otherwise. @thread any
    [[nodiscard]] int lnkapiErrno() const { return m_lnkapiErrno.load(); }
    void resetLnkapiErrno() { m_lnkapiErrno.store(0); }

private:
    [[nodiscard]] Outcome unaskedInClear();
    [[nodiscard]] Outcome libraryMissing(ConnectionManagers& managers);
    [[nodiscard]] Outcome unasked(ConnectionManagers& managers, const char* line);
    [[nodiscard]] bool initializeLibrary(ConnectionManagers& managers);
    [[nodiscard]] Outcome giveUp(int rc);
    [[nodiscard]] Outcome firstLookupFailed(ConnectionManagers& managers, const std::string& cmAddr, int rc);
    [[nodiscard]] Outcome lookupFailed(const std::string& cmAddr, int rc, bool isComingXref);
    [[nodiscard]] Outcome takeHub(ConnectionManagers& managers, std::string cmAddr, const std::string& hubIp);
    [[nodiscard]] bool acceptManagers(ConnectionManagers& managers);
    void useHub(ConnectionManagers& managers, const std::string& cmAddr, const std::string& hubIp);
    /// False as long as the application is asked for the password.
    [[nodiscard]] bool havePassword();
    /// Another client has found out meanwhile that none is to be asked.
    void dropQuestion();
    [[nodiscard]] int askManagers(std::string& cmAddr, std::string& hubIp, bool isKnownManager);
    [[nodiscard]] int lookUp(const std::string& managerAddr, std::string& hubIp);
    /// The address of a hub from the known managers. `port` 0: each is asked at its own port, otherwise at
    /// the hub's. The result is the status of the last look-up.
    [[nodiscard]] int getHUBFromCM(std::string& cmAddr, std::string& hubIp, int port);
    [[nodiscard]] int askManagersInTurn(ConnectionManagers& managers, const std::string& tried,
                                        std::string& cmAddr, std::string& hubIp, int port, int rc);

    SessionManagers& m_managers;
    const SessionStanding& m_session;
    UserInfoImpl& m_user;
    HostConfigImpl* const m_hostConfig; ///< may be null
    const long m_connectionTimeout;     ///< seconds
    const bool m_isEncrypted;           ///< or has to be
    const long m_retryLimit;
    HubAddress& m_address;

    std::atomic<bool> m_requestHUBFromCM{false};
    std::atomic<long> m_CMconnectionRetries{0}; ///< look-ups since the last success
    std::atomic<int> m_lnkapiErrno{0};
    std::shared_ptr<PasswordQuestion> m_question; ///< while it is open
    tivra::Password m_password;                   ///< of one walk over the managers, where it is asked for
    bool m_isUnaskedKnown = false;                ///< the log has said why none is asked
};

} // namespace tivra_internal
