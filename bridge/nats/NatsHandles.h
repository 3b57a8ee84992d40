#pragma once

#include "bus/Handle.h"

#include <nats/nats.h>

namespace tivra_bus {

using NatsMessage = Handle<natsMsg, natsMsg_Destroy>;
using NatsOptions = Handle<natsOptions, natsOptions_Destroy>;
using NatsSubscription = Handle<natsSubscription, natsSubscription_Destroy>;
using NatsAcknowledgement = Handle<jsPubAck, jsPubAck_Destroy>;
using NatsStreamInfo = Handle<jsStreamInfo, jsStreamInfo_Destroy>;
using NatsContext = Handle<jsCtx, jsCtx_Destroy>;
using NatsBucket = Handle<kvStore, kvStore_Destroy>;
using NatsEntry = Handle<kvEntry, kvEntry_Destroy>;

} // namespace tivra_bus
