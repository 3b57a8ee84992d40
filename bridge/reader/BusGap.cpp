#include "reader/BusGap.h"

namespace tivra {

const char* nameOf(BusGap::Cause cause) {
    switch (cause) {
    case BusGap::Cause::Loss:
        return "loss";
    case BusGap::Cause::Withdrawal:
        return "withdrawal";
    case BusGap::Cause::Overrun:
        return "overrun";
    case BusGap::Cause::Conflation:
        return "conflation";
    case BusGap::Cause::Takeover:
        return "takeover";
    case BusGap::Cause::Overflow:
        return "overflow";
    case BusGap::Cause::Expired:
        return "expired";
    case BusGap::Cause::Unreadable:
        return "unreadable";
    case BusGap::Cause::Missing:
        return "missing";
    }
    return "";
}

} // namespace tivra
