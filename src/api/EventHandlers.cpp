#include <session/MessageEventHandler.h>
#include <session/SessionEventHandler.h>
#include <session/StatisticsEventHandler.h>
#include <user/PasswordHandler.h>
#include <user/UserEventHandler.h>

// Defined here so that the tables of the abstract classes live in the library alone.
namespace tivra {

SessionEventHandler::~SessionEventHandler() = default;
MessageEventHandler::~MessageEventHandler() = default;
StatisticsEventHandler::~StatisticsEventHandler() = default;
UserEventHandler::~UserEventHandler() = default;
PasswordHandler::~PasswordHandler() = default;

} // namespace tivra
