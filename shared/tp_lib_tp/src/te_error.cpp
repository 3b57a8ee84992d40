#include <tp/te_error.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <pthread.h>

namespace tp {

namespace {

constexpr std::size_t kBufferSize = 4096;

struct err_info {
    const char* eptr;
    char buf[kBufferSize];
};

pthread_once_t keyOnce = PTHREAD_ONCE_INIT;
pthread_key_t key;
bool keyMade = false;

void freeInfo(void* info) {
    delete static_cast<err_info*>(info);
}

void makeKey() {
    keyMade = pthread_key_create(&key, freeInfo) == 0;
}

// Null when the thread's record can't be had.
err_info* threadInfo() noexcept {
    pthread_once(&keyOnce, makeKey);
    if (!keyMade)
        return nullptr;
    if (void* known = pthread_getspecific(key))
        return static_cast<err_info*>(known);
    auto* info = new (std::nothrow) err_info;
    if (info == nullptr)
        return nullptr;
    info->buf[0] = '\0';
    info->eptr = info->buf;
    if (pthread_setspecific(key, info) != 0) {
        delete info;
        return nullptr;
    }
    return info;
}

} // namespace

void te_seterror(const char* text) noexcept {
    if (err_info* info = threadInfo())
        info->eptr = text;
}

void te_error(const char* format, ...) noexcept {
    err_info* info = threadInfo();
    if (info == nullptr)
        return;
    va_list args;
    va_start(args, format);
    std::vsnprintf(info->buf, sizeof info->buf, format, args);
    va_end(args);
    info->eptr = info->buf;
}

void te_error_safe(const char* format, ...) noexcept {
    err_info* info = threadInfo();
    if (info == nullptr)
        return;
    char text[kBufferSize] = "";
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::memcpy(info->buf, text, std::strlen(text) + 1);
    info->eptr = info->buf;
}

const char* te_geterror() noexcept {
    const err_info* info = threadInfo();
    return info != nullptr && info->eptr != nullptr ? info->eptr : "terror internal error.";
}

std::span<char> te_fill() noexcept {
    err_info* info = threadInfo();
    if (info == nullptr)
        return {};
    info->eptr = info->buf;
    return info->buf;
}

} // namespace tp
