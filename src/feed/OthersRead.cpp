#include "feed/OthersRead.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tivra_internal {

bool canOthersRead(int fd) noexcept {
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const mode_t others = status.st_uid == ::geteuid() ? S_IRWXG | S_IRWXO : S_IRWXO;
    return (status.st_mode & others) != 0;
}

} // namespace tivra_internal
