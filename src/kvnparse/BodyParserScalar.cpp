#include "kvnparse/BodyParser.h"

#include "kvnparse/KVNParse.h"

namespace KVNAPI {

int parseBodyScalar(KVNParse& parse, const char* position) {
    for (;;) {
        position = parse.parseField(position);
        if (position == nullptr)
            return -1;
        const int more = parse.endField(position, position);
        if (more <= 0)
            return more;
    }
}

} // namespace KVNAPI
