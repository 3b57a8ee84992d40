#pragma once

/// @file
/// The whole public interface of tivra in one include.
///
/// The order of an application's life with the library:
///  1. tivra::APIFactory::getInstance and tivra::APIFactory::initialize, once.
///  2. tivra::APIFactory::createUserInfo, then tivra::APIFactory::createSession.
///  3. tivra::Session::getSessionConfig, tivra::Session::getConnectionConfig and
///     tivra::ConnectionConfig::getHostConfig, with their `set` calls. At least one host must be named.
///  4. tivra::Session::registerMessageEventHandler (mandatory) and, if wanted,
///     tivra::Session::registerStatisticsEventHandler.
///  5. tivra::Session::start, which blocks until the session is established or has been given up.
///  6. tivra::Session::createRequest, tivra::Request::add, tivra::Session::send,
///     tivra::Session::freeRequest, as often as wanted.
///  7. tivra::Session::stop, then tivra::APIFactory::destroySession,
///     tivra::APIFactory::destroyUserInfo and tivra::APIFactory::uninitialize.

/// @namespace tivra
/// All that the library offers to applications.

#include "APIFactory.h"
#include "TivraApi.h"
#include "TivraVersion.h"
#include "data/Date.h"
#include "data/DateTime.h"
#include "data/MessageReader.h"
#include "data/Time.h"
#include "data/ValueTypes.h"
#include "event/MessageEvent.h"
#include "event/SessionEvent.h"
#include "event/StatisticsEvent.h"
#include "event/StatisticsText.h"
#include "event/UserEvent.h"
#include "request/Commands.h"
#include "request/Request.h"
#include "request/RequestParameters.h"
#include "session/ConnectionConfig.h"
#include "session/HostConfig.h"
#include "session/MessageEventHandler.h"
#include "session/Session.h"
#include "session/SessionConfig.h"
#include "session/SessionEventHandler.h"
#include "session/StatisticsEventHandler.h"
#include "user/PasswordHandler.h"
#include "user/UserEventHandler.h"
#include "user/UserInfo.h"
