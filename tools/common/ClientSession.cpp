#include "common/ClientSession.h"

namespace tivra_tools {

namespace {

tivra::APIFactory& initializedFactory(const ClientSession::Program& program) {
    tivra::APIFactory* factory = tivra::APIFactory::getInstance();
    factory->initialize(program.name, program.version, program.isDebug, program.logFile);
    return *factory;
}

} // namespace

ClientSession::ClientSession(const Program& program, const std::string& user, const std::string& password,
                             tivra::UserEventHandler& userHandler, tivra::SessionEventHandler& sessionHandler)
    : m_factory(initializedFactory(program))
    , m_user(m_factory.createUserInfo(user, password, userHandler))
    , m_session(m_factory.createSession(m_user, sessionHandler)) {}

ClientSession::~ClientSession() {
    m_factory.destroySession(m_session);
    m_factory.destroyUserInfo(m_user);
    m_factory.uninitialize();
}

} // namespace tivra_tools
