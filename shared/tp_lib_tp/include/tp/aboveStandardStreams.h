#pragma once

namespace tp {

/// Keeps a descriptor of ours from being taken for a standard stream of the host, which may have closed its
/// own: gives `fd` back, or in the place of a low one, which it closes, a duplicate beyond them; -1, with
/// errno, when there is none to be had. A negative `fd` stays what it is.
[[nodiscard]] int aboveStandardStreams(int fd) noexcept;

} // namespace tp
