#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <feed/Password.h>

#include "dictionary/TokenRows.h"
#include "hub/HubVersion.h"
#include "hub/RetryPace.h"

namespace KVNAPI {
class Message;
} // namespace KVNAPI

namespace tivra_internal {

struct MessageField;
class DictionaryStep;
class HandshakeContext;
class PasswordQuestion;

// The steps of a handshake, in their order; nextHandshakeStep chooses. Each asks the hub for one thing and
// takes the answer, and stands in a source file of its own.

/// The login: what the hub learns about user and program, and when a hub that has refused it may be dialled
/// again.
class LoginStep {
public:
    /// `chance` gives numbers from 0 up to 1, which keep clients apart that were refused together.
    LoginStep(HandshakeContext& context, std::function<double()> chance);

    ~LoginStep();
    LoginStep(const LoginStep&) = delete;
    LoginStep& operator=(const LoginStep&) = delete;

    /// Result 1: the login request is out, or will be once the application has given the password; -1: it
    /// isn't.
    int ask();
    /// Goes on when the password has come.
    void tick();
    void take(const KVNAPI::Message& msg);
    /// The connection is closed.
    void forget();
    /// The application is asked for the password.
    [[nodiscard]] bool awaitsPassword() const { return m_question != nullptr; }

    /// @thread any
    [[nodiscard]] bool isLoggedIn() const { return m_logged_in.load(std::memory_order_relaxed); }
    /// False while a hub that has refused the login is to be left alone.
    [[nodiscard]] bool mayDial() const;
    /// A hub that has refused the login is not to be dialled again, until somebody asks for it.
    [[nodiscard]] bool isBarred() const { return m_isBarred.load(std::memory_order_relaxed); }
    void lift() { m_isBarred = false; }
    /// When it may be, by the monotonic clock.
    [[nodiscard]] double nextDial() const { return m_loginPace.nextDial(); }

private:
    int send(const tivra::Password& password);
    void refuse(const std::string& reason);

    HandshakeContext& m_context;
    RetryPace m_loginPace;
    std::atomic<bool> m_isBarred{false};
    std::shared_ptr<PasswordQuestion> m_question; ///< while it is open
    std::atomic<bool> m_logged_in{false};
};

/// The texts of the return codes, which the first hub client of a session loads for all.
class ReturnCodesStep {
public:
    explicit ReturnCodesStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);

private:
    void addReturnCode(int64_t code, const KVNAPI::Message& msg);

    HandshakeContext& m_context;
};

/// What a hub is asked for about the conflation of its data: interval and type.
class ConflationStep {
public:
    explicit ConflationStep(HandshakeContext& context) : m_context(context) {}

    int askInterval();
    void takeInterval();
    int askType(HubVersion version);
    void takeType(const KVNAPI::Message& msg);

private:
    HandshakeContext& m_context;
};

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

/// The download of a dictionary, into the session's cache or, for a version that is this hub's alone, beside
/// it.
class DictionaryStep {
public:
    explicit DictionaryStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);
    /// Enters the rows of the hub's version in its dictionary.
    void load();
    /// The connection is closed; a download that this cuts short is taken up again.
    void forget();

private:
    void end(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
    TokenRows tmpTokenMap; ///< rows of a dictionary version that is this hub's alone
    bool m_isFull = false; ///< a row of this download has been ignored for want of room
};

/// The first look-up of a port, whose answer says what the group around a hub looks like: the hub alone, an
/// aggregating one, or one of several.
class GroupStep {
public:
    explicit GroupStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the answer can't be used.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);
    void suspendForUnknownAddress(const std::string& response);
    void joinGroup();

    HandshakeContext& m_context;
    std::vector<std::string> m_otherHubs; ///< the other members of an n-way group, host and port
};

/// The ports of a hub group behind a connection manager, which hands out the hubs for them.
class AllPortsStep {
public:
    explicit AllPortsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    void take(const KVNAPI::Message& msg);

private:
    void createHubsOfManager(const std::set<uint16_t>& ports);

    HandshakeContext& m_context;
};

/// The regular expression in a split symbol, which stands in delimiters, with "~" for alternation. Empty,
/// with a log line, when the symbol is too short to hold one.
[[nodiscard]] std::string splitPatternOf(std::string_view symbol);

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

/// The sources that a hub itself carries.
class BoxEntitlementsStep {
public:
    explicit BoxEntitlementsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the system source is not among them: the hub is of no use.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
};

/// The sources that the user may see, which the first hub asks for once its siblings have listed theirs.
class EntitlementsStep {
public:
    explicit EntitlementsStep(HandshakeContext& context) : m_context(context) {}

    int ask();
    /// False when the system source is not among them: the user can't be served.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

    /// The siblings are waited for, from now on.
    void awaitSiblings();
    /// @thread any
    [[nodiscard]] bool waitsForSiblings() const { return m_siblings.load() != Siblings::NotAwaited; }
    /// The siblings are ready; tick() goes on. @thread any
    void siblingsAreReady();
    void tick();
    /// The connection is closed.
    void forget() { m_siblings = Siblings::NotAwaited; }

private:
    enum class Siblings { NotAwaited, Awaited, Ready };

    void takeAnswer(const KVNAPI::Message& msg);

    HandshakeContext& m_context;
    std::atomic<Siblings> m_siblings{Siblings::NotAwaited};
};

/// The look-up of the hub for each source of the user that no hub of the group lists: one source after the
/// other, the answer to each request asks for the next.
class PortsStep {
public:
    explicit PortsStep(HandshakeContext& context) : m_context(context) {}

    /// True when a request went out, false when no source is left to ask about.
    [[nodiscard]] bool ask();
    /// True when the next step is to be chosen.
    [[nodiscard]] bool take(const KVNAPI::Message& msg);

private:
    void takeAnswer(const KVNAPI::Message& msg);
    [[nodiscard]] std::string memberOf(int src, const std::string& host, uint16_t port) const;
    [[nodiscard]] bool assignToMember(int src, const std::string& host);

    HandshakeContext& m_context;
};

/// The two subscriptions that every connection holds: to the heartbeat and to the status of the hub.
class SubscriptionsStep {
public:
    explicit SubscriptionsStep(HandshakeContext& context) : m_context(context) {}

    int askHeartbeat();
    void takeHeartbeat(const KVNAPI::Message& msg);
    int askHubStatus();
    void takeHubStatus(const KVNAPI::Message& msg);

private:
    void countRefusal(long& refusals);

    HandshakeContext& m_context;
};

} // namespace tivra_internal
