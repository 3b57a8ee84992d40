#pragma once

#include "hub/SessionDictionaries.h"
#include "hub/SessionHubs.h"
#include "hub/SessionManagers.h"
#include "hub/SessionRequests.h"
#include "hub/SessionSources.h"
#include "hub/SessionStanding.h"

namespace tivra_internal {

/// All that a hub connection may ask of the session that owns it; each of its parts takes what it needs.
class HubSession : public SessionStanding,
                   public SessionHubs,
                   public SessionManagers,
                   public SessionDictionaries,
                   public SessionSources,
                   public SessionRequests {};

} // namespace tivra_internal
