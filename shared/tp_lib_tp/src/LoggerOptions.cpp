#include "LoggerOptions.h"

#include "LoggerMutex.h"

namespace tp {

constinit std::atomic<unsigned char> eprintf_opts{EPF_OPTS_DEFAULTS};
constinit std::atomic<int> eprintf_loglvl{EPF_INFO};
constinit std::atomic<int> eprintf_sink{EPF_STDERR};

void eprintf_ctrl(logoptact_t act, logopt_t opt) {
    const LoggerLock lock;
    switch (act) {
    case EPF_ENABLE:
        eprintf_opts = static_cast<unsigned char>(eprintf_opts | opt);
        break;
    case EPF_DISABLE:
        eprintf_opts = static_cast<unsigned char>(eprintf_opts & ~opt);
        break;
    case EPF_DEFAULT:
        eprintf_opts = EPF_OPTS_DEFAULTS;
        break;
    }
}

void dumpOptions(BoundedText& text) noexcept {
    text.appendCut("%p: static logopt_t eprintf_opts sizeof=%zu %u\n", address(&eprintf_opts),
                   sizeof eprintf_opts, static_cast<unsigned>(eprintf_opts.load()));
    text.appendCut("%p: static loglvl_t eprintf_loglvl sizeof=%zu %d\n", address(&eprintf_loglvl),
                   sizeof eprintf_loglvl, eprintf_loglvl.load());
    text.appendCut("%p: static logsink_t eprintf_sink sizeof=%zu %d\n", address(&eprintf_sink),
                   sizeof eprintf_sink, eprintf_sink.load());
}

} // namespace tp
