#pragma once

#include "receive/LibraryTags.h"

namespace tivra_internal {

/// The tags of the library's own requests; an application's requests start above them.
enum HubClientCommands : int {
    LOGIN = 1,
    GET_ENUM = 2,
    SET_CONFLATION_INTERVAL = 3,
    SET_CONFLATION_TYPE = 4,
    GET_ADMIN = 5,
    GET_DIC = 6,
    AGG_CHECK = 7,
    GET_SPLIT = 8,
    GET_BOX_ENTITLEMENTS = 9,
    GET_ENTITLEMENTS = 10,
    GET_PORT = 11,
    GET_STATUS = kGetStatusTag,
    GET_HUBSTATUS = kGetHubStatusTag,
    DUMMY_REQ = 14,
    GET_ALLPORTS = 15,
    GET_XREFPORT = 16,
    REPORT_API_STATS = kReportApiStatisticsTag,
    FIRST_AVAILABLE_USER_TAG = kFirstUserTag
};

} // namespace tivra_internal
