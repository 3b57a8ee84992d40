#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include <tp/Mutex.h>

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

/// The connection manager's client library, liblnkapi64.so. It is looked for when it is needed first, so that
/// a process without it runs as if there were no connection managers. The library makes no promise about
/// threads, so one mutex of the process serialises all calls; a look-up may hold it for its whole time limit.
/// @thread any
class LnkApi {
public:
    /// The one binding of the process; what it has loaded stays loaded.
    [[nodiscard]] static LnkApi& instance();

    LnkApi(const LnkApi&) = delete;
    LnkApi& operator=(const LnkApi&) = delete;

    /// False when the library, or one of its operations, can't be found. A failure is not remembered: the
    /// next session may find a library that has been installed meanwhile.
    [[nodiscard]] bool load();

    // The operations. Each returns a status of the library, 0 for success, and LNKAPI_ERROR_NOT_INITIALIZED
    // while nothing is loaded.

    /// Routes the library's log lines into ours.
    int setLogListener();
    [[nodiscard]] int initialize(LnkApplicationVersion& application, LnkApiVersion2& library);
    [[nodiscard]] int setConnectionTimeout(int milliseconds);
    /// The address of a hub, from the manager at `managerAddr` (address, colon and the hub's port). Blocks up
    /// to the connection time-out. `hubIp` is empty unless the answer is the text of an address. Questions of
    /// other threads come first: when `isStopping` says so after that wait, nothing is asked any more and the
    /// status is LNKAPI_ERROR_NOTCONNECTED.
    [[nodiscard]] int getServerIP(const std::string& managerAddr, const std::string& user,
                                  const std::string& password, std::string& hubIp,
                                  const std::function<bool()>& isStopping);
    void cleanup();

private:
    struct Operations;

    LnkApi() = default;

    tp::Mutex m_mutex; ///< held around the loading and every call into the library
    /// Set once, under the mutex; whether it is set can be asked while another thread waits for an answer.
    std::atomic<const Operations*> m_operations{nullptr};
};

} // namespace tivra_internal
