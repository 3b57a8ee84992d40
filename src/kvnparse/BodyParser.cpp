#include "kvnparse/BodyParser.h"

namespace KVNAPI {

const BodyParserForm kBodyParserForms[] = {
    {"scalar", parseBodyScalar, parseBodyScalar, [] { return true; }},
#if defined(__x86_64__)
    {"sse4.2", parseBodySse42, parseLazilySse42,
     [] { return __builtin_cpu_supports("sse4.2") && __builtin_cpu_supports("popcnt"); }},
    {"avx2", parseBodyAvx2, parseLazilyAvx2,
     [] {
         return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("popcnt");
     }},
    {"avx512", parseBodyAvx512, parseLazilyAvx512,
     [] {
         return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx2") &&
                __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2") &&
                __builtin_cpu_supports("popcnt");
     }},
#endif
    {nullptr, nullptr, nullptr, nullptr},
};

const BodyParserForm& bestBodyParser() noexcept {
    const BodyParserForm* best = kBodyParserForms;
    for (const BodyParserForm* form = kBodyParserForms; form->name != nullptr; ++form)
        if (form->runsHere())
            best = form;
    return *best;
}

} // namespace KVNAPI
