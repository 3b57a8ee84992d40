#include "kvnparse/BodyParser.h"

namespace KVNAPI {

const BodyParserForm BODY_PARSER_FORMS[] = {
    {"scalar", parseBodyScalar, [] { return true; }},
    {nullptr, nullptr, nullptr},
};

BodyParser bestBodyParser() noexcept {
    BodyParser best = parseBodyScalar;
    for (const BodyParserForm* form = BODY_PARSER_FORMS; form->name != nullptr; ++form)
        if (form->runsHere())
            best = form->parse;
    return best;
}

} // namespace KVNAPI
