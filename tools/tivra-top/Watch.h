#pragma once

#include "Picture.h"

namespace tivra_top {

/// What is looked at. Used by the main thread.
class Watch {
public:
    Watch() = default;
    virtual ~Watch() = default;
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// All that there is to see now. It doesn't wait.
    [[nodiscard]] virtual Picture picture() = 0;
    /// Whether there is all that has been asked for.
    [[nodiscard]] virtual bool isAnswered() = 0;
};

} // namespace tivra_top
