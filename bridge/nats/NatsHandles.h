#pragma once

#include <nats/nats.h>

#include <memory>

namespace tivra_bus {

/// Owns what the client library gives out.
template<class T, auto DESTROY>
struct NatsDestroy {
    void operator()(T* handle) const noexcept { DESTROY(handle); }
};
template<class T, auto DESTROY>
using NatsHandle = std::unique_ptr<T, NatsDestroy<T, DESTROY>>;

using NatsMessage = NatsHandle<natsMsg, natsMsg_Destroy>;
using NatsOptions = NatsHandle<natsOptions, natsOptions_Destroy>;
using NatsSubscription = NatsHandle<natsSubscription, natsSubscription_Destroy>;
using NatsAcknowledgement = NatsHandle<jsPubAck, jsPubAck_Destroy>;
using NatsStreamInfo = NatsHandle<jsStreamInfo, jsStreamInfo_Destroy>;
using NatsContext = NatsHandle<jsCtx, jsCtx_Destroy>;
using NatsBucket = NatsHandle<kvStore, kvStore_Destroy>;
using NatsEntry = NatsHandle<kvEntry, kvEntry_Destroy>;
using NatsWatcher = NatsHandle<kvWatcher, kvWatcher_Destroy>;

} // namespace tivra_bus
