#pragma once

/// @file
/// The feed: connections, subscriptions and answers in one object.

#include "feed/Answer.h"
#include "feed/Board.h"
#include "feed/ConnectionEvent.h"
#include "feed/EntryIterator.h"
#include "feed/Enumerations.h"
#include "feed/Error.h"
#include "feed/Feed.h"
#include "feed/FeedOptions.h"
#include "feed/Field.h"
#include "feed/HubStatistics.h"
#include "feed/Instrument.h"
#include "feed/LatencySummary.h"
#include "feed/Log.h"
#include "feed/Opening.h"
#include "feed/Password.h"
#include "feed/Record.h"
#include "feed/Result.h"
#include "feed/SlowCallback.h"
#include "feed/Snapshot.h"
#include "feed/Subscription.h"
#include "feed/SubscriptionGroup.h"
#include "feed/Update.h"
#include "feed/UpdateQueue.h"
#include "feed/Value.h"
