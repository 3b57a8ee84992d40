#pragma once

#include <memory>

namespace tivra_internal {

/// What a handler of the library's own keeps with a subscription. It goes with the subscription's handlers.
struct Attachment {
    explicit Attachment(const void* whose) noexcept : owner(whose) {}
    virtual ~Attachment() = default;
    Attachment(const Attachment&) = delete;
    Attachment& operator=(const Attachment&) = delete;

    /// The subscription has been closed: nothing more comes for it. In the item's turn, so that whoever waits
    /// for that to close it finds this done.
    virtual void end() noexcept {}

    const void* const owner; ///< what the handler serves
    std::unique_ptr<Attachment> next;
};

} // namespace tivra_internal
