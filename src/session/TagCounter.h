#pragma once

#include <cstdint>
#include <limits>

#include <tp/Mutex.h>

#include "receive/LibraryTags.h"

namespace tivra_internal {

/// Issues request tags. @thread any
class TagCounter {
public:
    [[nodiscard]] int64_t next() {
        tp::MutexLock lock(m_tag_mutex);
        const int64_t tag = next_tag;
        next_tag = following(tag);
        return tag;
    }

    /// The next tag to be issued becomes the one after `highestInUse` (0: none is in use).
    void restartAfter(int64_t highestInUse) {
        tp::MutexLock lock(m_tag_mutex);
        next_tag = highestInUse < kFirstUserTag ? kFirstUserTag : following(highestInUse);
    }

private:
    // The counter wraps past the fixed tags, never onto one of them.
    static int64_t following(int64_t tag) {
        return tag == std::numeric_limits<int64_t>::max() ? kFirstUserTag : tag + 1;
    }

    tp::Mutex m_tag_mutex;
    int64_t next_tag TP_GUARDED_BY(m_tag_mutex) = kFirstUserTag;
};

} // namespace tivra_internal
