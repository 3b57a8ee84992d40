#pragma once

namespace tivra_internal {

/// Whether others than those who are meant can read or write a file with a password: everybody, or the group
/// of a file that belongs to the user of this process. The group of somebody else's file, root's for example,
/// is how this process gets at it. Pipes and the like are nobody's.
[[nodiscard]] bool canOthersRead(int fd) noexcept;

} // namespace tivra_internal
