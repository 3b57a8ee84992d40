#include "run/StateNames.h"

namespace tivra_bus {

const char* nameOf(tivra::DataState state) {
    switch (state) {
    case tivra::DataState::Pending:
        return "pending";
    case tivra::DataState::Live:
        return "live";
    case tivra::DataState::Stale:
        return "stale";
    case tivra::DataState::Recovering:
        return "recovering";
    case tivra::DataState::Refused:
        return "refused";
    case tivra::DataState::Closed:
        return "closed";
    }
    return "";
}

const char* nameOf(tivra::Gap::Cause cause) {
    switch (cause) {
    case tivra::Gap::Cause::Loss:
        return "loss";
    case tivra::Gap::Cause::Withdrawal:
        return "withdrawal";
    case tivra::Gap::Cause::Overrun:
        return "overrun";
    case tivra::Gap::Cause::Conflation:
        return "conflation";
    }
    return "";
}

const char* statusOf(tivra::FeedState state) {
    switch (state) {
    case tivra::FeedState::Established:
        return "up";
    case tivra::FeedState::Recovering:
    case tivra::FeedState::Connecting:
        return "stale";
    case tivra::FeedState::Closed:
        return "down";
    }
    return "";
}

} // namespace tivra_bus
