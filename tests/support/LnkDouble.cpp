// liblnkapi64.so as tests load it; never installed.
#include "support/LnkDouble.h"

#define LNK_EXPORT extern "C" __attribute__((visibility("default")))

namespace {
LnkAnswer g_answer = nullptr;
int g_initStatus = 0;
} // namespace

LNK_EXPORT void lnkDoubleAnswerBy(LnkAnswer answer, int initStatus) {
    g_answer = answer;
    g_initStatus = initStatus;
}

LNK_EXPORT int LnkSetLogListener(void (*listener)(const char*), int) {
    listener("listening");
    return 0;
}

LNK_EXPORT int LnkInitializeEx2(void*, void*) {
    return g_initStatus;
}

LNK_EXPORT int LnkSetConnectionTimeout(int) {
    return 0;
}

LNK_EXPORT int LnkGetServerIPFromCMEx(const char* managerAddr, int, const char* user, const char* password,
                                      int, char* out, int size) {
    return g_answer(managerAddr, user, password, out, size);
}

LNK_EXPORT void LnkCleanup() {}
