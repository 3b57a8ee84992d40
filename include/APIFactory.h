#pragma once

#include <string>

#include "TivraApi.h"

namespace tivra {

class PasswordHandler;
class Session;
class SessionEventHandler;
class UserEventHandler;
class UserInfo;

/// The door of the library: one object per process that sets up logging and makes and destroys users and
/// sessions.
///
/// Every object that it hands out stays the library's and is given back through the matching `destroy`
/// operation; it can't be copied, moved or deleted by the application.
///
/// A child that the process forks has no part in what its parent has made: calls on a session, a user, a
/// request or a setting from before the fork fail there, each as it says, with one critical line in the log,
/// and their destruction releases none of what they hold. The parent isn't affected. A child may make a user
/// and a session of its own, once it has destroyed a session from before. In a child that is forked in a
/// callback only `exec` and `_exit` may follow.
///
/// @thread application. The first getInstance() must come before a second thread of the application uses
/// the factory; createSession() and destroySession() may afterwards be called from any application thread.
class TIVRA_API APIFactory {
public:
    APIFactory(const APIFactory&) = delete;
    APIFactory& operator=(const APIFactory&) = delete;

    /// Gives the factory, made by the first call.
    /// @return never null; valid until uninitialize().
    static APIFactory* getInstance();

    /// Sets up logging. Call it once, before anything else that logs.
    ///
    /// The log goes to a file named `logFileName` with ".%m%d%Y" of the local date behind it, and rolls at
    /// midnight. When the name or the prefix had to be cut, or the file can't be opened, one line says so on
    /// standard error; the library never writes to the terminal otherwise.
    ///
    /// @param appName      first half of the prefix of each log line.
    /// @param appVersion   second half of it; the prefix "name-version" is cut to 63 characters.
    /// @param debug        true writes the debug level and the source file and line into the log.
    /// @param logFileName  base of the log file's name, with its directory; cut to 63 characters.
    /// @param usage        the language word that hubs are told at login; empty or "External" keeps "C++".
    /// @return always 0.
    int initialize(const std::string& appName, const std::string& appVersion, bool debug,
                   const std::string& logFileName, std::string usage = std::string());

    /// Closes the log and destroys the factory; a later getInstance() makes a new one. Destroy every session
    /// and user first.
    /// @return always 0.
    int uninitialize();

    /// Makes the identity that a session logs in with.
    /// @param userName      the user's name at the hubs; with a "|" or a control character Session::start
    /// fails.
    /// @param password      the user's password, which may have neither; it is never written to the log.
    /// @param userHandler   told of login results; stays the application's and must outlive the user.
    /// @return valid until destroyUserInfo().
    UserInfo& createUserInfo(const std::string& userName, const std::string& password,
                             UserEventHandler& userHandler);

    /// The same for a password that is asked for at each login.
    /// @param userName      as above.
    /// @param passwords     stays the application's and must outlive the user.
    /// @param userHandler   as above.
    /// @return valid until destroyUserInfo().
    UserInfo& createUserInfo(const std::string& userName, PasswordHandler& passwords,
                             UserEventHandler& userHandler);

    /// Destroys a user. A user that a live session refers to is kept and a critical line is logged; so it is
    /// when called on a thread of the library. An object that the factory doesn't know (destroyed twice, for
    /// example) is logged at the warning level and left alone.
    void destroyUserInfo(UserInfo& userInfo);

    /// Makes a session in state Session::TIVRA_SESSION_UNAVAILABLE. Nothing is connected before
    /// Session::start.
    ///
    /// Only one session at a time can run in a process. A session made while another one exists can be
    /// configured and destroyed, but its `start` fails, for its whole life.
    /// @param userInfo         must outlive the session.
    /// @param sessionHandler   told of session events; stays the application's and must outlive the session.
    /// @return valid until destroySession().
    Session& createSession(UserInfo& userInfo, SessionEventHandler& sessionHandler);

    /// Stops the session if it runs, waits for its threads and destroys it. On a thread of the library
    /// (inside a callback, that is) it logs at the critical level and destroys nothing. An object that the
    /// factory doesn't know is logged at the warning level and left alone.
    void destroySession(Session& session);

private:
    APIFactory() = default;
    ~APIFactory() = default;

    static APIFactory* instance;
    static int referenceCount;
};

} // namespace tivra
