#pragma once

namespace tivra_bench {

// What a parser of an earlier day doesn't have yet it does without, so that one can be measured beside
// today's.

template<class Parser>
void setTextsInFrame(Parser& parser, bool inFrame) {
    if constexpr (requires { parser.setTextsInFrame(inFrame); })
        parser.setTextsInFrame(inFrame);
}

template<class Parser>
void setLazyValues(Parser& parser, bool isLazy) {
    if constexpr (requires { parser.setLazyValues(isLazy); })
        parser.setLazyValues(isLazy);
}

} // namespace tivra_bench
