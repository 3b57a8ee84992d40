#include "hub/LnkApi.h"

#include <arpa/inet.h>
#include <dlfcn.h>

#include <array>

#include <tp/eprintf.h>

#include "hub/LnkApiErrors.h"

namespace tivra_internal {

namespace {

constexpr const char* kLibrary = "liblnkapi64.so";
constexpr int kLogMask = 0x10007;
constexpr int kAnswerSize = 4096;

extern "C" void LnkapiLogListener(const char* line) {
    eprintf(EPF_DBUG, "lnkapi: %s", line != nullptr ? line : "");
}

template<typename Operation>
bool find(void* library, const char* name, Operation& operation) {
    operation = reinterpret_cast<Operation>(::dlsym(library, name));
    return operation != nullptr;
}

} // namespace

struct LnkApi::Operations {
    int (*LnkSetLogListener)(void (*listener)(const char*), int mask) = nullptr;
    int (*LnkInitializeEx2)(LnkApplicationVersion*, LnkApiVersion2*) = nullptr;
    int (*LnkSetConnectionTimeout)(int milliseconds) = nullptr;
    int (*LnkGetServerIPFromCMEx)(const char* managerAddr, int, const char* user, const char* password, int,
                                  char* answer, int size) = nullptr;
    void (*LnkCleanup)() = nullptr;

    bool findAll(void* library) {
        return find(library, "LnkSetLogListener", LnkSetLogListener) &&
               find(library, "LnkInitializeEx2", LnkInitializeEx2) &&
               find(library, "LnkSetConnectionTimeout", LnkSetConnectionTimeout) &&
               find(library, "LnkGetServerIPFromCMEx", LnkGetServerIPFromCMEx) &&
               find(library, "LnkCleanup", LnkCleanup);
    }
};

LnkApi& LnkApi::instance() {
    static LnkApi api;
    return api;
}

bool LnkApi::load() {
    if (m_operations != nullptr)
        return true;
    const tp::MutexLock lock(m_mutex);
    if (m_operations != nullptr)
        return true;
    // Never closed again: the library may have threads of its own.
    void* const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        return false;
    static Operations operations;
    if (!operations.findAll(library))
        return false;
    m_operations = &operations;
    return true;
}

int LnkApi::setLogListener() {
    const tp::MutexLock lock(m_mutex);
    if (m_operations == nullptr)
        return LNKAPI_ERROR_NOT_INITIALIZED;
    return m_operations.load()->LnkSetLogListener(LnkapiLogListener, kLogMask);
}

int LnkApi::initialize(LnkApplicationVersion& application, LnkApiVersion2& library) {
    const tp::MutexLock lock(m_mutex);
    if (m_operations == nullptr)
        return LNKAPI_ERROR_NOT_INITIALIZED;
    return m_operations.load()->LnkInitializeEx2(&application, &library);
}

int LnkApi::setConnectionTimeout(int milliseconds) {
    const tp::MutexLock lock(m_mutex);
    if (m_operations == nullptr)
        return LNKAPI_ERROR_NOT_INITIALIZED;
    return m_operations.load()->LnkSetConnectionTimeout(milliseconds);
}

int LnkApi::getServerIP(const std::string& managerAddr, const std::string& user, const std::string& password,
                        std::string& hubIp, const std::function<bool()>& isStopping) {
    hubIp.clear();
    const tp::MutexLock lock(m_mutex);
    if (m_operations == nullptr)
        return LNKAPI_ERROR_NOT_INITIALIZED;
    if (isStopping())
        return LNKAPI_ERROR_NOTCONNECTED;
    std::array<char, kAnswerSize> answer{};
    const int status = m_operations.load()->LnkGetServerIPFromCMEx(
        managerAddr.c_str(), 1, user.c_str(), password.c_str(), 0, answer.data(), kAnswerSize);
    answer.back() = '\0';
    if (status != LNKAPI_SUCCESS)
        return status;
    if (::inet_addr(answer.data()) == INADDR_NONE) {
        eprintf(EPF_WARN, "The connection manager %s answered with no address of a HUB", managerAddr.c_str());
        return LNKAPI_ERROR_UNKNOWN;
    }
    hubIp = answer.data();
    return status;
}

void LnkApi::cleanup() {
    const tp::MutexLock lock(m_mutex);
    if (m_operations != nullptr)
        m_operations.load()->LnkCleanup();
}

} // namespace tivra_internal
