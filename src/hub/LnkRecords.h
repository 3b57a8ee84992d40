#pragma once

#include <cstdint>

namespace tivra_internal {

/// What the connection manager's client library tells of itself; zeroed by the caller.
struct LnkApiVersion2 {
    char szProductVersion[32];
    char szBuildDate[32];
    uint16_t wMajorBuildNumber;
    uint16_t wMinorBuildNumber;
    char szDescription[128];
    char cBuildType;
    uint16_t wApiSupport;
    char cPadding[1];
};

/// What the connection manager's client library is told of the program that uses it.
struct LnkApplicationVersion {
    char szProgramName[13];
    uint16_t wBuildNumber;
    struct {
        uint8_t nMonth;
        uint8_t nDay;
        uint16_t nYear;
    } sDate;
    char szMisc[5];
};

// The records cross into a library that was built elsewhere.
static_assert(sizeof(LnkApiVersion2) == 202);
static_assert(sizeof(LnkApplicationVersion) == 26);

} // namespace tivra_internal
