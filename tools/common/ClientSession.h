#pragma once

#include <tivra.h>

#include <string>

namespace tivra_tools {

/// The library's objects of one program, a user and a session, given back in their order. Used by the main
/// thread.
class ClientSession {
public:
    /// What the library's log calls the program, and where that log is.
    struct Program {
        std::string name;
        std::string version;
        std::string logFile; ///< base name, as logFileName gives it
        bool isDebug = false;
    };

    ClientSession(const Program& program, const std::string& user, const std::string& password,
                  tivra::UserEventHandler& userHandler, tivra::SessionEventHandler& sessionHandler);
    ~ClientSession();
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    [[nodiscard]] tivra::Session& session() const { return m_session; }

private:
    tivra::APIFactory& m_factory;
    tivra::UserInfo& m_user;
    tivra::Session& m_session;
};

} // namespace tivra_tools
